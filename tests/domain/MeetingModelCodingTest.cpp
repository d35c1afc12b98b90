// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/CalendarGroup.h"
#include "domain/ExclusionRecord.h"
#include "domain/MeetingOccurrence.h"
#include "domain/NotifierSettings.h"
#include "support/QtPrinters.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <unordered_set>

using namespace Qt::StringLiterals;
using namespace orvane;
using Kind = json::DecodingError::Kind;

namespace {

CalendarDescriptor workCalendar()
{
    return {.identifier = u"cal-1"_s,
            .title = u"Work"_s,
            .sourceIdentifier = u"src-1"_s,
            .sourceTitle = u"ada@example.com"_s,
            .sourceKind = CalendarSourceKind::google,
            .colorHex = u"#1A73E8"_s,
            .isSubscribed = false,
            .allowsContentModifications = true};
}

MeetingOccurrence standup()
{
    const Date start{785'000'000};
    return {.identity = {.sourceIdentifier = u"src-1"_s,
                         .calendarIdentifier = u"cal-1"_s,
                         .seriesIdentifier = u"external:abc@google.com"_s,
                         .calendarFingerprint =
                             CalendarFingerprint{CalendarSourceKind::google, u"ada@example.com"_s, u"Work"_s},
                         .calendarFingerprintIsUnique = true,
                         .occurrenceStart = start,
                         .scheduledStart = start + 900},
            .title = u"Stand-up"_s,
            .startDate = start + 900,
            .endDate = start + 1800,
            .isAllDay = false,
            .isCanceled = false,
            .participationStatus = MeetingParticipationStatus::declined,
            .hasAttendees = true,
            .location = u"Room 4"_s,
            .isRecurring = true,
            .calendar = workCalendar(),
            .meetingURL = QUrl(u"https://meet.google.com/abc-defg-hij"_s)};
}

QByteArray encoded(const MeetingOccurrence& occurrence)
{
    return json::serialize(toJson(occurrence));
}

/// `document` with `key` removed (or replaced by `replacement`, a JSON text) at the member path `path`.
QByteArray edited(const QByteArray& document, const QStringList& path, const QString& key,
                  const char* replacement = nullptr)
{
    std::function<QJsonObject(QJsonObject, qsizetype)> edit = [&](QJsonObject object, qsizetype depth) {
        if (depth < path.size()) {
            object[path[depth]] = edit(object[path[depth]].toObject(), depth + 1);
        } else if (replacement == nullptr) {
            object.remove(key);
        } else {
            object[key] = json::parse(QByteArray("[") + replacement + "]").toArray().at(0);
        }
        return object;
    };
    return QJsonDocument(edit(json::parse(document).toObject(), 0)).toJson(QJsonDocument::Compact);
}

TEST(MeetingOccurrenceCoding, WritesEveryKeyInDeclarationOrderWithTheDeclinedFlag)
{
    EXPECT_EQ(
        encoded(standup()),
        QByteArray(R"({"identity":{"sourceIdentifier":"src-1","calendarIdentifier":"cal-1",)"
                   R"("seriesIdentifier":"external:abc@google.com","calendarFingerprint":{"sourceKind":"google",)"
                   R"("sourceTitle":"ada@example.com","calendarTitle":"Work"},"calendarFingerprintIsUnique":true,)"
                   R"("occurrenceStart":785000000,"scheduledStart":785000900},"title":"Stand-up",)"
                   R"("startDate":785000900,"endDate":785001800,"isAllDay":false,"isCanceled":false,)"
                   R"("participationStatus":"declined","isDeclined":true,"hasAttendees":true,)"
                   R"("location":"Room 4","isRecurring":true,"calendar":{"identifier":"cal-1","title":"Work",)"
                   R"("sourceIdentifier":"src-1","sourceTitle":"ada@example.com","sourceKind":"google",)"
                   R"("colorHex":"#1A73E8","isSubscribed":false,"allowsContentModifications":true},)"
                   R"("meetingURL":"https:\/\/meet.google.com\/abc-defg-hij"})")
            .replace("\\/", "/"));
}

TEST(MeetingOccurrenceCoding, LeavesOutAbsentOptionals)
{
    auto occurrence = standup();
    occurrence.location.reset();
    occurrence.meetingURL.reset();
    occurrence.calendar.colorHex.reset();
    occurrence.identity.calendarFingerprint.reset();
    occurrence.participationStatus = MeetingParticipationStatus::tentative;
    const auto object = json::parse(encoded(occurrence)).toObject();
    EXPECT_FALSE(object.contains(u"location"_s));
    EXPECT_FALSE(object.contains(u"meetingURL"_s));
    EXPECT_FALSE(object[u"calendar"_s].toObject().contains(u"colorHex"_s));
    EXPECT_FALSE(object[u"identity"_s].toObject().contains(u"calendarFingerprint"_s));
    EXPECT_EQ(object[u"isDeclined"_s], QJsonValue(false));
}

TEST(MeetingOccurrenceCoding, RoundTripsAndHashesConsistently)
{
    auto bare = standup();
    bare.location.reset();
    bare.meetingURL.reset();
    bare.identity.calendarFingerprint.reset();
    for (const auto& original : {standup(), bare}) {
        const auto decoded = json::decode<MeetingOccurrence>(encoded(original));
        EXPECT_EQ(decoded, original);
        EXPECT_EQ(hash(decoded), hash(original));
    }
    std::unordered_set<MeetingOccurrence> set{standup(), bare, standup()};
    EXPECT_EQ(set.size(), 2U);
}

struct LegacyOccurrence {
    const char* name;
    std::vector<std::pair<QString, const char*>> edits; // key and replacement; null removes the key
    MeetingParticipationStatus status;
    bool isRecurring;
};

class MeetingOccurrenceLegacy : public ::testing::TestWithParam<LegacyOccurrence> {};

TEST_P(MeetingOccurrenceLegacy, ReadsOlderRecords)
{
    QByteArray document = encoded(standup());
    for (const auto& [key, replacement] : GetParam().edits) {
        document = edited(document, {}, key, replacement);
    }
    const auto occurrence = json::decode<MeetingOccurrence>(document);
    EXPECT_EQ(occurrence.participationStatus, GetParam().status);
    EXPECT_EQ(occurrence.isRecurring, GetParam().isRecurring);
}

INSTANTIATE_TEST_SUITE_P(
    Table, MeetingOccurrenceLegacy,
    ::testing::Values(
        LegacyOccurrence{
            "declinedFlagOnly", {{u"participationStatus"_s, nullptr}}, MeetingParticipationStatus::declined, true},
        LegacyOccurrence{"neitherKey",
                         {{u"participationStatus"_s, nullptr}, {u"isDeclined"_s, nullptr}},
                         MeetingParticipationStatus::unknown,
                         true},
        LegacyOccurrence{"flagFalse",
                         {{u"participationStatus"_s, nullptr}, {u"isDeclined"_s, "false"}},
                         MeetingParticipationStatus::unknown,
                         true},
        LegacyOccurrence{"statusWinsOverFlag",
                         {{u"participationStatus"_s, "\"accepted\""}, {u"isDeclined"_s, "true"}},
                         MeetingParticipationStatus::accepted,
                         true},
        LegacyOccurrence{"noRecurrenceKey", {{u"isRecurring"_s, nullptr}}, MeetingParticipationStatus::declined, false},
        LegacyOccurrence{"nullOptionals",
                         {{u"location"_s, "null"}, {u"meetingURL"_s, "null"}},
                         MeetingParticipationStatus::declined,
                         true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(MeetingIdentityCoding, FillsKeysOlderRecordsLack)
{
    const QByteArray document = json::serialize(toJson(standup().identity));
    auto identity = json::decode<MeetingIdentity>(edited(document, {}, u"scheduledStart"_s));
    EXPECT_EQ(identity.scheduledStart, identity.occurrenceStart);
    identity = json::decode<MeetingIdentity>(edited(document, {}, u"sourceIdentifier"_s));
    EXPECT_EQ(identity.sourceIdentifier, QString());
    identity = json::decode<MeetingIdentity>(edited(document, {}, u"calendarFingerprintIsUnique"_s));
    EXPECT_FALSE(identity.calendarFingerprintIsUnique);
    identity = json::decode<MeetingIdentity>(edited(document, {}, u"calendarFingerprint"_s));
    EXPECT_EQ(identity.calendarFingerprint, std::nullopt);
}

struct MissingKey {
    QStringList path;
    QString key;
};

class MeetingOccurrenceRequiredKey : public ::testing::TestWithParam<MissingKey> {};

TEST_P(MeetingOccurrenceRequiredKey, MissingKeyFailsWithItsPath)
{
    const auto& [path, key] = GetParam();
    try {
        (void)json::decode<MeetingOccurrence>(edited(encoded(standup()), path, key));
        FAIL() << "decoded without " << key.toStdString();
    } catch (const json::DecodingError& error) {
        EXPECT_EQ(error.kind(), Kind::keyNotFound);
        EXPECT_EQ(error.codingPath(), path + QStringList{key});
    }
}

INSTANTIATE_TEST_SUITE_P(Table, MeetingOccurrenceRequiredKey,
                         ::testing::Values(MissingKey{{}, u"identity"_s}, MissingKey{{}, u"title"_s},
                                           MissingKey{{}, u"startDate"_s}, MissingKey{{}, u"endDate"_s},
                                           MissingKey{{}, u"isAllDay"_s}, MissingKey{{}, u"isCanceled"_s},
                                           MissingKey{{}, u"hasAttendees"_s}, MissingKey{{}, u"calendar"_s},
                                           MissingKey{{u"identity"_s}, u"calendarIdentifier"_s},
                                           MissingKey{{u"identity"_s}, u"seriesIdentifier"_s},
                                           MissingKey{{u"identity"_s}, u"occurrenceStart"_s},
                                           MissingKey{{u"identity"_s, u"calendarFingerprint"_s}, u"calendarTitle"_s},
                                           MissingKey{{u"calendar"_s}, u"identifier"_s},
                                           MissingKey{{u"calendar"_s}, u"sourceKind"_s},
                                           MissingKey{{u"calendar"_s}, u"allowsContentModifications"_s}));

TEST(CalendarFingerprint, IsCompleteOnlyWithBothTitlesAfterTrimming)
{
    struct Case {
        QString sourceTitle;
        QString calendarTitle;
        bool complete;
    };
    const Case cases[] = {
        {u"iCloud"_s, u"Work"_s, true},         {u""_s, u"Work"_s, false},
        {u"iCloud"_s, u" \n\t"_s, false},       {u"\n"_s, u"Work"_s, false},
        {u" iCloud "_s, u"\u00a0Work"_s, true},
    };
    for (const auto& [sourceTitle, calendarTitle, complete] : cases) {
        EXPECT_EQ((CalendarFingerprint{CalendarSourceKind::calDAV, sourceTitle, calendarTitle}.isComplete()), complete)
            << sourceTitle.toStdString() << "/" << calendarTitle.toStdString();
    }
}

TEST(CalendarGroupCoding, RoundTripsWithCalendarsInOrder)
{
    auto second = workCalendar();
    second.identifier = u"cal-2"_s;
    second.colorHex.reset();
    const CalendarGroup group{u"src-1"_s, u"ada@example.com"_s, CalendarSourceKind::google, {second, workCalendar()}};
    const auto decoded = json::decode<CalendarGroup>(json::serialize(toJson(group)));
    EXPECT_EQ(decoded, group);
    EXPECT_EQ(hash(decoded), hash(group));
}

TEST(ExclusionRecordCoding, RoundTripsWithUpperCaseIdentifier)
{
    const ExclusionRecord record{.id = QUuid(u"6f1c2d3e-4b5a-4c6d-8e9f-0a1b2c3d4e5f"_s),
                                 .identity = standup().identity,
                                 .scope = ExclusionScope::series,
                                 .createdAt = Date{784'999'000.25},
                                 .eventTitle = u"Stand-up"_s,
                                 .calendarTitle = std::nullopt};
    const QByteArray bytes = json::serialize(toJson(record));
    EXPECT_TRUE(bytes.startsWith(R"({"id":"6F1C2D3E-4B5A-4C6D-8E9F-0A1B2C3D4E5F","identity":{)"));
    EXPECT_FALSE(json::parse(bytes).toObject().contains(u"calendarTitle"_s));
    EXPECT_EQ(json::decode<ExclusionRecord>(bytes), record);
    EXPECT_THROW((void)json::decode<ExclusionRecord>(edited(bytes, {}, u"scope"_s, "\"week\"")), json::DecodingError);
}

TEST(NotifierSettingsCoding, FirstVersionSelectionBecomesSortedRecordsWithoutFingerprints)
{
    const auto settings = json::decode<NotifierSettings>(
        R"({"alertLeadTime":60,"enabledCalendarIdentifiers":["b","a","b"],"eligibilityMode":"meetingLike",)"
        R"("launchAtLogin":true,"showsOnAllDisplays":false})");
    ASSERT_TRUE(settings.selectedCalendars);
    EXPECT_EQ(*settings.selectedCalendars,
              (std::vector<CalendarSelectionRecord>{{u"a"_s, std::nullopt}, {u"b"_s, std::nullopt}}));
    const QByteArray rewritten = json::serialize(toJson(settings));
    EXPECT_EQ(rewritten, QByteArray(R"({"alertLeadTime":60,"selectedCalendars":[{"calendarIdentifier":"a"},)"
                                    R"({"calendarIdentifier":"b"}],"eligibilityMode":"meetingLike",)"
                                    R"("launchAtLogin":true,"showsOnAllDisplays":false})"));
}

TEST(NotifierSettingsCoding, SelectionKeyWinsAndNullMeansNoSelection)
{
    const auto settings = json::decode<NotifierSettings>(
        R"({"alertLeadTime":0,"selectedCalendars":null,"enabledCalendarIdentifiers":["a"],)"
        R"("eligibilityMode":"allTimedEvents","launchAtLogin":false,"showsOnAllDisplays":true})");
    EXPECT_EQ(settings.selectedCalendars, std::nullopt);
    EXPECT_EQ(json::decode<NotifierSettings>(json::serialize(toJson(NotifierSettings{}))), NotifierSettings{});
}

TEST(NotifierSettingsCoding, LeadTimeOutsideZeroToTwoHoursFailsTheWholeValue)
{
    const auto withLeadTime = [](const char* leadTime) {
        return QByteArray(R"({"alertLeadTime":)") + leadTime +
               R"(,"eligibilityMode":"allTimedEvents","launchAtLogin":false,"showsOnAllDisplays":false})";
    };
    EXPECT_EQ(json::decode<NotifierSettings>(withLeadTime("7200")).alertLeadTime, 7200);
    EXPECT_EQ(json::decode<NotifierSettings>(withLeadTime("0")).alertLeadTime, 0);
    // JSON has no infinity; an overflowing literal never gets as far as the range check.
    EXPECT_THROW((void)json::decode<NotifierSettings>(withLeadTime("1e999")), json::DecodingError);
    for (const char* invalid : {"7200.5", "-1", "-0.001", "1e308"}) {
        try {
            (void)json::decode<NotifierSettings>(withLeadTime(invalid));
            FAIL() << invalid;
        } catch (const json::DecodingError& error) {
            EXPECT_EQ(error.kind(), Kind::dataCorrupted) << invalid;
            EXPECT_EQ(error.codingPath(), QStringList{u"alertLeadTime"_s});
            EXPECT_EQ(error.debugDescription(), u"Alert lead time must be between 0 and 120 minutes."_s);
        }
    }
}

} // namespace
