// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "persistence/PersistenceStoreError.h"
#include "support/DiskFull.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <QVariantMap>

#include <gtest/gtest.h>

#include <functional>
#include <limits>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace orvane {

void PrintTo(const RemoteCalendarAccountMetadata& value, std::ostream* out)
{
    *out << rawValue(value.provider).toStdString() << '/' << value.providerAccountIdentifier.toStdString() << '/'
         << value.tenantIdentifier.value_or(u"-"_s).toStdString() << ' ' << value.id.toString().toStdString();
}

} // namespace orvane

namespace {

using Error = RemoteCalendarAccountStoreError;
const QString key = u"Orvane.remoteCalendarAccounts"_s;

RemoteCalendarAccountMetadata account(RemoteCalendarProviderKind provider, const QString& user,
                                      std::optional<QString> tenant = std::nullopt)
{
    return {.id = QUuid::createUuid(),
            .provider = provider,
            .providerAccountIdentifier = user,
            .tenantIdentifier = std::move(tenant),
            .displayName = user,
            .oauthClientID = u"client"_s,
            .connectedAt = Date{700'000'000}};
}

RemoteCalendarAccountMetadata googleAccount(const QString& user)
{
    return account(RemoteCalendarProviderKind::google, user);
}

std::optional<Error::Case> storeErrorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Error& error) {
        return error.value();
    }
    return std::nullopt;
}

std::optional<PersistenceStoreError::Case> persistenceErrorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const PersistenceStoreError& error) {
        return error.value();
    }
    return std::nullopt;
}

/// One stored Google account as JSON text, with `extra` members appended.
QByteArray storedAccount(const QByteArray& id = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", const QByteArray& user = "1234",
                         const QByteArray& extra = {})
{
    return R"({"id":")" + id + R"(","provider":"google","providerAccountIdentifier":")" + user +
           R"(","displayName":"Work","oauthClientID":"client","connectedAt":0)" + extra + "}";
}

QByteArray envelope(const QByteArray& accounts)
{
    return R"({"schemaVersion":1,"accounts":[)" + accounts + "]}";
}

TEST(RemoteAccountStore, NothingStoredIsAnEmptyList)
{
    TemporaryDefaults defaults;
    const UserDefaultsRemoteCalendarAccountStore store(defaults.database());
    EXPECT_TRUE(store.loadAccounts().empty());
    EXPECT_FALSE(defaults.stored(key).isValid());
}

