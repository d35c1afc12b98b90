// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/linux/SecretServiceKeychainItemAccess.h"

#include <libsecret/secret.h>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using GObjectPointer = std::unique_ptr<T, GObjectUnref>;

struct SecretValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using SecretValuePointer = std::unique_ptr<SecretValue, SecretValueUnref>;

/// Orvane's own items. Searching with it adds the schema name to the attributes, so legacy items never match.
const SecretSchema& orvaneSchema()
{
    static const SecretSchema schema = {
        SecretServiceKeychainItemAccess::schemaName,
        SECRET_SCHEMA_NONE,
        {
            {"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
    };
    return schema;
}

/// The schema a query's items are written with; none for legacy items, which carry no schema name.
const SecretSchema* schemaFor(const OAuthKeychainQuery& query)
{
    return query.form == OAuthKeychainQuery::Form::current ? &orvaneSchema() : nullptr;
}

/// The attribute table libsecret wants, with the UTF-8 strings it points into.
class Attributes {
public:
    explicit Attributes(const OAuthKeychainQuery& query)
        : m_service(query.service.toUtf8())
        , m_account(query.account.toUtf8())
        , m_table(g_hash_table_new(g_str_hash, g_str_equal))
    {
        g_hash_table_insert(m_table, const_cast<char*>("service"), m_service.data());
        g_hash_table_insert(m_table, const_cast<char*>("account"), m_account.data());
    }
    ~Attributes() { g_hash_table_unref(m_table); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    GHashTable* table() const { return m_table; }

private:
    QByteArray m_service;
    QByteArray m_account;
    GHashTable* m_table;
};

/// Takes `error`, returning its status.
std::int32_t failure(GError* error)
{
    const std::int32_t status = SecretServiceKeychainItemAccess::statusForError(error);
    g_clear_error(&error);
    return status;
}

/// The unlocked items a query matches, or the status that says why there are none.
struct Matches {
    std::int32_t status = OAuthKeychainStatus::success;
    GObjectPointer<SecretService> service;
    std::vector<GObjectPointer<SecretItem>> items;
};

/// Whether `item`, found by service and account alone, is a legacy item rather than one of another schema.
bool isLegacyItem(SecretItem* item)
{
    gchar* name = secret_item_get_schema_name(item);
    const bool legacy = name == nullptr || g_str_equal(name, SecretServiceKeychainItemAccess::genericSchemaName);
    g_free(name);
    return legacy;
}

Matches find(const OAuthKeychainQuery& query, bool loadSecrets)
{
    Matches matches;
    GError* error = nullptr;
    matches.service.reset(secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error));
    if (!matches.service) {
        matches.status = failure(error);
        return matches;
    }
    const Attributes attributes(query);
    // Locked items are unlocked first, which shows the keyring's unlock prompt if the collection is locked.
    const auto flags =
        SecretSearchFlags(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK | (loadSecrets ? SECRET_SEARCH_LOAD_SECRETS : 0));
    GList* found =
        secret_service_search_sync(matches.service.get(), schemaFor(query), attributes.table(), flags, nullptr, &error);
    if (error != nullptr) {
        matches.status = failure(error);
        return matches;
    }
    bool stayedLocked = false;
    for (GList* entry = found; entry != nullptr; entry = entry->next) {
        GObjectPointer<SecretItem> item(SECRET_ITEM(entry->data));
        if (query.form == OAuthKeychainQuery::Form::legacy && !isLegacyItem(item.get())) {
            continue;
        }
        if (secret_item_get_locked(item.get())) {
            stayedLocked = true;
            continue;
        }
        matches.items.push_back(std::move(item));
    }
    g_list_free(found);
    if (stayedLocked) {
        // The unlock prompt was dismissed: acting on the unlocked rest would give a partial answer.
        matches.items.clear();
        matches.status = OAuthKeychainStatus::authorizationFailed;
    } else if (matches.items.empty()) {
        matches.status = OAuthKeychainStatus::itemNotFound;
    }
    return matches;
}

SecretValuePointer secretValue(const QByteArray& data)
{
    // The data is always a token's UTF-8 text; the content type lets keyring tools show it as such.
    return SecretValuePointer(secret_value_new(data.constData(), data.size(), "text/plain"));
}

} // namespace

OAuthKeychainCopyResult SecretServiceKeychainItemAccess::copyMatching(const OAuthKeychainQuery& query)
{
    const Matches matches = find(query, true);
    if (matches.status != OAuthKeychainStatus::success) {
        return {.status = matches.status};
    }
    const SecretValuePointer value(secret_item_get_secret(matches.items.front().get()));
    if (!value) {
        // Loading the secret failed although the item is unlocked: it was locked again in between.
        return {.status = OAuthKeychainStatus::authorizationFailed};
    }
    gsize length = 0;
    const gchar* bytes = secret_value_get(value.get(), &length);
    return {.status = OAuthKeychainStatus::success, .data = QByteArray(bytes, qsizetype(length))};
}

std::int32_t SecretServiceKeychainItemAccess::update(const OAuthKeychainQuery& query, const QByteArray& data)
{
    const Matches matches = find(query, false);
    if (matches.status != OAuthKeychainStatus::success) {
        return matches.status;
    }
    const SecretValuePointer value = secretValue(data);
    for (const auto& item : matches.items) {
        GError* error = nullptr;
        if (!secret_item_set_secret_sync(item.get(), value.get(), nullptr, &error)) {
            return failure(error);
        }
    }
    return OAuthKeychainStatus::success;
}

std::int32_t SecretServiceKeychainItemAccess::add(const OAuthKeychainQuery& query, const QByteArray& data)
{
    // The Secret Service replaces an item with the same attributes on creation; a keychain refuses a duplicate.
    const Matches existing = find(query, false);
    if (existing.status == OAuthKeychainStatus::success) {
        return OAuthKeychainStatus::duplicateItem;
    }
    if (existing.status != OAuthKeychainStatus::itemNotFound) {
        return existing.status;
    }
    const Attributes attributes(query);
    const QByteArray itemLabel = label(query.account).toUtf8();
    const SecretValuePointer value = secretValue(data);
    GError* error = nullptr;
    if (!secret_service_store_sync(existing.service.get(), schemaFor(query), attributes.table(),
                                   SECRET_COLLECTION_DEFAULT, itemLabel.constData(), value.get(), nullptr, &error)) {
        return failure(error);
    }
    return OAuthKeychainStatus::success;
}

std::int32_t SecretServiceKeychainItemAccess::remove(const OAuthKeychainQuery& query)
{
    const Matches matches = find(query, false);
    if (matches.status != OAuthKeychainStatus::success) {
        return matches.status;
    }
    for (const auto& item : matches.items) {
        GError* error = nullptr;
        if (!secret_item_delete_sync(item.get(), nullptr, &error)) {
            return failure(error);
        }
    }
    return OAuthKeychainStatus::success;
}

QString SecretServiceKeychainItemAccess::label(const QString& account)
{
    return u"Orvane calendar sign-in (%1)"_s.arg(account);
}

std::int32_t SecretServiceKeychainItemAccess::statusForError(const GError* error)
{
    if (error == nullptr) {
        return OAuthKeychainStatus::internalFailure;
    }
    if (error->domain == SECRET_ERROR) {
        switch (error->code) {
        case SECRET_ERROR_IS_LOCKED:
            return OAuthKeychainStatus::authorizationFailed;
        case SECRET_ERROR_NO_SUCH_OBJECT:
            // The item went away between the search and the call.
            return OAuthKeychainStatus::itemNotFound;
        case SECRET_ERROR_ALREADY_EXISTS:
            return OAuthKeychainStatus::duplicateItem;
        default:
            break;
        }
        return OAuthKeychainStatus::internalFailure;
    }
    // Without a cancellable of ours, a cancellation is the user dismissing an unlock prompt.
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_AUTH_FAILED)) {
        return OAuthKeychainStatus::authorizationFailed;
    }
    // No session bus (GIO's errors while connecting), or nobody on it providing the Secret Service.
    if (error->domain == G_IO_ERROR) {
        return OAuthKeychainStatus::notAvailable;
    }
    if (error->domain == G_DBUS_ERROR) {
        switch (error->code) {
        case G_DBUS_ERROR_SERVICE_UNKNOWN:
        case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        case G_DBUS_ERROR_NO_SERVER:
        case G_DBUS_ERROR_DISCONNECTED:
        case G_DBUS_ERROR_NO_REPLY:
        case G_DBUS_ERROR_TIMEOUT:
        case G_DBUS_ERROR_SPAWN_SERVICE_NOT_FOUND:
        case G_DBUS_ERROR_SPAWN_SERVICE_INVALID:
        case G_DBUS_ERROR_SPAWN_EXEC_FAILED:
        case G_DBUS_ERROR_SPAWN_CHILD_EXITED:
        case G_DBUS_ERROR_SPAWN_FAILED:
            return OAuthKeychainStatus::notAvailable;
        default:
            break;
        }
    }
    return OAuthKeychainStatus::internalFailure;
}

std::shared_ptr<OAuthKeychainItemAccessing> makePlatformKeychainItemAccess()
{
    return std::make_shared<SecretServiceKeychainItemAccess>();
}

} // namespace orvane
