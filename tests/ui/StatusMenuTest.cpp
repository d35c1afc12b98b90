// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusMenu.h"

#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "ui/StatusMenuContent.h"
#include "ui/StatusMenuViewModel.h"

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
using Auth = CalendarAuthorizationState;

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

/// How the menu's health section differs from a healthy, set-up app with the standup coming.
struct Health {
    bool onboarded = true;
    bool paused = false;
    bool lockHeld = false;
    bool unrecorded = false;
    bool usable = true;
    bool reconnect = false;
    Auth auth = Auth::fullAccess;
    bool syncIssues = false;
    bool dataIssues = false;
    bool connectedOnly = false;
    bool noMeetings = false;
};

StatusMenuInput inputFor(const Health& health)
{
    return {.onboardingCompleted = health.onboarded,
            .persistencePaused = health.paused,
            .alertsHeldForLock = health.lockHeld,
            .recordingFailed = health.unrecorded,
            .hasUsableCalendarSource = health.usable,
            .remoteAccountNeedsReconnection = health.reconnect,
            .authorizationState = health.auth,
            .hasSourceHealthIssues = health.syncIssues,
            .hasReconciliationIssues = health.dataIssues,
            .usingConnectedCalendarsOnly = health.connectedOnly,
            .upcoming = health.noMeetings ? std::vector<MeetingOccurrence>{} : std::vector{standup()},
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

std::vector<Line> linesOf(auto first, auto last)
{
    std::vector<Line> lines;
    for (; first != last; ++first) {
        lines.push_back({first->text, first->action, first->symbol});
    }
    return lines;
}

const Line upcomingHeader{u"UPCOMING"_s};
const Line standupLine{u"2:05 PM  Standup"_s, StatusMenuAction::none, u"video"_s};
const Line noSource{u"No calendar source is available"_s};
const Line calendarSettings{u"Calendar Settings…"_s, StatusMenuAction::openSettings};

TEST(StatusMenuContent, showsTheHealthLineThatAppliesAndTheMeetingsOnlyWhereTheyBelong)
{
    const struct {
        const char* name;
        Health health;
        std::vector<Line> lines;
    } cases[] = {
        {"healthy", {}, {upcomingHeader, standupLine}},
        {"setup unfinished hides everything else",
         {.onboarded = false, .paused = true, .syncIssues = true},
         {{u"Setup is not finished"_s, StatusMenuAction::none, u"calendar.badge.exclamationmark"_s},
          {u"Finish Setup…"_s, StatusMenuAction::openOnboarding}}},
        {"paused hides meetings",
         {.paused = true, .usable = false, .reconnect = true},
         {{u"Alerts paused — stored data needs attention"_s, StatusMenuAction::none,
           u"externaldrive.badge.exclamationmark"_s},
          {u"Review Stored Data…"_s, StatusMenuAction::openSettings}}},
        {"reconnection before authorization",
         {.usable = false, .reconnect = true, .auth = Auth::unknown},
         {{u"A calendar account needs reconnection"_s, StatusMenuAction::none,
           u"person.crop.circle.badge.exclamationmark"_s},
          {u"Review Calendar Accounts…"_s, StatusMenuAction::openSettings}}},
        {"reconnection ignored while a source is usable", {.reconnect = true}, {upcomingHeader, standupLine}},
        {"alerts held for a lock and unrecorded reminders are said above the rest",
         {.lockHeld = true, .unrecorded = true, .usable = false, .auth = Auth::denied},
         {{u"Alerts wait while the screen is locked"_s, StatusMenuAction::none, u"lock.fill"_s},
          {u"Reminders cannot be recorded"_s, StatusMenuAction::none, u"externaldrive.badge.exclamationmark"_s},
          {u"Review in Settings…"_s, StatusMenuAction::openSettings},
          noSource,
          calendarSettings}},
        {"not determined",
         {.usable = false, .auth = Auth::notDetermined},
         {{u"Allow Calendar Access…"_s, StatusMenuAction::openOnboarding}}},
        {"denied", {.usable = false, .auth = Auth::denied}, {noSource, calendarSettings}},
        {"restricted", {.usable = false, .auth = Auth::restricted}, {noSource, calendarSettings}},
        {"write only", {.usable = false, .auth = Auth::writeOnly}, {noSource, calendarSettings}},
        {"unknown", {.usable = false, .auth = Auth::unknown}, {{u"Calendar status unavailable"_s}}},
        {"granted without usable source shows empty meetings",
         {.usable = false, .noMeetings = true},
         {upcomingHeader, {u"No eligible events in the next 7 days"_s}}},
        {"sync failures and identity issues both shown above meetings",
         {.syncIssues = true, .dataIssues = true},
         {{u"Some calendar sources could not sync"_s, StatusMenuAction::none,
           u"arrow.triangle.2.circlepath.circle.fill"_s},
          {u"Review Calendar Sources…"_s, StatusMenuAction::openCalendarSettings},
          {u"Calendar data needs review"_s, StatusMenuAction::none, u"exclamationmark.triangle.fill"_s},
          {u"Review Calendar Data…"_s, StatusMenuAction::openSettings},
          upcomingHeader,
          standupLine}},
        {"connected calendars only",
         {.auth = Auth::denied, .connectedOnly = true},
         {upcomingHeader, standupLine, {u"Using connected Google/Outlook calendars"_s}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto entries = StatusMenuContent::build(inputFor(c.health));
        const auto commands = std::find_if(entries.begin(), entries.end(),
                                           [](const StatusMenuEntry& entry) { return entry.kind == Kind::separator; });
        EXPECT_EQ(linesOf(entries.begin(), commands), c.lines);
        for (auto entry = entries.begin(); entry != commands; ++entry) {
            // Only lines that do something (or open a meeting's actions) are enabled.
            EXPECT_EQ(entry->enabled, entry->action != StatusMenuAction::none || entry->kind == Kind::meeting);
        }
    }
}

TEST(StatusMenuContent, startTimeIsTodayByTheLocalCalendarDay)
{
    const QLocale english(QLocale::English, QLocale::UnitedStates);
    const QTimeZone berlin("Europe/Berlin");
    ASSERT_TRUE(berlin.isValid());
    const struct {
        Date start;
        Date now;
        QTimeZone zone;
        QString text;
    } rows[] = {
        {utc(5, 0, 5), utc(5, 0, 0), QTimeZone::utc(), u"12:05 AM"_s},
        {utc(5, 12, 0), utc(5, 23, 59), QTimeZone::utc(), u"12:00 PM"_s},
        {utc(11, 9, 30), now, QTimeZone::utc(), u"Mon 9:30 AM"_s},
        // Already Wednesday in Berlin, where "now" (21:00 UTC) is still Tuesday evening.
        {utc(5, 23, 30), utc(5, 21, 0), berlin, u"Wed 12:30 AM"_s},
        // Monday in UTC but Tuesday in Berlin, the same day as "now".
        {utc(4, 23, 30), utc(5, 8, 0), berlin, u"12:30 AM"_s},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(StatusMenuContent::startTimeText(row.start, row.now, row.zone, english), row.text);
    }
}

TEST(StatusMenuContent, commandsFollowRefreshStateAndUpdateAddress)
{
    const struct {
        bool refreshing;
        bool paused;
        bool updateURL;
        QString refreshText;
        bool refreshEnabled;
    } rows[] = {
        {false, false, false, u"Refresh"_s, true},
        {true, false, true, u"Refreshing…"_s, false},
        {false, true, false, u"Refresh"_s, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.refreshText.toStdString() + (row.paused ? " paused" : ""));
        StatusMenuInput input = inputFor({.paused = row.paused});
        input.isRefreshing = row.refreshing;
        input.hasUpdateURL = row.updateURL;
        const std::vector<StatusMenuEntry> entries = StatusMenuContent::build(input);
        const auto commands = std::find_if(entries.begin(), entries.end(),
                                           [](const StatusMenuEntry& entry) { return entry.kind == Kind::separator; });
        std::vector<std::pair<QString, StatusMenuAction>> lines;
        for (auto entry = commands; entry != entries.end(); ++entry) {
            lines.emplace_back(entry->text, entry->action);
        }
        std::vector<std::pair<QString, StatusMenuAction>> expected{
            {},
            {row.refreshText, StatusMenuAction::refresh},
            {u"Test Full-Screen Alert…"_s, StatusMenuAction::showTestAlert},
            {u"Settings…"_s, StatusMenuAction::openSettings}};
        if (row.updateURL) {
            expected.emplace_back(u"Check for Updates…"_s, StatusMenuAction::checkForUpdates);
        }
        expected.insert(expected.end(),
                        {{u"About…"_s, StatusMenuAction::openAbout}, {}, {u"Quit Orvane"_s, StatusMenuAction::quit}});
        EXPECT_EQ(lines, expected);
        EXPECT_EQ(commands[1].enabled, row.refreshEnabled);
    }
}

TEST(StatusMenu, meetingsCarryTheirActionsIntoAQMenuThatReportsWhatWasChosen)
{
    StatusMenuInput input = inputFor({});
    input.upcoming = {standup(), weeklyReview()};
    const std::vector<StatusMenuEntry> entries = StatusMenuContent::build(input);
    ASSERT_GE(entries.size(), 3U);
    EXPECT_EQ(entries[1].kind, Kind::meeting);
    EXPECT_EQ(linesOf(entries[1].submenu.begin(), entries[1].submenu.end()),
              (std::vector<Line>{{u"Join"_s, StatusMenuAction::join},
                                 {u"Exclude this meeting"_s, StatusMenuAction::excludeSeries}}));
    EXPECT_EQ(entries[1].submenu[1].meeting, standup());
    // Recurring and without a link: no Join, but a choice of what to exclude.
    EXPECT_EQ(linesOf(entries.begin() + 2, entries.begin() + 3),
              (std::vector<Line>{{u"Wed 2:05 PM  Review"_s, StatusMenuAction::none, u"calendar"_s}}));
    EXPECT_EQ(linesOf(entries[2].submenu.begin(), entries[2].submenu.end()),
              (std::vector<Line>{{u"Exclude this occurrence"_s, StatusMenuAction::excludeOccurrence},
                                 {u"Exclude entire series"_s, StatusMenuAction::excludeSeries}}));

    std::vector<std::pair<StatusMenuAction, std::optional<MeetingOccurrence>>> performed;
    const StatusMenu::Perform perform = [&](StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting) {
        performed.emplace_back(action, meeting);
    };
    QMenu menu;
    // Twice: a rebuild must replace the previous items and submenus, not add to them.
    StatusMenu::populate(menu, entries, perform);
    StatusMenu::populate(menu, entries, perform);
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

    ASSERT_NE(actions[2]->menu(), nullptr);
    ASSERT_EQ(actions[2]->menu()->actions().size(), 2);
    actions[2]->menu()->actions()[0]->trigger();
    actions[4]->trigger();
    actions[0]->trigger(); // the disabled header does nothing
    EXPECT_EQ(performed, (decltype(performed){{StatusMenuAction::excludeOccurrence, weeklyReview()},
                                              {StatusMenuAction::refresh, std::nullopt}}));
}

TEST(StatusMenuViewModel, aWindowShowsTheMenusEntriesAndHandsEachChoiceToTheMenusHandler)
{
    StatusMenuInput input = inputFor({.syncIssues = true});
    input.upcoming = {standup(), weeklyReview()};
    input.isRefreshing = true;
    std::vector<std::pair<StatusMenuAction, std::optional<MeetingOccurrence>>> performed;
    orvane::StatusMenuViewModel menu([&](StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting) {
        performed.emplace_back(action, meeting);
    });
    menu.setEntries(StatusMenuContent::build(input));

    QStringList rows;
    for (const QVariant& entry : menu.entryList()) {
        const QVariantMap map = entry.toMap();
        rows << map[u"kind"_s].toString() + u'|' + map[u"text"_s].toString() + u'|' + map[u"symbol"_s].toString() +
                    u'|' + (map[u"enabled"_s].toBool() ? u"on"_s : u"off"_s) + u'|' +
                    map[u"actions"_s].toStringList().join(u',');
    }
    EXPECT_EQ(rows, (QStringList{u"status|Some calendar sources could not sync|warning|off|"_s,
                                 u"action|Review Calendar Sources…||on|"_s, u"header|UPCOMING||off|"_s,
                                 u"meeting|2:05 PM  Standup|video|on|Join,Exclude this meeting"_s,
                                 u"meeting|Wed 2:05 PM  Review|calendar|on|Exclude this occurrence,Exclude entire series"_s,
                                 u"separator|||off|"_s, u"action|Refreshing…||off|"_s,
                                 u"action|Test Full-Screen Alert…||on|"_s, u"action|Settings…||on|"_s,
                                 u"action|About…||on|"_s, u"separator|||off|"_s, u"action|Quit Orvane||on|"_s}));

    // Lines that only inform, a meeting's own row, the disabled Refreshing… and numbers out of range do nothing.
    for (const auto& [entry, action] : std::vector<std::pair<int, int>>{
             {1, -1}, {3, 0}, {3, 1}, {4, 0}, {4, 1}, {11, -1}, {0, -1}, {3, -1}, {6, -1}, {4, 2}, {12, -1}, {-1, -1}}) {
        menu.choose(entry, action);
    }
    EXPECT_EQ(performed, (decltype(performed){{StatusMenuAction::openCalendarSettings, std::nullopt},
                                              {StatusMenuAction::join, standup()},
                                              {StatusMenuAction::excludeSeries, standup()},
                                              {StatusMenuAction::excludeOccurrence, weeklyReview()},
                                              {StatusMenuAction::excludeSeries, weeklyReview()},
                                              {StatusMenuAction::quit, std::nullopt}}));
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
