// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingPolicy.h"

#include "domain/ExclusionMatcher.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace orvane {
namespace {

constexpr double kStart = 700'000'000;
const QString kStandup = u"external:standup@example.com"_s;
const QString kWork = u"calendar-work"_s;
// The work calendar after it was recreated or re-synced under a new identifier.
const QString kResynced = u"calendar-work-2"_s;

CalendarFingerprint fingerprint(QString sourceTitle = u"me"_s, QString calendarTitle = u"Work"_s,
                                CalendarSourceKind kind = CalendarSourceKind::google)
{
    return {.sourceKind = kind, .sourceTitle = std::move(sourceTitle), .calendarTitle = std::move(calendarTitle)};
}

/// An identity described by how it differs from the standup meeting in the work calendar.
struct Identity {
    QString series = kStandup;
    QString calendar = kWork;
    QString source = u"account-1"_s;
    std::optional<CalendarFingerprint> fingerprint = orvane::fingerprint();
    bool unique = true;
    double start = kStart;
    double scheduled = kStart;

    MeetingIdentity make() const
    {
        return {.sourceIdentifier = source,
                .calendarIdentifier = calendar,
                .seriesIdentifier = series,
                .calendarFingerprint = fingerprint,
                .calendarFingerprintIsUnique = unique,
                .occurrenceStart = Date{start},
                .scheduledStart = Date{scheduled}};
    }
};

ExclusionRecord exclusion(const Identity& identity, ExclusionScope scope, uint tag = 0)
{
    ExclusionRecord record;
    record.id = QUuid(tag, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    record.identity = identity.make();
    record.scope = scope;
    return record;
}

template <class Case>
std::string caseName(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}

// ---- Eligibility -------------------------------------------------------------------------------------------------

/// A meeting and the settings it is judged under, as changes to a plain timed event with neither attendees nor link.
struct Scenario {
    bool allDay = false;
    bool cancelled = false;
    double length = 900;
    QString calendar = kWork;
    QString series = kStandup;
    bool attendees = false;
    bool link = false;
    EligibilityMode mode = EligibilityMode::allTimedEvents;
    std::optional<std::vector<QString>> selection;
};

struct EligibilityCase {
    const char* name;
    Scenario scenario;
    bool eligible;
    friend void PrintTo(const EligibilityCase& c, std::ostream* os) { *os << c.name; }
};

const std::vector<QString> kWorkAndHome{u"calendar-home"_s, kWork};
const auto kMeetingLike = EligibilityMode::meetingLike;

const EligibilityCase kEligibilityCases[] = {
    {"PlainTimedEvent", {}, true},
    {"AllDay", {.allDay = true}, false},
    {"Cancelled", {.cancelled = true}, false},
    {"ZeroLength", {.length = 0}, false},
    {"EndsBeforeStart", {.length = -60}, false},
    {"OneSecondLong", {.length = 1}, true},
    {"NoSelectionAnyCalendar", {.calendar = u"calendar-other"_s}, true},
    {"InSelection", {.selection = kWorkAndHome}, true},
    {"NotInSelection", {.calendar = u"calendar-other"_s, .selection = kWorkAndHome}, false},
    {"EmptySelectionLetsNothingPass", {.selection = std::vector<QString>{}}, false},
    {"SeriesExcluded", {.series = u"external:excluded"_s}, false},
    {"OtherOccurrenceExcluded", {.series = u"external:once"_s}, true},
    {"MeetingLikeWithoutAttendeesOrLink", {.mode = kMeetingLike}, false},
    {"MeetingLikeWithAttendees", {.attendees = true, .mode = kMeetingLike}, true},
    {"MeetingLikeWithLink", {.link = true, .mode = kMeetingLike}, true},
    {"MeetingLikeWithBoth", {.attendees = true, .link = true, .mode = kMeetingLike}, true},
    // Every earlier step still applies to a meeting-like event.
    {"MeetingLikeButAllDay", {.allDay = true, .attendees = true, .link = true, .mode = kMeetingLike}, false},
    {"MeetingLikeButEmpty", {.length = 0, .attendees = true, .mode = kMeetingLike}, false},
    {"MeetingLikeButNotSelected",
     {.calendar = u"calendar-other"_s, .attendees = true, .mode = kMeetingLike, .selection = kWorkAndHome},
     false},
    {"MeetingLikeButExcluded", {.series = u"external:excluded"_s, .link = true, .mode = kMeetingLike}, false},
};

class EligibilityTest : public testing::TestWithParam<EligibilityCase> {};

TEST_P(EligibilityTest, FollowsTheRules)
{
    const Scenario& scenario = GetParam().scenario;
    MeetingOccurrence meeting;
    meeting.identity = Identity{.series = scenario.series}.make();
    meeting.startDate = Date{kStart};
    meeting.endDate = Date{kStart + scenario.length};
    meeting.isAllDay = scenario.allDay;
    meeting.isCanceled = scenario.cancelled;
    meeting.hasAttendees = scenario.attendees;
    if (scenario.link) {
        meeting.meetingURL = QUrl(u"https://meet.google.com/abc-defg-hij"_s);
    }
    // The selection is keyed by the calendar the occurrence lists, not by its identity's calendar.
    meeting.calendar.identifier = scenario.calendar;
    NotifierSettings settings;
    settings.eligibilityMode = scenario.mode;
    if (scenario.selection) {
        settings.selectedCalendars.emplace();
        for (const auto& identifier : *scenario.selection) {
            settings.selectedCalendars->push_back({.calendarIdentifier = identifier, .fingerprint = std::nullopt});
        }
    }
    const std::vector records{
        exclusion({.series = u"external:excluded"_s}, ExclusionScope::series),
        exclusion({.series = u"external:once"_s, .start = kStart - 86'400}, ExclusionScope::occurrence),
    };

    EXPECT_EQ(MeetingPolicy{}.isEligible(meeting, settings, ExclusionMatcher(records)), GetParam().eligible);
    EXPECT_EQ(MeetingPolicy{}.isEligible(meeting, settings, records), GetParam().eligible);
}

INSTANTIATE_TEST_SUITE_P(MeetingPolicy, EligibilityTest, testing::ValuesIn(kEligibilityCases),
                         caseName<EligibilityCase>);

TEST(MeetingPolicyTest, OnlyDeclinedParticipationKeepsAMeetingQuiet)
{
    using enum MeetingParticipationStatus;
    const std::array<std::pair<MeetingParticipationStatus, bool>, 8> table{{
        {unknown, true},
        {pending, true},
        {accepted, true},
        {declined, false},
        {tentative, true},
        {delegated, true},
        {completed, true},
        {inProcess, true},
    }};
    static_assert(table.size() == allCases<MeetingParticipationStatus>().size());

    NotifierSettings settings;
    settings.eligibilityMode = EligibilityMode::meetingLike;
    for (const auto& [status, eligible] : table) {
        MeetingOccurrence meeting;
        meeting.identity = Identity{}.make();
        meeting.startDate = Date{kStart};
        meeting.endDate = Date{kStart + 1800};
        meeting.hasAttendees = true;
        meeting.participationStatus = status;
        EXPECT_EQ(MeetingPolicy{}.isEligible(meeting, settings, ExclusionMatcher{}), eligible)
            << rawValue(status).toStdString();
    }
}

// ---- Exclusion matching -------------------------------------------------------------------------------------------

struct MatchCase {
    const char* name;
    Identity recorded;
    Identity current;
    bool matches;
    ExclusionScope scope = ExclusionScope::series;
    friend void PrintTo(const MatchCase& c, std::ostream* os) { *os << c.name; }
};

constexpr auto kSeries = ExclusionScope::series;
constexpr auto kOccurrence = ExclusionScope::occurrence;
const double kNextWeek = kStart + 7 * 86'400;
const QString kLocalItem = u"local:item-42"_s;
const auto kBlankSource = fingerprint(u" \n\t"_s);
const auto kBlankTitle = fingerprint(u"me"_s, u"\r\n"_s);
const auto kEmptyTitles = fingerprint({}, {});
const auto kPadded = fingerprint(u" me"_s, u"Work\n"_s);
const auto kOtherKind = fingerprint(u"me"_s, u"Work"_s, CalendarSourceKind::calDAV);

const MatchCase kMatchCases[] = {
    {"SeriesSameOccurrence", {}, {}, true},
    {"OccurrenceSameOccurrence", {}, {}, true, kOccurrence},
    {"SeriesAfterEventMoved", {}, {.start = kNextWeek}, true},
    {"OccurrenceNotTheNextOne", {}, {.start = kNextWeek}, false, kOccurrence},
    // A rescheduled occurrence keeps its key; only the time actually scheduled changes.
    {"OccurrenceRescheduled", {}, {.scheduled = kStart + 3600}, true, kOccurrence},
    {"OtherSeries", {}, {.series = u"external:retro@example.com"_s}, false},
    {"SeriesComparedExactly", {}, {.series = u"external:Standup@example.com"_s}, false},
    {"LocalSeriesSameCalendar", {.series = kLocalItem}, {.series = kLocalItem}, true},
    // Same calendar identifier, no fingerprints: only the source identifiers decide.
    {"SourcesEqual", {.fingerprint = {}}, {.fingerprint = {}}, true},
    {"RecordedSourceEmpty", {.source = {}, .fingerprint = {}}, {.fingerprint = {}}, true},
    {"CurrentSourceEmpty", {.fingerprint = {}}, {.source = {}, .fingerprint = {}}, true},
    {"SourcesDiffer", {.fingerprint = {}}, {.source = u"account-2"_s, .fingerprint = {}}, false},
    {"CalendarDiffers", {.fingerprint = {}}, {.calendar = kResynced, .fingerprint = {}}, false},
};

// The calendar identifier changed (or the source identifiers disagree): the fingerprint recognises the calendar,
// unless any one of its conditions fails.
const MatchCase kFingerprintCases[] = {
    {"Recognises", {}, {.calendar = kResynced}, true},
    {"RecognisesOccurrence", {}, {.calendar = kResynced}, true, kOccurrence},
    {"RecognisesDespiteSourceChange", {}, {.source = u"account-2"_s}, true},
    {"WrongOccurrence", {}, {.calendar = kResynced, .start = kNextWeek}, false, kOccurrence},
    {"CannotBridgeSeries", {}, {.series = u"external:retro"_s, .calendar = kResynced}, false},
    {"NotForLocalSeries", {.series = kLocalItem}, {.series = kLocalItem, .calendar = kResynced}, false},
    {"PrefixIsCaseSensitive", {.series = u"External:x"_s}, {.series = u"External:x"_s, .calendar = kResynced}, false},
    {"RecordedMissing", {.fingerprint = {}}, {.calendar = kResynced}, false},
    {"CurrentMissing", {}, {.calendar = kResynced, .fingerprint = {}}, false},
    {"SourceTitleBlank", {.fingerprint = kBlankSource}, {.calendar = kResynced, .fingerprint = kBlankSource}, false},
    {"CalendarTitleBlank", {.fingerprint = kBlankTitle}, {.calendar = kResynced, .fingerprint = kBlankTitle}, false},
    {"TitlesEmpty", {.fingerprint = kEmptyTitles}, {.calendar = kResynced, .fingerprint = kEmptyTitles}, false},
    {"PaddedTitlesComplete", {.fingerprint = kPadded}, {.calendar = kResynced, .fingerprint = kPadded}, true},
    {"RecordedNotUnique", {.unique = false}, {.calendar = kResynced}, false},
    {"CurrentNotUnique", {}, {.calendar = kResynced, .unique = false}, false},
    {"KindDiffers", {}, {.calendar = kResynced, .fingerprint = kOtherKind}, false},
    {"SourceTitleDiffers", {}, {.calendar = kResynced, .fingerprint = fingerprint(u"you"_s)}, false},
    {"CalendarTitleDiffers", {}, {.calendar = kResynced, .fingerprint = fingerprint(u"me"_s, u"Home"_s)}, false},
    {"ComparedUntrimmed", {}, {.calendar = kResynced, .fingerprint = fingerprint(u"me"_s, u"Work "_s)}, false},
};

class ExclusionMatchTest : public testing::TestWithParam<MatchCase> {};

TEST_P(ExclusionMatchTest, FollowsTheRules)
{
    const std::vector records{exclusion(GetParam().recorded, GetParam().scope)};
    const auto current = GetParam().current.make();

    EXPECT_EQ(ExclusionMatcher::matches(records.front(), current), GetParam().matches);
    EXPECT_EQ(ExclusionMatcher(records).isExcluded(current), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(Exclusion, ExclusionMatchTest, testing::ValuesIn(kMatchCases), caseName<MatchCase>);
INSTANTIATE_TEST_SUITE_P(ExclusionByFingerprint, ExclusionMatchTest, testing::ValuesIn(kFingerprintCases),
                         caseName<MatchCase>);

TEST(ExclusionMatcherTest, FirstMatchingRecordInStoredOrderDecides)
{
    const Identity retro{.series = u"external:retro@example.com"_s};
    // Records of another series and non-matching records of the same series are interleaved, so an index by series
    // must keep each series' records in their stored order.
    const std::vector records{
        exclusion(retro, kSeries, 1),     exclusion({.start = kStart - 86'400}, kOccurrence, 2),
        exclusion(retro, kOccurrence, 3), exclusion({.calendar = kResynced}, kOccurrence, 4),
        exclusion({}, kSeries, 5),        exclusion({}, kOccurrence, 6),
    };
    const ExclusionMatcher matcher(records);
    const auto standup = Identity{}.make();

    EXPECT_EQ(ExclusionMatcher::firstMatch(records, standup), &records[3]);
    ASSERT_EQ(matcher.firstMatch(standup), &matcher.records()[3]);
    EXPECT_EQ(matcher.firstMatch(standup)->id, records[3].id);
    EXPECT_EQ(ExclusionMatcher().firstMatch(standup), nullptr);
}

// The index only saves work: on any mix of records it must pick the record the plain walk picks.
TEST(ExclusionMatcherTest, IndexAgreesWithPlainWalk)
{
    const std::array series{kStandup, u"external:retro"_s, kLocalItem, u"local:item-7"_s};
    const std::array calendars{kWork, kResynced, u"calendar-home"_s};
    const std::array sources{QString(), u"account-1"_s, u"account-2"_s};
    const std::array<std::optional<CalendarFingerprint>, 5> fingerprints{
        std::nullopt,
        fingerprint(),
        fingerprint(u"me"_s, u"Work "_s),
        fingerprint(u"me"_s, u"Work"_s, CalendarSourceKind::exchange),
        kBlankSource,
    };
    std::mt19937 random(20'240'611);
    const auto pick = [&](const auto& values) {
        return values[random() % values.size()];
    };
    const auto randomIdentity = [&] {
        return Identity{.series = pick(series),
                        .calendar = pick(calendars),
                        .source = pick(sources),
                        .fingerprint = pick(fingerprints),
                        .unique = random() % 4 != 0,
                        .start = kStart + double(random() % 3) * 3600};
    };

    std::vector<ExclusionRecord> records;
    for (uint tag = 0; tag < 40; ++tag) {
        records.push_back(exclusion(randomIdentity(), random() % 2 ? kSeries : kOccurrence, tag));
    }
    const ExclusionMatcher matcher(records);
    NotifierSettings settings;
    settings.eligibilityMode = EligibilityMode::meetingLike;

    int excluded = 0;
    for (int round = 0; round < 3000; ++round) {
        MeetingOccurrence meeting;
        meeting.identity = randomIdentity().make();
        meeting.startDate = Date{kStart};
        meeting.endDate = Date{kStart + 1800};
        meeting.hasAttendees = random() % 2 == 0;
        const auto* fromList = ExclusionMatcher::firstMatch(records, meeting.identity);
        const auto* fromIndex = matcher.firstMatch(meeting.identity);
        ASSERT_EQ(fromIndex ? fromIndex - matcher.records().data() : -1, fromList ? fromList - records.data() : -1)
            << "round " << round;
        ASSERT_EQ(MeetingPolicy{}.isEligible(meeting, settings, matcher),
                  MeetingPolicy{}.isEligible(meeting, settings, records))
            << "round " << round;
        excluded += fromList != nullptr;
    }
    // Both answers must be common, or the agreement above proves little.
    EXPECT_GT(excluded, 300);
    EXPECT_LT(excluded, 2700);
}

} // namespace
} // namespace orvane
