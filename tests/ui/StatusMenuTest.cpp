// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusMenu.h"

#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "ui/StatusMenuContent.h"

#include <QCoreApplication>
#include <QMenu>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using orvane::CalendarAuthorizationState;
using orvane::Date;
using orvane::MeetingOccurrence;
using orvane::StatusMenu;
using orvane::StatusMenuAction;
using orvane::StatusMenuContent;
using orvane::StatusMenuEntry;
using orvane::StatusMenuInput;
using Kind = StatusMenuEntry::Kind;

namespace {

Date utc(int day, int hour, int minute)
{
    return Date::fromDateTime(QDateTime(QDate(2024, 3, day), QTime(hour, minute), QTimeZone::utc()));
}

/// Tuesday 5 March 2024, 9:00 UTC.
const Date now = utc(5, 9, 0);

MeetingOccurrence standup()
{
    MeetingOccurrence meeting = fixtures::meeting(u"Standup"_s, utc(5, 14, 5).secondsSinceReferenceDate);
    meeting.meetingURL = QUrl(u"https://meet.google.com/abc-defg-hij"_s);
    return meeting;
}

MeetingOccurrence weeklyReview()
{
    MeetingOccurrence meeting = fixtures::meeting(u"Review"_s, utc(6, 14, 5).secondsSinceReferenceDate);
    meeting.isRecurring = true;
    return meeting;
}

StatusMenuInput healthy()
{
    return {.onboardingCompleted = true,
            .hasUsableCalendarSource = true,
            .authorizationState = CalendarAuthorizationState::fullAccess,
            .upcoming = {standup()},
            .now = now,
            .timeZone = QTimeZone::utc(),
            .locale = QLocale(QLocale::English, QLocale::UnitedStates)};
}

/// One menu line as the user meets it; `action` none means a disabled line.
struct Line {
    QString text;
    StatusMenuAction action = StatusMenuAction::none;
    QString symbol = {};
    friend bool operator==(const Line&, const Line&) = default;
};

void PrintTo(const Line& line, std::ostream* out)
{
    *out << '{' << line.text.toStdString() << ", action " << int(line.action) << ", " << line.symbol.toStdString()
         << '}';
}

/// The lines before the commands.
std::vector<Line> healthAndUpcoming(const std::vector<StatusMenuEntry>& entries)
{
    std::vector<Line> lines;
    for (const StatusMenuEntry& entry : entries) {
        if (entry.kind == Kind::separator) {
            break;
        }
        EXPECT_EQ(entry.enabled, entry.action != StatusMenuAction::none || entry.kind == Kind::meeting)
            << entry.text.toStdString();
        lines.push_back({entry.text, entry.action, entry.symbol});
    }
    return lines;
}

const Line upcomingHeader{u"UPCOMING"_s};
const Line standupLine{u"2:05 PM  Standup"_s, StatusMenuAction::none, u"video"_s};
const Line noEvents{u"No eligible events in the next 7 days"_s};

struct HealthCase {
    const char* name;
    std::function<void(StatusMenuInput&)> change;
    std::vector<Line> lines;
};

void PrintTo(const HealthCase& value, std::ostream* out)
{
    *out << value.name;
}

class StatusMenuHealthTest : public ::testing::TestWithParam<HealthCase> {};

TEST_P(StatusMenuHealthTest, showsTheHealthLineThatAppliesAndTheMeetingsOnlyWhereTheyBelong)
{
    StatusMenuInput input = healthy();
    GetParam().change(input);
    EXPECT_EQ(healthAndUpcoming(StatusMenuContent::build(input)), GetParam().lines);
}

const Line noSource{u"No calendar source is available"_s};
const Line calendarSettings{u"Calendar Settings…"_s, StatusMenuAction::openSettings};

INSTANTIATE_TEST_SUITE_P(
    StatusMenuContent, StatusMenuHealthTest,
    ::testing::Values(
        HealthCase{"healthy", [](StatusMenuInput&) {}, {upcomingHeader, standupLine}},
        HealthCase{"setupUnfinishedHidesEverythingElse",
                   [](StatusMenuInput& input) {
                       input.onboardingCompleted = false;
                       input.persistencePaused = true;
                       input.hasSourceHealthIssues = true;
                   },
                   {{u"Setup is not finished"_s, StatusMenuAction::none, u"calendar.badge.exclamationmark"_s},
                    {u"Finish Setup…"_s, StatusMenuAction::openOnboarding}}},
        HealthCase{"pausedHidesMeetings",
                   [](StatusMenuInput& input) {
                       input.persistencePaused = true;
                       input.hasUsableCalendarSource = false;
                       input.remoteAccountNeedsReconnection = true;
                   },
                   {{u"Alerts paused — stored data needs attention"_s, StatusMenuAction::none,
                     u"externaldrive.badge.exclamationmark"_s},
                    {u"Review Stored Data…"_s, StatusMenuAction::openSettings}}},
        HealthCase{"reconnectionBeforeAuthorization",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.remoteAccountNeedsReconnection = true;
                       input.authorizationState = CalendarAuthorizationState::unknown;
                   },
                   {{u"A calendar account needs reconnection"_s, StatusMenuAction::none,
                     u"person.crop.circle.badge.exclamationmark"_s},
                    {u"Review Calendar Accounts…"_s, StatusMenuAction::openSettings}}},
        HealthCase{"reconnectionIgnoredWhileASourceIsUsable",
                   [](StatusMenuInput& input) { input.remoteAccountNeedsReconnection = true; },
                   {upcomingHeader, standupLine}},
        HealthCase{"notDetermined",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.authorizationState = CalendarAuthorizationState::notDetermined;
                   },
                   {{u"Allow Calendar Access…"_s, StatusMenuAction::openOnboarding}}},
        HealthCase{"denied",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.authorizationState = CalendarAuthorizationState::denied;
                   },
                   {noSource, calendarSettings}},
        HealthCase{"restricted",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.authorizationState = CalendarAuthorizationState::restricted;
                   },
                   {noSource, calendarSettings}},
        HealthCase{"writeOnly",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.authorizationState = CalendarAuthorizationState::writeOnly;
                   },
                   {noSource, calendarSettings}},
        HealthCase{"grantedWithoutUsableSourceShowsEmptyMeetings",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.upcoming.clear();
                   },
                   {upcomingHeader, noEvents}},
        HealthCase{"unknown",
                   [](StatusMenuInput& input) {
                       input.hasUsableCalendarSource = false;
                       input.authorizationState = CalendarAuthorizationState::unknown;
                   },
                   {{u"Calendar status unavailable"_s}}},
        HealthCase{"syncFailuresAndIdentityIssuesBothShownAboveMeetings",
                   [](StatusMenuInput& input) {
                       input.hasSourceHealthIssues = true;
                       input.hasReconciliationIssues = true;
                   },
                   {{u"Some calendar sources could not sync"_s, StatusMenuAction::none,
                     u"arrow.triangle.2.circlepath.circle.fill"_s},
                    {u"Review Calendar Sources…"_s, StatusMenuAction::openCalendarSettings},
                    {u"Calendar data needs review"_s, StatusMenuAction::none, u"exclamationmark.triangle.fill"_s},
                    {u"Review Calendar Data…"_s, StatusMenuAction::openSettings},
                    upcomingHeader,
                    standupLine}},
        HealthCase{"connectedCalendarsOnly",
                   [](StatusMenuInput& input) {
                       input.authorizationState = CalendarAuthorizationState::denied;
                       input.usingConnectedCalendarsOnly = true;
                   },
                   {upcomingHeader, standupLine, {u"Using connected Google/Outlook calendars"_s}}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(StatusMenuContent, meetingItemsShowStartTimeTitleAndTheirActions)
{
    StatusMenuInput input = healthy();
    input.upcoming = {standup(), weeklyReview()};
    const std::vector<StatusMenuEntry> entries = StatusMenuContent::build(input);
    ASSERT_GE(entries.size(), 3U);

    const StatusMenuEntry& today = entries[1];
    EXPECT_EQ(today.kind, Kind::meeting);
    EXPECT_EQ(today.text, u"2:05 PM  Standup"_s);
    EXPECT_EQ(today.symbol, u"video"_s);
    ASSERT_EQ(today.submenu.size(), 2U);
    EXPECT_EQ((Line{today.submenu[0].text, today.submenu[0].action}), (Line{u"Join"_s, StatusMenuAction::join}));
    EXPECT_EQ((Line{today.submenu[1].text, today.submenu[1].action}),
              (Line{u"Exclude this meeting"_s, StatusMenuAction::excludeSeries}));
    EXPECT_EQ(today.submenu[1].meeting, standup());

    const StatusMenuEntry& tomorrow = entries[2];
    EXPECT_EQ(tomorrow.text, u"Wed 2:05 PM  Review"_s);
    EXPECT_EQ(tomorrow.symbol, u"calendar"_s);
    ASSERT_EQ(tomorrow.submenu.size(), 2U) << "no Join without a link";
    EXPECT_EQ((Line{tomorrow.submenu[0].text, tomorrow.submenu[0].action}),
              (Line{u"Exclude this occurrence"_s, StatusMenuAction::excludeOccurrence}));
    EXPECT_EQ((Line{tomorrow.submenu[1].text, tomorrow.submenu[1].action}),
              (Line{u"Exclude entire series"_s, StatusMenuAction::excludeSeries}));
    EXPECT_EQ(tomorrow.submenu[0].meeting, weeklyReview());
}

TEST(StatusMenuContent, startTimeIsTodayByTheLocalCalendarDay)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const QTimeZone berlin("Europe/Berlin");
    ASSERT_TRUE(berlin.isValid());
    struct Row {
        Date start;
        Date now;
        QTimeZone zone;
        QString text;
    };
    const Row rows[] = {
        {utc(5, 0, 5), utc(5, 0, 0), QTimeZone::utc(), u"12:05 AM"_s},
        {utc(5, 12, 0), utc(5, 23, 59), QTimeZone::utc(), u"12:00 PM"_s},
        {utc(11, 9, 30), now, QTimeZone::utc(), u"Mon 9:30 AM"_s},
        // 23:30 UTC on Tuesday is already Wednesday in Berlin, where "now" (21:00 UTC) is still Tuesday evening.
        {utc(5, 23, 30), utc(5, 21, 0), berlin, u"Wed 12:30 AM"_s},
        // 23:30 UTC on Monday is Tuesday in Berlin, the same day as "now".
        {utc(4, 23, 30), utc(5, 8, 0), berlin, u"12:30 AM"_s},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(StatusMenuContent::startTimeText(row.start, row.now, row.zone, english), row.text);
    }
}

