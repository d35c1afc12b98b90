// SPDX-License-Identifier: GPL-3.0-or-later
#include "../fakes/FakeKeychainItemAccess.h"
#include "../support/Patience.h"
#include "../support/QtPrinters.h"
#include "../support/RunTask.h"
#include "../support/SecretServiceTestSession.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/OAuthError.h"
#include "oauth/linux/SecretServiceKeychainItemAccess.h"

#include <QProcess>

#include <gtest/gtest.h>

#include <future>
#include <libsecret/secret.h>
#include <mutex>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using orvane::KeyringOAuthRefreshTokenStore;
using orvane::OAuthError;
using orvane::OAuthKeychainQuery;
using orvane::SecretServiceKeychainItemAccess;
namespace Status = orvane::OAuthKeychainStatus;

namespace {

/// One GNOME Keyring for the whole program, started before any test touches GLib.
class SecretServiceEnvironment : public ::testing::Environment {
public:
    void SetUp() override
    {
        try {
            m_session.start();
        } catch (const std::exception& error) {
            FAIL() << error.what();
        }
    }
    void TearDown() override { m_session.stop(); }

private:
    SecretServiceTestSession m_session;
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new SecretServiceEnvironment);

const QString service = KeyringOAuthRefreshTokenStore::keychainService;

/// An account name of the running test's own, so tests never see each other's items.
QString testAccount(const char* suffix = "")
{
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    return QString::fromUtf8(test->name()) + u"@example.com"_s + QString::fromUtf8(suffix);
}

/// Runs secret-tool, the keyring's command-line client, and returns what it printed (with its exit code).
std::pair<int, QByteArray> secretTool(const QStringList& arguments, const QByteArray& input = {})
{
    QProcess tool;
    tool.start(u"secret-tool"_s, arguments);
    if (!tool.waitForStarted(patience)) {
        ADD_FAILURE() << "secret-tool (libsecret-tools) cannot run: " << tool.errorString().toStdString();
        return {-1, {}};
    }
    tool.write(input);
    tool.closeWriteChannel();
    tool.waitForFinished(patience);
    return {tool.exitCode(), tool.readAllStandardOutput()};
}

const QString genericSchema = QString::fromUtf8(SecretServiceKeychainItemAccess::genericSchemaName);

/// Writes a legacy item, as earlier versions and a user's own `secret-tool store` do, without a schema name or, when
/// `generic`, with the generic one.
void storeLegacyItem(const QString& account, const QString& token, bool generic = false)
{
    QStringList arguments{u"store"_s, u"--label=x"_s, u"service"_s, service, u"account"_s, account};
    if (generic) {
        arguments << u"xdg:schema"_s << genericSchema;
    }
    EXPECT_EQ(secretTool(arguments, token.toUtf8()).first, 0);
}

struct KeyringItem {
    QString schema; ///< Empty for an item without a schema name.
    QString secret;
    QString label;
    friend bool operator==(const KeyringItem&, const KeyringItem&) = default;
    friend void PrintTo(const KeyringItem& item, std::ostream* out)
    {
        *out << '{' << item.schema.toStdString() << ", " << item.secret.toStdString() << ", "
             << item.label.toStdString() << '}';
    }
};

/// Every item in the keyring for the account, whatever its form, as secret-tool lists it, the generic schema name
/// listed as none: GNOME Keyring reports it for an item stored without a schema name once it has read the item back
/// from its file (which it does whenever it finds the file changed, after its own writes too), so the same item
/// shows one or the other depending on the clock.
std::vector<KeyringItem> keyringItems(const QString& account)
{
    std::vector<KeyringItem> items;
    const auto [exitCode, output] = secretTool({u"search"_s, u"--all"_s, u"service"_s, service, u"account"_s, account});
    for (const QString& line : QString::fromUtf8(output).split(u'\n')) {
        if (line.startsWith(u'[')) {
            items.emplace_back();
        }
        for (auto [key, field] : {std::pair{u"schema = "_s, &KeyringItem::schema},
                                  {u"secret = "_s, &KeyringItem::secret},
                                  {u"label = "_s, &KeyringItem::label}}) {
            if (!items.empty() && line.startsWith(key)) {
                items.back().*field = line.mid(key.size());
            }
        }
    }
    for (KeyringItem& item : items) {
        if (item.schema == genericSchema) {
            item.schema.clear();
        }
    }
    return items;
}

KeyringItem currentItem(const QString& account, const QString& token)
{
    return {QString::fromUtf8(SecretServiceKeychainItemAccess::schemaName), token,
            SecretServiceKeychainItemAccess::label(account)};
}

/// The real keyring access, recording the thread of each call and holding every call until `gate` opens.
class RecordingAccess final : public orvane::OAuthKeychainItemAccessing {
public:
    explicit RecordingAccess(std::shared_future<void> gate = {})
        : m_gate(std::move(gate))
    {
    }