TEST(RemoteAccountStore, SavedAccountsLoadBackInListingOrder)
{
    TemporaryDefaults defaults;
    UserDefaultsRemoteCalendarAccountStore store(defaults.database());
    using enum RemoteCalendarProviderKind;
    const std::vector listed{
        account(google, u"Zed"_s),
        account(google, u"alice"_s),
        account(microsoft, u"1"_s),
        account(microsoft, u"1"_s, u"contoso"_s),
        account(microsoft, u"1"_s, u"fabrikam"_s),
        account(microsoft, u"2"_s),
    };
    store.saveAccounts({listed[5], listed[3], listed[1], listed[4], listed[0], listed[2]});
    EXPECT_EQ(store.loadAccounts(), listed);
    EXPECT_EQ(UserDefaultsRemoteCalendarAccountStore(defaults.database()).loadAccounts(), listed);

    // The same accounts give the same bytes whatever order they were saved in.
    const QByteArray bytes = defaults.stored(key).toByteArray();
    store.saveAccounts({listed[2], listed[0], listed[4], listed[1], listed[3], listed[5]});
    EXPECT_EQ(defaults.stored(key).toByteArray(), bytes);
    EXPECT_TRUE(bytes.startsWith(R"({"schemaVersion":1,"accounts":[{"id":")"));

    store.saveAccounts({});
    EXPECT_EQ(defaults.stored(key).toByteArray(), R"({"schemaVersion":1,"accounts":[]})");
    EXPECT_TRUE(store.loadAccounts().empty());
}

TEST(RemoteAccountStore, LoadsListsStoredInAnyOrder)
{
    TemporaryDefaults defaults;
    defaults.store(key, envelope(storedAccount("00000000-0000-0000-0000-00000000000B", "b") + "," +
                                 storedAccount("00000000-0000-0000-0000-00000000000A", "a")));
    const auto accounts = UserDefaultsRemoteCalendarAccountStore(defaults.database()).loadAccounts();
    ASSERT_EQ(accounts.size(), 2U);
    EXPECT_EQ(accounts[0].providerAccountIdentifier, u"a"_s);
    EXPECT_EQ(accounts[1].providerAccountIdentifier, u"b"_s);
}

TEST(RemoteAccountStore, UnreadableListsFailAndStayAsTheyWere)
{
    const QByteArray a = "00000000-0000-0000-0000-00000000000A";
    const QByteArray b = "00000000-0000-0000-0000-00000000000B";
    const struct {
        const char* why;
        QVariant stored;
        Error::Case expected;
    } cases[] = {
        {"string", u"{\"schemaVersion\":1,\"accounts\":[]}"_s, Error::InvalidStoredType{}},
        {"number", 1, Error::InvalidStoredType{}},
        {"map", QVariantMap{{u"schemaVersion"_s, 1}}, Error::InvalidStoredType{}},
        {"not JSON", QByteArray("schemaVersion=1"), Error::MalformedEnvelope{}},
        {"empty data", QByteArray(), Error::MalformedEnvelope{}},
        {"array", QByteArray("[1]"), Error::MalformedEnvelope{}},
        {"no version", QByteArray(R"({"accounts":[]})"), Error::MalformedEnvelope{}},
        {"version as text", QByteArray(R"({"schemaVersion":"1","accounts":[]})"), Error::MalformedEnvelope{}},
        {"version null", QByteArray(R"({"schemaVersion":null,"accounts":[]})"), Error::MalformedEnvelope{}},
        {"version 2", QByteArray(R"({"schemaVersion":2,"accounts":[]})"), Error::UnsupportedSchemaVersion{2}},
        {"version 0", QByteArray(R"({"schemaVersion":0})"), Error::UnsupportedSchemaVersion{0}},
        {"version -1", QByteArray(R"({"schemaVersion":-1,"accounts":[]})"), Error::UnsupportedSchemaVersion{-1}},
        {"no accounts", QByteArray(R"({"schemaVersion":1})"), Error::InvalidPayload{}},
        {"accounts null", QByteArray(R"({"schemaVersion":1,"accounts":null})"), Error::InvalidPayload{}},
        {"accounts object", QByteArray(R"({"schemaVersion":1,"accounts":{}})"), Error::InvalidPayload{}},
        {"null account", envelope("null"), Error::InvalidPayload{}},
        {"account without client ID",
         envelope(R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":"google",)"
                  R"("providerAccountIdentifier":"1","displayName":"W","connectedAt":0})"),
         Error::InvalidPayload{}},
        {"unknown provider", envelope(storedAccount().replace("google", "icloud")), Error::InvalidPayload{}},
        {"same identifier", envelope(storedAccount(a, "1") + "," + storedAccount(a, "2")),
         Error::DuplicateAccountIdentifier{}},
        {"same identifier in another case", envelope(storedAccount(a, "1") + "," + storedAccount(a.toLower(), "2")),
         Error::DuplicateAccountIdentifier{}},
        {"same provider account", envelope(storedAccount(a, "1") + "," + storedAccount(b, "1")),
         Error::DuplicateProviderAccount{}},
        {"same provider account and tenant",
         envelope(storedAccount(a, "1", R"(,"tenantIdentifier":"t")") + "," +
                  storedAccount(b, "1", R"(,"tenantIdentifier":"t")")),
         Error::DuplicateProviderAccount{}},
        {"empty account identifier", envelope(storedAccount(a, "")), Error::InvalidAccountMetadata{}},
        {"blank account identifier", envelope(storedAccount(a, " \t")), Error::InvalidAccountMetadata{}},
        {"empty client ID", envelope(storedAccount().replace(R"("client")", R"("")")), Error::InvalidAccountMetadata{}},
        {"empty tenant", envelope(storedAccount(a, "1", R"(,"tenantIdentifier":"")")), Error::InvalidAccountMetadata{}},
        {"null identifier", envelope(storedAccount("00000000-0000-0000-0000-000000000000")),
         Error::InvalidAccountMetadata{}},
    };
    for (const auto& [why, stored, expected] : cases) {
        SCOPED_TRACE(why);
        TemporaryDefaults defaults;
        defaults.store(key, stored);
        const QByteArray before = defaults.fileBytes();
        const UserDefaultsRemoteCalendarAccountStore store(defaults.database());
        EXPECT_EQ(storeErrorOf([&] { store.loadAccounts(); }), expected);
        EXPECT_EQ(defaults.fileBytes(), before);
    }
}

TEST(RemoteAccountStore, SameUserInAnotherTenantOrProviderIsAnotherAccount)
{
    TemporaryDefaults defaults;
    UserDefaultsRemoteCalendarAccountStore store(defaults.database());
    using enum RemoteCalendarProviderKind;
    // Listed in this order too: tenants compare case-sensitively, an absent one first.
    const std::vector accounts{account(google, u"1"_s), account(microsoft, u"1"_s), account(microsoft, u"1"_s, u"T"_s),
                               account(microsoft, u"1"_s, u"t"_s)};
    store.saveAccounts(accounts);
    EXPECT_EQ(store.loadAccounts(), accounts);
}

TEST(RemoteAccountStore, RefusesToSaveAListThatWouldNotLoad)
{
    using enum RemoteCalendarProviderKind;
    const auto first = account(microsoft, u"1"_s, u"t"_s);
    auto sameID = googleAccount(u"2"_s);
    sameID.id = first.id;
    auto sameUser = account(microsoft, u"1"_s, u"t"_s);
    sameUser.displayName = u"Renamed"_s;
    auto noClient = googleAccount(u"3"_s);
    noClient.oauthClientID = u""_s;
    auto noUser = googleAccount(u""_s);
    auto noID = googleAccount(u"4"_s);
    noID.id = QUuid();
    const struct {
        const char* why;
        std::vector<RemoteCalendarAccountMetadata> accounts;
        Error::Case expected;
    } cases[] = {
        {"same identifier", {first, sameID}, Error::DuplicateAccountIdentifier{}},
        {"same provider account", {first, sameUser}, Error::DuplicateProviderAccount{}},
        {"connected twice", {first, first}, Error::DuplicateAccountIdentifier{}},
        {"no client ID", {first, noClient}, Error::InvalidAccountMetadata{}},
        {"no account identifier", {noUser}, Error::InvalidAccountMetadata{}},
        {"null identifier", {noID}, Error::InvalidAccountMetadata{}},
    };
    TemporaryDefaults defaults;
    UserDefaultsRemoteCalendarAccountStore store(defaults.database());
    store.saveAccounts({first});
    const QByteArray before = defaults.fileBytes();
    for (const auto& [why, accounts, expected] : cases) {
        SCOPED_TRACE(why);
        EXPECT_EQ(storeErrorOf([&] { store.saveAccounts(accounts); }), expected);
        EXPECT_EQ(defaults.fileBytes(), before);
    }
    EXPECT_EQ(store.loadAccounts(), std::vector{first});
}

TEST(RemoteAccountStore, EncodingOrWriteFailureLeavesTheStoredListAlone)
{
    TemporaryDefaults defaults;
    UserDefaultsRemoteCalendarAccountStore store(defaults.database());
    const auto kept = googleAccount(u"kept"_s);
    store.saveAccounts({kept});
    const QByteArray before = defaults.fileBytes();

    auto unencodable = googleAccount(u"new"_s);
    unencodable.connectedAt = Date{std::numeric_limits<double>::quiet_NaN()};
    EXPECT_EQ(persistenceErrorOf([&] {
                  store.saveAccounts({kept, unencodable});
              }),
              PersistenceStoreError::Case{PersistenceStoreError::EncodingFailed{}});
    EXPECT_EQ(defaults.fileBytes(), before);

    std::optional<PersistenceStoreError::Case> writeError;
    {
        const DiskFull full;
        writeError = persistenceErrorOf([&] { store.saveAccounts({kept, googleAccount(u"new"_s)}); });
    }
    EXPECT_EQ(writeError, PersistenceStoreError::Case{PersistenceStoreError::WriteFailed{}});
    EXPECT_EQ(defaults.fileBytes(), before);
    EXPECT_EQ(store.loadAccounts(), std::vector{kept});
    EXPECT_EQ(UserDefaultsRemoteCalendarAccountStore(defaults.database()).loadAccounts(), std::vector{kept});
}

TEST(RemoteAccountStoreError, ReadFailuresAndValidationFailuresAreToldApart)
{
    const QString read = u"Unable to read connected calendar accounts: "_s;
    const QString validate = u"Unable to validate connected calendar accounts: "_s;
    const struct {
        Error::Case error;
        QString lead;
    } cases[] = {
        {Error::UnsupportedSchemaVersion{2}, read},
        {Error::InvalidStoredType{}, read},
        {Error::MalformedEnvelope{}, read},
        {Error::InvalidPayload{}, read},
        {Error::InvalidAccountMetadata{}, validate},
        {Error::DuplicateAccountIdentifier{}, validate},
        {Error::DuplicateProviderAccount{}, validate},
    };
    for (const auto& [error, lead] : cases) {
        const Error thrown(error);
        EXPECT_EQ(thrown.userMessage(), lead + thrown.description());
        EXPECT_EQ(QString::fromUtf8(thrown.what()), thrown.description());
    }
    EXPECT_TRUE(Error(Error::UnsupportedSchemaVersion{2}).description().contains(u'2'));
}

} // namespace
