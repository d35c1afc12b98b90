// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarAccountMetadata.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace orvane;
namespace identity = orvane::RemoteCalendarIdentityNamespace;

namespace {

const QUuid accountID = QUuid::fromString(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s);
const QString accountText = u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s;

RemoteCalendarAccountMetadata account(RemoteCalendarProviderKind provider = RemoteCalendarProviderKind::google)
{
    return {.id = accountID,
            .provider = provider,
            .providerAccountIdentifier = u"1234"_s,
            .displayName = u"Work"_s,
            .oauthClientID = u"client"_s};
}

QString calendarString(const QString& lastField, const QString& account = accountText)
{
    return u"orvane.remote.v1:google:"_s + account + u":calendar:"_s + lastField;
}

TEST(RemoteIdentity, ExactFormOfEachKind)
{
    // "~~~???" is the base64 "fn5+Pz8/", so it shows both substitutions; "a" shows the padding removed.
    EXPECT_EQ(identity::calendarIdentifier(account(RemoteCalendarProviderKind::microsoft), u"~~~???"_s),
              u"orvane.remote.v1:microsoft:E621E1F8-C36C-495A-93FC-0C247A3E6E5F:calendar:fn5-Pz8_"_s);
    EXPECT_EQ(identity::sourceIdentifier(account(), u"a"_s),
              u"orvane.remote.v1:google:E621E1F8-C36C-495A-93FC-0C247A3E6E5F:source:YQ"_s);
    EXPECT_EQ(identity::seriesIdentifier(account(), u"ab"_s),
              u"external:orvane.remote.v1:google:E621E1F8-C36C-495A-93FC-0C247A3E6E5F:series:YWI"_s);
}

TEST(RemoteIdentity, AccountIdentifierIsUpperCaseWhateverItWasParsedFrom)
{
    auto lowerCase = account();
    lowerCase.id = QUuid::fromString(u"e621e1f8-c36c-495a-93fc-0c247a3e6e5f"_s);
    EXPECT_EQ(identity::calendarIdentifier(lowerCase, u"a"_s), calendarString(u"YQ"_s));
}

TEST(RemoteIdentity, ProviderIdentifiersSurviveEncodeAndDecode)
{
    const QString identifiers[] = {
        u"primary"_s,
        u"c_1a2b3c@group.calendar.google.com"_s,
        u"AAMkAGI2TG93AAA=:with/colons:and/slashes"_s,
        u"a"_s,
        u"ab"_s,
        u"abc"_s,
        u"+/=-_"_s,
        u"Büro – Café 日本語 📅"_s,
        // A leading byte order mark is content, not a marker to strip.
        u"\uFEFFcalendar"_s,
        u"line\nbreak\ttab"_s,
        QString(500, u'x'),
        u""_s,
    };
    for (const auto& identifier : identifiers) {
        SCOPED_TRACE(identifier.toStdString());
        const QString encoded = identity::calendarIdentifier(account(), identifier);
        EXPECT_TRUE(identity::isRemoteIdentifier(encoded));
        const QString lastField = encoded.section(u':', 4);
        EXPECT_FALSE(lastField.contains(u':') || lastField.contains(u'+') || lastField.contains(u'/') ||
                     lastField.contains(u'='))
            << lastField.toStdString();
        EXPECT_EQ(identity::decodeCalendarIdentifier(encoded),
                  (DecodedRemoteCalendarIdentifier{accountID, identifier}));
    }
}

TEST(RemoteIdentity, DecodesBothProvidersAndEitherUuidCase)
{
    EXPECT_EQ(identity::decodeCalendarIdentifier(
                  u"orvane.remote.v1:microsoft:e621e1f8-c36c-495a-93fc-0c247a3e6e5f:calendar:YWI"_s),
              (DecodedRemoteCalendarIdentifier{accountID, u"ab"_s}));
    // The rule only pads to a multiple of four, so a field that already carries its padding still decodes.
    EXPECT_EQ(identity::decodeCalendarIdentifier(calendarString(u"YQ=="_s)),
              (DecodedRemoteCalendarIdentifier{accountID, u"a"_s}));
}

TEST(RemoteIdentity, RejectsWhatIsNotACalendarIdentity)
{
    const struct {
        const char* why;
        QString value;
    } cases[] = {
        {"empty", u""_s},
        {"prefix only", u"orvane.remote.v1:"_s},
        {"4 pieces", u"orvane.remote.v1:google:"_s + accountText + u":calendar"_s},
        {"6 pieces", calendarString(u"YQ:YQ"_s)},
        {"series form", identity::seriesIdentifier(account(), u"a"_s)},
        {"wrong version", u"orvane.remote.v2:google:"_s + accountText + u":calendar:YQ"_s},
        {"prefix case", u"Orvane.remote.v1:google:"_s + accountText + u":calendar:YQ"_s},
        {"empty prefix", u":google:"_s + accountText + u":calendar:YQ"_s},
        {"unknown provider", u"orvane.remote.v1:outlook:"_s + accountText + u":calendar:YQ"_s},
        {"provider case", u"orvane.remote.v1:Google:"_s + accountText + u":calendar:YQ"_s},
        {"empty provider", u"orvane.remote.v1::"_s + accountText + u":calendar:YQ"_s},
        {"not a UUID", calendarString(u"YQ"_s, u"not-a-uuid"_s)},
        {"empty UUID", calendarString(u"YQ"_s, u""_s)},
        {"UUID in braces", calendarString(u"YQ"_s, u"{"_s + accountText + u"}"_s)},
        {"UUID without hyphens", calendarString(u"YQ"_s, u"E621E1F8C36C495A93FC0C247A3E6E5F"_s)},
        {"UUID with a non-hex digit", calendarString(u"YQ"_s, u"G621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s)},
        {"source kind", identity::sourceIdentifier(account(), u"a"_s)},
        {"kind case", u"orvane.remote.v1:google:"_s + accountText + u":Calendar:YQ"_s},
        {"empty kind", u"orvane.remote.v1:google:"_s + accountText + u"::YQ"_s},
        {"one character left over", calendarString(u"YQABC"_s)},
        {"single character", calendarString(u"Y"_s)},
        {"character outside the alphabet", calendarString(u"Y*"_s)},
        {"space", calendarString(u"Y Q"_s)},
        {"dot", calendarString(u"YQ.b"_s)},
        {"non-ASCII", calendarString(u"YQé"_s)},
        {"padding in the middle", calendarString(u"YQ=YQ"_s)},
        {"too much padding", calendarString(u"YQ==="_s)},
        {"invalid UTF-8 byte", calendarString(u"__4"_s)}, // ff fe
        {"truncated sequence", calendarString(u"ww"_s)},  // c3
        {"encoded surrogate", calendarString(u"7aCA"_s)}, // ed a0 80
        {"overlong encoding", calendarString(u"wK8"_s)},  // c0 af
        {"latin-1 text", calendarString(u"Q2Fm6Q"_s)},    // "Caf" e9
    };
    for (const auto& [why, value] : cases) {
        EXPECT_EQ(identity::decodeCalendarIdentifier(value), std::nullopt) << why << ": " << value.toStdString();
    }
}

TEST(RemoteIdentity, RecognisesTheVersionPrefix)
{
    const struct {
        QString value;
        bool remote;
    } cases[] = {
        {identity::calendarIdentifier(account(), u"a"_s), true},
        {u"orvane.remote.v1:"_s, true},
        {u"orvane.remote.v1"_s, false},
        {u"orvane.remote.v10:google"_s, false},
        {u"ORVANE.REMOTE.V1:google"_s, false},
        {identity::seriesIdentifier(account(), u"a"_s), false},
        {u"local-calendar-id"_s, false},
        {u""_s, false},
    };
    for (const auto& [value, remote] : cases) {
        EXPECT_EQ(identity::isRemoteIdentifier(value), remote) << value.toStdString();
    }
}

TEST(RemoteIdentity, TellsWhichAccountAnIdentityBelongsTo)
{
    auto other = account();
    other.id = QUuid::fromString(u"E621E1F8-C36C-495A-93FC-0C247A3E6E50"_s);
    const struct {
        QString value;
        bool belongs;
    } cases[] = {
        {identity::calendarIdentifier(account(), u"a"_s), true},
        {identity::sourceIdentifier(account(), u"a"_s), true},
        {identity::seriesIdentifier(account(), u"a"_s), true},
        {identity::calendarIdentifier(other, u"a"_s), false},
        {identity::calendarIdentifier(account(RemoteCalendarProviderKind::microsoft), u"a"_s), false},
        // The account must be a whole field, not the start of a longer one.
        {calendarString(u"YQ"_s, accountText.chopped(1)), false},
        {u"external:"_s + accountText, false},
        {u"local-calendar-id"_s, false},
    };
    for (const auto& [value, belongs] : cases) {
        EXPECT_EQ(identity::belongsToAccount(value, account()), belongs) << value.toStdString();
    }
}

TEST(RemoteAccountCoding, WritesEveryFieldUnderItsNameInOrder)
{
    auto full = account(RemoteCalendarProviderKind::microsoft);
    full.tenantIdentifier = u"tenant"_s;
    full.emailAddress = u"ann@example.com"_s;
    full.connectedAt = Date{785'000'000.5};
    const QByteArray expected =
        R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":"microsoft","providerAccountIdentifier":"1234",)"
        R"("tenantIdentifier":"tenant","displayName":"Work","emailAddress":"ann@example.com",)"
        R"("oauthClientID":"client","connectedAt":785000000.5})";
    EXPECT_EQ(json::serialize(toJson(full)), expected);
    EXPECT_EQ(json::decode<RemoteCalendarAccountMetadata>(expected), full);

    const QByteArray minimal = R"({"id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","provider":"google",)"
                               R"("providerAccountIdentifier":"1234","displayName":"Work","oauthClientID":"client",)"
                               R"("connectedAt":0})";
    EXPECT_EQ(json::serialize(toJson(account())), minimal);
    EXPECT_EQ(json::decode<RemoteCalendarAccountMetadata>(minimal), account());
}

} // namespace