TEST(StatusMenuContent, commandsFollowRefreshStateAndUpdateAddress)
{
    struct Row {
        bool refreshing;
        bool paused;
        bool updateURL;
        QString refreshText;
        bool refreshEnabled;
    };
    const Row rows[] = {
        {false, false, false, u"Refresh"_s, true},
        {true, false, true, u"Refreshing…"_s, false},
        {false, true, false, u"Refresh"_s, false},
    };
    for (const Row& row : rows) {
        StatusMenuInput input = healthy();
        input.isRefreshing = row.refreshing;
        input.persistencePaused = row.paused;
        input.hasUpdateURL = row.updateURL;
        const std::vector<StatusMenuEntry> entries = StatusMenuContent::build(input);
        const auto commands = std::find_if(entries.begin(), entries.end(),
                                           [](const StatusMenuEntry& entry) { return entry.kind == Kind::separator; });
        std::vector<Line> lines;
        for (auto entry = commands; entry != entries.end(); ++entry) {
            lines.push_back({entry->text, entry->action});
        }
        std::vector<Line> expected{{},
                                   {row.refreshText, StatusMenuAction::refresh},
                                   {u"Test Full-Screen Alert…"_s, StatusMenuAction::showTestAlert},
                                   {u"Settings…"_s, StatusMenuAction::openSettings}};
        if (row.updateURL) {
            expected.push_back({u"Check for Updates…"_s, StatusMenuAction::checkForUpdates});
        }
        expected.insert(expected.end(),
                        {{u"About…"_s, StatusMenuAction::openAbout}, {}, {u"Quit Orvane"_s, StatusMenuAction::quit}});
        EXPECT_EQ(lines, expected) << "refreshing " << row.refreshing << " paused " << row.paused;
        EXPECT_EQ(commands[1].enabled, row.refreshEnabled);
    }
}

