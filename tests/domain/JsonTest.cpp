// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/Json.h"

#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarSourceKind.h"
#include "domain/Date.h"
#include "domain/MeetingParticipationStatus.h"
#include "support/QtPrinters.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using namespace Qt::StringLiterals;
using namespace orvane;
using Kind = json::DecodingError::Kind;

namespace {

TEST(JsonWriting, KeepsMemberOrderAndWritesCompactText)
{
    const json::Value value = json::Object{
        {u"zeta"_s, 1},
        {u"alpha"_s, json::Array{true, false, nullptr}},
        {u"mid"_s, json::Object{{u"b"_s, u"x"_s}, {u"a"_s, 2.5}}},
    };
    EXPECT_EQ(json::serialize(value), R"({"zeta":1,"alpha":[true,false,null],"mid":{"b":"x","a":2.5}})");
}

TEST(JsonWriting, EscapesWhatJsonRequiresAndKeepsUnicode)
{
    const QString text = u"quote\" slash\\ line\n tab\t bell\u0007 caf\u00e9 \u2603 /"_s;
    const QByteArray written = json::serialize(text);
    EXPECT_EQ(written, QByteArray("\"quote\\\" slash\\\\ line\\n tab\\t bell\\u0007 caf\xc3\xa9 \xe2\x98\x83 /\""));
    EXPECT_EQ(json::Decoder(json::parse("[" + written + "]").toArray().at(0)).decode<QString>(), text);
}

TEST(JsonWriting, NumbersAreShortestAndReadBackExactly)
{
    struct Case {
        double value;
        const char* text;
    };
    const Case cases[] = {
        {0, "0"},
        {-0.0, "-0"},
        {7200, "7200"},
        {785'000'000, "785000000"},
        {0.1, "0.1"},
        {785000000.125, "785000000.125"},
        {-1.5, "-1.5"},
        {1e21, "1e+21"},
        {1.5e-9, "1.5e-09"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(json::serialize(value), QByteArray(text)) << value;
    }

    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> dates(-1e9, 2e9);
    for (int i = 0; i < 2000; ++i) {
        const double value = dates(random);
        const auto parsed = json::parse("[" + json::serialize(value) + "]").toArray().at(0);
        ASSERT_EQ(json::Decoder(parsed).decode<double>(), value);
    }
}

TEST(JsonWriting, NonFiniteNumbersCannotBeWritten)
{
    for (const double value : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity()}) {
        EXPECT_THROW(json::serialize(json::Object{{u"alertLeadTime"_s, value}}), json::EncodingError);
    }
}

struct DecodeFailure {
    const char* name;
    QByteArray document;
    Kind kind;
    QStringList path;
};

class JsonDecodeFailure : public ::testing::TestWithParam<DecodeFailure> {};

struct Probe {
    qint64 version;
    QUrl link;
    QUuid id;
    CalendarSourceKind kind;
    std::vector<bool> flags;
};

Probe fromJson(const json::Decoder& decoder, json::Tag<Probe>)
{
    return {decoder.decode<qint64>(u"version"), decoder.decode<QUrl>(u"link"), decoder.decode<QUuid>(u"id"),
            decoder.decode<CalendarSourceKind>(u"kind"), decoder.decode<std::vector<bool>>(u"flags")};
}

const QByteArray validProbe =
    R"({"version":2,"link":"https://zoom.us/j/1","id":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","kind":"calDAV","flags":[true]})";

QByteArray probeWith(const char* key, const char* replacement)
{
    auto document = json::parse(validProbe).toObject();
    if (replacement == nullptr) {
        document.remove(QString::fromLatin1(key));
    } else {
        document.insert(QString::fromLatin1(key), json::parse(QByteArray("[") + replacement + "]").toArray().at(0));
    }
    return QJsonDocument(document).toJson(QJsonDocument::Compact);
}

TEST_P(JsonDecodeFailure, FailsWithKindAndPath)
{
    try {
        (void)json::decode<Probe>(GetParam().document);
        FAIL() << "decoded " << GetParam().document.constData();
    } catch (const json::DecodingError& error) {
        EXPECT_EQ(error.kind(), GetParam().kind) << error.what();
        EXPECT_EQ(error.codingPath(), GetParam().path) << error.what();
        EXPECT_FALSE(error.description().isEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, JsonDecodeFailure,
    ::testing::Values(
        DecodeFailure{"notJson", "{\"version\":", Kind::dataCorrupted, {}},
        DecodeFailure{"topLevelArray", "[1]", Kind::typeMismatch, {}},
        DecodeFailure{"missingKey", probeWith("link", nullptr), Kind::keyNotFound, {u"link"_s}},
        DecodeFailure{"nullRequired", probeWith("link", "null"), Kind::valueNotFound, {u"link"_s}},
        DecodeFailure{"stringForNumber", probeWith("version", "\"2\""), Kind::typeMismatch, {u"version"_s}},
        DecodeFailure{"fraction", probeWith("version", "2.5"), Kind::dataCorrupted, {u"version"_s}},
        DecodeFailure{"beyondInt64", probeWith("version", "1e19"), Kind::dataCorrupted, {u"version"_s}},
        DecodeFailure{"relativeURL", probeWith("link", "\"/j/1\""), Kind::dataCorrupted, {u"link"_s}},
        DecodeFailure{"emptyURL", probeWith("link", "\"\""), Kind::dataCorrupted, {u"link"_s}},
        DecodeFailure{"badUUID", probeWith("id", "\"E621E1F8-C36C-495A-93FC\""), Kind::dataCorrupted, {u"id"_s}},
        DecodeFailure{"bracedUUID",
                      probeWith("id", "\"{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}\""),
                      Kind::dataCorrupted,
                      {u"id"_s}},
        DecodeFailure{"unknownCase", probeWith("kind", "\"CalDAV\""), Kind::dataCorrupted, {u"kind"_s}},
        DecodeFailure{"numberForBool", probeWith("flags", "[1]"), Kind::typeMismatch, {u"flags"_s, u"Index 0"_s}},
        DecodeFailure{
            "nullElement", probeWith("flags", "[true,null]"), Kind::valueNotFound, {u"flags"_s, u"Index 1"_s}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(JsonDecoding, ReadsValidValues)
{
    const auto probe = json::decode<Probe>(probeWith("version", "2.0"));
    EXPECT_EQ(probe.version, 2);
    EXPECT_EQ(probe.link, QUrl(u"https://zoom.us/j/1"_s));
    EXPECT_EQ(json::serialize(json::toJson(probe.id)), QByteArray("\"E621E1F8-C36C-495A-93FC-0C247A3E6E5F\""));
    EXPECT_EQ(probe.kind, CalendarSourceKind::calDAV);
    EXPECT_EQ(json::decode<Probe>(probeWith("version", "-9223372036854775808")).version,
              std::numeric_limits<qint64>::min());
    EXPECT_EQ(json::decode<Probe>(probeWith("id", "\"e621e1f8-c36c-495a-93fc-0c247a3e6e5f\"")).id, probe.id);
}

template <class E>
void expectRawValues(std::initializer_list<const char16_t*> expected)
{
    const auto cases = allCases<E>();
    ASSERT_EQ(cases.size(), expected.size());
    auto raw = expected.begin();
    for (const E value : cases) {
        const QString text = QString::fromUtf16(*raw++);
        EXPECT_EQ(rawValue(value), text);
        EXPECT_EQ(fromRawValue<E>(text), value);
        EXPECT_EQ(fromRawValue<E>(text.toUpper()), std::nullopt);
    }
    EXPECT_EQ(fromRawValue<E>(u""), std::nullopt);
}

TEST(RawValues, EveryCaseConvertsBothWaysInDeclarationOrder)
{
    expectRawValues<CalendarSourceKind>({u"local", u"exchange", u"calDAV", u"google", u"microsoft", u"mobileMe",
                                         u"subscribed", u"birthdays", u"unknown"});
    expectRawValues<MeetingParticipationStatus>(
        {u"unknown", u"pending", u"accepted", u"declined", u"tentative", u"delegated", u"completed", u"inProcess"});
    expectRawValues<CalendarAuthorizationState>(
        {u"notDetermined", u"denied", u"restricted", u"writeOnly", u"fullAccess", u"unknown"});
}

TEST(Date, ConvertsAtTheEdges)
{
    const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
    EXPECT_EQ(Date::fromDateTime(reference), Date{0});
    EXPECT_EQ(Date::fromDateTime(reference.addSecs(90)).secondsSinceReferenceDate, 90);
    EXPECT_EQ(Date{-86400}.toDateTime(), reference.addDays(-1));
    EXPECT_EQ(Date{785000000.5}.toDateTime().toMSecsSinceEpoch(), qint64(Date{785000000.5}.unixTime() * 1000));
    EXPECT_EQ(hash(Date{0.0}), hash(Date{-0.0}));
}

} // namespace
