// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"

#include "persistence/PersistenceStoreError.h"
#include "persistence/VersionedDefaults.h"

#include <QMetaType>

#include <algorithm>
#include <unordered_set>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

using Error = RemoteCalendarAccountStoreError;

bool isBlank(const QString& text)
{
    return text.trimmed().isEmpty();
}

/// Identifiers without which the account cannot be named, refreshed or told apart. The display name and e-mail
/// address are only shown, so an empty one is allowed.
bool isUsable(const RemoteCalendarAccountMetadata& account)
{
    return !account.id.isNull() && !isBlank(account.providerAccountIdentifier) && !isBlank(account.oauthClientID) &&
           !(account.tenantIdentifier && isBlank(*account.tenantIdentifier));
}

} // namespace

UserDefaultsRemoteCalendarAccountStore::UserDefaultsRemoteCalendarAccountStore(DefaultsDatabase& database)
    : m_database(database)
{
}

std::vector<RemoteCalendarAccountMetadata> UserDefaultsRemoteCalendarAccountStore::loadAccounts() const
{
    if (!m_database.isReadable()) {
        throw Error(Error::UnreadableDatabase{});
    }
    const QVariant stored = m_database.object(storageKey);
    if (!stored.isValid()) {
        return {};
    }
    if (stored.typeId() != QMetaType::QByteArray) {
        throw Error(Error::InvalidStoredType{});
    }
    QJsonValue document;
    qint64 version = 0;
    try {
        document = json::parse(stored.toByteArray());
        version = json::Decoder(document).decode<VersionedDefaults::Header>().schemaVersion;
    } catch (const json::DecodingError&) {
        throw Error(Error::MalformedEnvelope{});
    }
    if (version != schemaVersion) {
        throw Error(Error::UnsupportedSchemaVersion{version});
    }
    std::vector<RemoteCalendarAccountMetadata> accounts;
    try {
        accounts = json::Decoder(document).decode<std::vector<RemoteCalendarAccountMetadata>>(u"accounts");
    } catch (const json::DecodingError&) {
        throw Error(Error::InvalidPayload{});
    }
    validate(accounts);
    std::sort(accounts.begin(), accounts.end(), listsBefore);
    return accounts;
}

void UserDefaultsRemoteCalendarAccountStore::saveAccounts(std::vector<RemoteCalendarAccountMetadata> accounts)
{
    validate(accounts);
    // Stored in listing order, so the same accounts always give the same bytes.
    std::sort(accounts.begin(), accounts.end(), listsBefore);
    QByteArray blob;
    try {
        blob =
            json::serialize(json::Object{{u"schemaVersion"_s, schemaVersion}, {u"accounts"_s, json::toJson(accounts)}});
    } catch (const json::EncodingError&) {
        throw PersistenceStoreError(PersistenceStoreError::EncodingFailed{});
    }
    m_database.setObject(storageKey, blob);
}

void UserDefaultsRemoteCalendarAccountStore::validate(const std::vector<RemoteCalendarAccountMetadata>& accounts)
{
    std::unordered_set<QString> identifiers;
    for (const auto& account : accounts) {
        if (!identifiers.insert(account.id.toString()).second) {
            throw Error(Error::DuplicateAccountIdentifier{});
        }
    }
    std::unordered_set<ProviderAccountKey> keys;
    for (const auto& account : accounts) {
        if (!keys.insert(account.providerAccountKey()).second) {
            throw Error(Error::DuplicateProviderAccount{});
        }
    }
    if (!std::all_of(accounts.begin(), accounts.end(), isUsable)) {
        throw Error(Error::InvalidAccountMetadata{});
    }
}

} // namespace orvane