TEST(StatusMenu, populatesAQMenuWhoseItemsReportTheirActionAndMeeting)
{
    StatusMenuInput input = healthy();
    input.upcoming = {standup(), weeklyReview()};
    std::vector<std::pair<StatusMenuAction, std::optional<MeetingOccurrence>>> performed;
    const StatusMenu::Perform perform = [&](StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting) {
        performed.emplace_back(action, meeting);
    };
    QMenu menu;
    // Twice: a rebuild must replace the previous items and submenus, not add to them.
    StatusMenu::populate(menu, StatusMenuContent::build(input), perform);
    StatusMenu::populate(menu, StatusMenuContent::build(input), perform);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    QStringList texts;
    for (const QAction* action : menu.actions()) {
        texts << (action->isSeparator() ? u"-"_s : action->text());
    }
    EXPECT_EQ(texts,
              (QStringList{u"UPCOMING"_s, u"2:05 PM  Standup"_s, u"Wed 2:05 PM  Review"_s, u"-"_s, u"Refresh"_s,
                           u"Test Full-Screen Alert…"_s, u"Settings…"_s, u"About…"_s, u"-"_s, u"Quit Orvane"_s}));
    EXPECT_EQ(menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly).size(), 2);
    const QList<QAction*> actions = menu.actions();
    EXPECT_FALSE(actions[0]->isEnabled());
    EXPECT_TRUE(actions[4]->isEnabled());
    EXPECT_EQ(actions[4]->shortcut(), QKeySequence(u"Ctrl+R"_s));
    EXPECT_EQ(actions[6]->shortcut(), QKeySequence(u"Ctrl+,"_s));
    EXPECT_EQ(actions[9]->shortcut(), QKeySequence(u"Ctrl+Q"_s));
    EXPECT_FALSE(actions[1]->icon().isNull());

    QMenu* review = actions[2]->menu();
    ASSERT_NE(review, nullptr);
    ASSERT_EQ(review->actions().size(), 2);
    review->actions()[0]->trigger();
    actions[4]->trigger();
    actions[0]->trigger(); // the disabled header does nothing
    ASSERT_EQ(performed.size(), 2U);
    EXPECT_EQ(performed[0].first, StatusMenuAction::excludeOccurrence);
    EXPECT_EQ(performed[0].second, weeklyReview());
    EXPECT_EQ(performed[1].first, StatusMenuAction::refresh);
    EXPECT_EQ(performed[1].second, std::nullopt);
}

TEST(StatusMenu, everySymbolHasAnIconWithoutAnIconTheme)
{
    QIcon::setThemeName(u"no-such-theme"_s);
    for (const QString& symbol :
         {u"calendar.badge.clock"_s, u"calendar.badge.exclamationmark"_s, u"externaldrive.badge.exclamationmark"_s,
          u"person.crop.circle.badge.exclamationmark"_s, u"arrow.triangle.2.circlepath.circle.fill"_s,
          u"exclamationmark.triangle.fill"_s, u"video"_s, u"calendar"_s}) {
        EXPECT_FALSE(StatusMenu::icon(symbol).pixmap(22).isNull()) << symbol.toStdString();
    }
}

} // namespace