    std::vector<std::thread::id> threads() const
    {
        const std::lock_guard lock(m_mutex);
        return m_threads;
    }

    orvane::OAuthKeychainCopyResult copyMatching(const OAuthKeychainQuery& query) override
    {
        record();
        return m_access.copyMatching(query);
    }
    std::int32_t update(const OAuthKeychainQuery& query, const QByteArray& data) override
    {
        record();
        return m_access.update(query, data);
    }
    std::int32_t add(const OAuthKeychainQuery& query, const QByteArray& data) override
    {
        record();
        return m_access.add(query, data);
    }
    std::int32_t remove(const OAuthKeychainQuery& query) override
    {
        record();
        return m_access.remove(query);
    }

private:
    void record()
    {
        if (m_gate.valid()) {
            m_gate.wait();
        }
        const std::lock_guard lock(m_mutex);
        m_threads.push_back(std::this_thread::get_id());
    }

    SecretServiceKeychainItemAccess m_access;
    std::shared_future<void> m_gate;
    mutable std::mutex m_mutex;
    std::vector<std::thread::id> m_threads;
};

TEST(KeyringTokenStore, SavesReplacesAndDeletesEachAccountsToken)
{
    KeyringOAuthRefreshTokenStore store;
    const QString account = testAccount();
    const QString other = testAccount("-other");
    EXPECT_EQ(runTask(store.readRefreshToken(account)), std::nullopt);
    runTask(store.saveRefreshToken(u"other"_s, other));

    runTask(store.saveRefreshToken(u"1//first"_s, account));
    runTask(store.saveRefreshToken(u"1//second"_s, account));
    EXPECT_EQ(runTask(store.readRefreshToken(account)), u"1//second"_s);
    EXPECT_EQ(keyringItems(account), std::vector{currentItem(account, u"1//second"_s)});

    runTask(store.deleteRefreshToken(account));
    EXPECT_EQ(runTask(store.readRefreshToken(account)), std::nullopt);
    EXPECT_TRUE(keyringItems(account).empty());
    EXPECT_NO_THROW(runTask(store.deleteRefreshToken(account)));
    EXPECT_EQ(runTask(store.readRefreshToken(other)), u"other"_s);
}

/// Earlier versions, and a user's own `secret-tool store`, leave items without a schema name (or with the generic
/// one); both reading and saving leave only the current form behind.
TEST(KeyringTokenStore, ReadingOrSavingReplacesALegacyItem)
{
    KeyringOAuthRefreshTokenStore store;
    // The second legacy item is written with the generic schema name, so that this form is met on every run.
    for (const bool save : {false, true}) {
        SCOPED_TRACE(save ? "save" : "read");
        const QString account = testAccount(save ? "-save" : "-read");
        storeLegacyItem(account, u"1//legacy"_s, save);
        ASSERT_EQ(keyringItems(account), (std::vector<KeyringItem>{{{}, u"1//legacy"_s, u"x"_s}}));
        if (save) {
            runTask(store.saveRefreshToken(u"1//new"_s, account));
        }
        const QString expected = save ? u"1//new"_s : u"1//legacy"_s;
        EXPECT_EQ(runTask(store.readRefreshToken(account)), expected);
        EXPECT_EQ(keyringItems(account), std::vector{currentItem(account, expected)});
    }
}

TEST(KeyringTokenStore, TokensKeepEveryCharacter)
{
    KeyringOAuthRefreshTokenStore store;
    const QString account = testAccount("-ü");
    const QString token = u"rt-Ærø-日本語-🔑 \"quoted\"\t"_s;
    runTask(store.saveRefreshToken(token, account));
    EXPECT_EQ(runTask(store.readRefreshToken(account)), token);
    // Stored as the token's UTF-8 bytes, which other keyring clients read as the same text.
    const auto [exitCode, printed] =
        secretTool({u"lookup"_s, u"xdg:schema"_s, QString::fromUtf8(SecretServiceKeychainItemAccess::schemaName),
                    u"service"_s, service, u"account"_s, account});
    EXPECT_EQ(printed, token.toUtf8());
}

TEST(SecretServiceKeychainItemAccess, CurrentAndLegacyQueriesNeverMatchEachOthersItems)
{
    SecretServiceKeychainItemAccess access;
    const QString account = testAccount();
    const OAuthKeychainQuery current{.form = OAuthKeychainQuery::Form::current, .service = service, .account = account};
    const OAuthKeychainQuery legacy{.form = OAuthKeychainQuery::Form::legacy, .service = service, .account = account};
    storeLegacyItem(account, u"old"_s);

    EXPECT_EQ(access.copyMatching(current).status, Status::itemNotFound);
    EXPECT_EQ(access.update(current, "new"), Status::itemNotFound);
    EXPECT_EQ(access.add(current, "new"), Status::success);
    EXPECT_EQ(access.add(current, "newer"), Status::duplicateItem);
    EXPECT_EQ(access.copyMatching(legacy), (orvane::OAuthKeychainCopyResult{Status::success, "old"}));

    EXPECT_EQ(access.remove(legacy), Status::success);
    EXPECT_EQ(access.remove(legacy), Status::itemNotFound);
    EXPECT_EQ(access.copyMatching(current), (orvane::OAuthKeychainCopyResult{Status::success, "new"}));
    EXPECT_EQ(access.remove(current), Status::success);
    EXPECT_EQ(access.remove(current), Status::itemNotFound);
}

TEST(KeyringTokenStore, ReachesTheKeyringOnlyFromItsOwnThread)
{
    auto access = std::make_shared<RecordingAccess>();
    KeyringOAuthRefreshTokenStore store(access);
    const QString account = testAccount();
    runTask(store.saveRefreshToken(u"token"_s, account));
    EXPECT_EQ(runTask(store.readRefreshToken(account)), u"token"_s);
    runTask(store.deleteRefreshToken(account));

    const std::vector<std::thread::id> threads = access->threads();
    ASSERT_FALSE(threads.empty());
    for (const std::thread::id thread : threads) {
        EXPECT_NE(thread, std::this_thread::get_id());
        EXPECT_EQ(thread, threads.front());
    }
}

TEST(KeyringTokenStore, AnOperationOutlivesItsStore)
{
    const QString account = testAccount();
    {
        KeyringOAuthRefreshTokenStore store;
        runTask(store.saveRefreshToken(u"token"_s, account));
    }
    std::promise<void> opening;
    auto store = std::make_unique<KeyringOAuthRefreshTokenStore>(
        std::make_shared<RecordingAccess>(opening.get_future().share()));
    auto reading = store->readRefreshToken(account);
    auto deleting = store->deleteRefreshToken(account);
    store.reset();
    opening.set_value();
    EXPECT_EQ(runTask(std::move(reading)), u"token"_s);
    runTask(std::move(deleting));
    EXPECT_TRUE(keyringItems(account).empty());
}

/// The store's answer to statuses the real keyring gives only in situations a test cannot arrange.
TEST(KeyringTokenStore, FailuresAndOddItemsFromTheSeam)
{
    using Items = std::map<std::pair<FakeKeychainItemAccess::Form, QString>, QByteArray>;
    using enum FakeKeychainItemAccess::Operation;
    using enum FakeKeychainItemAccess::Form;
    enum class Call { read, save, erase };
    const QString a = u"a@example.com"_s;
    const auto inCurrent = [&](QByteArray data) {
        return std::pair{std::pair{current, a}, data};
    };
    const auto inLegacy = [&](QByteArray data) {
        return std::pair{std::pair{legacy, a}, data};
    };
    const auto locked = Status::authorizationFailed;
    const auto internal = Status::internalFailure;
    const auto undecodable = Status::undecodableData;
    const struct {
        const char* name;
        Items items;
        std::optional<std::tuple<FakeKeychainItemAccess::Operation, FakeKeychainItemAccess::Form, std::int32_t>>
            failure;
        Call call;
        std::optional<std::int32_t> thrown;
        std::optional<Items> after = std::nullopt; ///< None when the items must be left alone.
        std::optional<QString> read = std::nullopt;
    } cases[] = {
        {"locked keyring on read", {}, {{copy, current, locked}}, Call::read, locked},
        {"legacy lookup fails", {}, {{copy, legacy, internal}}, Call::read, internal},
        {"stored data is not UTF-8", {inCurrent("\xff\xfe")}, {}, Call::read, undecodable},
        {"legacy data is not UTF-8, so it stays", {inLegacy("ab\xc3")}, {}, Call::read, undecodable},
        {"migration whose legacy item is already gone",
         {inLegacy("tok")},
         {{remove, legacy, Status::itemNotFound}},
         Call::read,
         {},
         Items{inCurrent("tok"), inLegacy("tok")},
         u"tok"_s},
        {"migration that cannot write keeps the legacy item",
         {inLegacy("tok")},
         {{add, current, locked}},
         Call::read,
         locked},
        {"save into a locked keyring", {inCurrent("old")}, {{update, current, locked}}, Call::save, locked},
        {"save without a keyring service",
         {},
         {{add, current, Status::notAvailable}},
         Call::save,
         Status::notAvailable},
        {"save whose legacy cleanup fails",
         {inLegacy("old")},
         {{remove, legacy, internal}},
         Call::save,
         internal,
         Items{inCurrent("new"), inLegacy("old")}},
        {"delete from a locked keyring", {inCurrent("tok")}, {{remove, current, locked}}, Call::erase, locked},
        {"delete whose legacy removal fails", {}, {{remove, legacy, internal}}, Call::erase, internal},
        {"delete with nothing stored", {}, {}, Call::erase, {}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        auto access = std::make_shared<FakeKeychainItemAccess>();
        access->items = test.items;
        if (test.failure) {
            const auto [operation, form, status] = *test.failure;
            access->failures[{operation, form}] = status;
        }
        KeyringOAuthRefreshTokenStore store(access);
        try {
            switch (test.call) {
            case Call::read:
                EXPECT_EQ(runTask(store.readRefreshToken(a)), test.read);
                break;
            case Call::save:
                runTask(store.saveRefreshToken(u"new"_s, a));
                break;
            case Call::erase:
                runTask(store.deleteRefreshToken(a));
                break;
            }
            EXPECT_EQ(test.thrown, std::nullopt) << "nothing was thrown";
        } catch (const OAuthError& error) {
            EXPECT_EQ(error.value(), OAuthError::Case(OAuthError::Keychain{test.thrown.value_or(0)}));
        }
        EXPECT_EQ(access->items, test.after.value_or(test.items));
    }
}

TEST(SecretServiceKeychainItemAccess, MapsLibsecretAndDBusErrorsToStatuses)
{
    const struct {
        GQuark domain;
        int code;
        std::int32_t status;
    } cases[] = {
        {SECRET_ERROR, SECRET_ERROR_IS_LOCKED, Status::authorizationFailed},
        {SECRET_ERROR, SECRET_ERROR_NO_SUCH_OBJECT, Status::itemNotFound},
        {SECRET_ERROR, SECRET_ERROR_PROTOCOL, Status::internalFailure},
        {G_IO_ERROR, G_IO_ERROR_CANCELLED, Status::authorizationFailed},
        {G_IO_ERROR, G_IO_ERROR_NOT_FOUND, Status::notAvailable},
        {G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN, Status::notAvailable},
        {G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER, Status::notAvailable},
        {G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED, Status::authorizationFailed},
        {G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS, Status::internalFailure},
    };
    for (const auto& test : cases) {
        GError* error = g_error_new_literal(test.domain, test.code, "failure");
        EXPECT_EQ(SecretServiceKeychainItemAccess::statusForError(error), test.status)
            << g_quark_to_string(test.domain) << ' ' << test.code;
        g_error_free(error);
    }
}

} // namespace
