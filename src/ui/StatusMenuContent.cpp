// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusMenuContent.h"

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

using Kind = StatusMenuEntry::Kind;

StatusMenuEntry status(QString text, QString symbol = {})
{
    return {.kind = Kind::status, .text = std::move(text), .symbol = std::move(symbol), .enabled = false};
}

StatusMenuEntry command(QString text, StatusMenuAction action, QKeySequence shortcut = {}, bool enabled = true)
{
    return {.kind = Kind::action,
            .text = std::move(text),
            .enabled = enabled,
            .shortcut = std::move(shortcut),
            .action = action};
}

StatusMenuEntry separator()
{
    return {.kind = Kind::separator, .enabled = false};
}

StatusMenuEntry meetingCommand(QString text, StatusMenuAction action, const MeetingOccurrence& meeting)
{
    return {.kind = Kind::action, .text = std::move(text), .action = action, .meeting = meeting};
}

void appendUpcoming(const StatusMenuInput& input, std::vector<StatusMenuEntry>& entries)
{
    entries.push_back({.kind = Kind::header, .text = u"UPCOMING"_s, .enabled = false});
    if (input.upcoming.empty()) {
        entries.push_back(status(u"No eligible events in the next 7 days"_s));
        return;
    }
    for (const MeetingOccurrence& meeting : input.upcoming) {
        std::vector<StatusMenuEntry> submenu;
        if (meeting.meetingURL) {
            submenu.push_back(meetingCommand(u"Join"_s, StatusMenuAction::join, meeting));
        }
        if (meeting.isRecurring) {
            submenu.push_back(
                meetingCommand(u"Exclude this occurrence"_s, StatusMenuAction::excludeOccurrence, meeting));
            submenu.push_back(meetingCommand(u"Exclude entire series"_s, StatusMenuAction::excludeSeries, meeting));
        } else {
            // A single event has no series to tell apart; excluding "the series" excludes exactly this event.
            submenu.push_back(meetingCommand(u"Exclude this meeting"_s, StatusMenuAction::excludeSeries, meeting));
        }
        entries.push_back(
            {.kind = Kind::meeting,
             .text = StatusMenuContent::startTimeText(meeting.startDate, input.now, input.timeZone, input.locale) +
                     u"  "_s + meeting.title,
             .symbol = meeting.meetingURL ? u"video"_s : u"calendar"_s,
             .meeting = meeting,
             .submenu = std::move(submenu)});
    }
}

void appendHealth(const StatusMenuInput& input, std::vector<StatusMenuEntry>& entries)
{
    if (!input.onboardingCompleted) {
        entries.push_back(status(u"Setup is not finished"_s, u"calendar.badge.exclamationmark"_s));
        entries.push_back(command(u"Finish Setup…"_s, StatusMenuAction::openOnboarding));
        return;
    }
    if (input.persistencePaused) {
        entries.push_back(
            status(u"Alerts paused — stored data needs attention"_s, u"externaldrive.badge.exclamationmark"_s));
        entries.push_back(command(u"Review Stored Data…"_s, StatusMenuAction::openSettings));
        return;
    }
    if (input.alertsHeldForLock) {
        // Seen only when the session looks locked to Orvane but is not: the reason is worth knowing.
        entries.push_back(status(u"Alerts wait while the screen is locked"_s, u"lock.fill"_s));
    }
    if (input.recordingFailed) {
        entries.push_back(status(u"Reminders cannot be recorded"_s, u"externaldrive.badge.exclamationmark"_s));
        entries.push_back(command(u"Review in Settings…"_s, StatusMenuAction::openSettings));
    }
    if (!input.hasUsableCalendarSource) {
        if (input.remoteAccountNeedsReconnection) {
            entries.push_back(
                status(u"A calendar account needs reconnection"_s, u"person.crop.circle.badge.exclamationmark"_s));
            entries.push_back(command(u"Review Calendar Accounts…"_s, StatusMenuAction::openSettings));
            return;
        }
        switch (input.authorizationState) {
        case CalendarAuthorizationState::notDetermined:
            entries.push_back(command(u"Allow Calendar Access…"_s, StatusMenuAction::openOnboarding));
            return;
        case CalendarAuthorizationState::denied:
        case CalendarAuthorizationState::restricted:
        case CalendarAuthorizationState::writeOnly:
            // Write-only access cannot read a single event, so for alerts it is as good as none.
            entries.push_back(status(u"No calendar source is available"_s));
            entries.push_back(command(u"Calendar Settings…"_s, StatusMenuAction::openSettings));
            return;
        case CalendarAuthorizationState::fullAccess:
            // Access is granted but nothing is selected or readable yet: the meetings line says so.
            appendUpcoming(input, entries);
            return;
        case CalendarAuthorizationState::unknown:
            // The calendar service did not answer, so there is nothing true to say about the calendars.
            entries.push_back(status(u"Calendar status unavailable"_s));
            return;
        }
        return;
    }
    if (input.hasSourceHealthIssues) {
        entries.push_back(
            status(u"Some calendar sources could not sync"_s, u"arrow.triangle.2.circlepath.circle.fill"_s));
        entries.push_back(command(u"Review Calendar Sources…"_s, StatusMenuAction::openCalendarSettings));
    }
    if (input.hasReconciliationIssues) {
        entries.push_back(status(u"Calendar data needs review"_s, u"exclamationmark.triangle.fill"_s));
        entries.push_back(command(u"Review Calendar Data…"_s, StatusMenuAction::openSettings));
    }
    appendUpcoming(input, entries);
    if (input.usingConnectedCalendarsOnly) {
        entries.push_back(status(u"Using connected Google/Outlook calendars"_s));
    }
}

} // namespace

std::vector<StatusMenuEntry> StatusMenuContent::build(const StatusMenuInput& input)
{
    std::vector<StatusMenuEntry> entries;
    appendHealth(input, entries);
    entries.push_back(separator());
    entries.push_back(command(input.isRefreshing ? u"Refreshing…"_s : u"Refresh"_s, StatusMenuAction::refresh,
                              QKeySequence(Qt::CTRL | Qt::Key_R), !input.isRefreshing && !input.persistencePaused));
    entries.push_back(command(u"Test Full-Screen Alert…"_s, StatusMenuAction::showTestAlert));
    entries.push_back(command(u"Settings…"_s, StatusMenuAction::openSettings, QKeySequence(Qt::CTRL | Qt::Key_Comma)));
    if (input.hasUpdateURL) {
        entries.push_back(command(u"Check for Updates…"_s, StatusMenuAction::checkForUpdates));
    }
    entries.push_back(command(u"About…"_s, StatusMenuAction::openAbout));
    entries.push_back(separator());
    entries.push_back(command(u"Quit Orvane"_s, StatusMenuAction::quit, QKeySequence(Qt::CTRL | Qt::Key_Q)));
    return entries;
}

QString StatusMenuContent::startTimeText(Date start, Date now, const QTimeZone& timeZone, const QLocale& locale)
{
    const QDateTime startTime = start.toDateTime().toTimeZone(timeZone);
    const bool today = startTime.date() == now.toDateTime().toTimeZone(timeZone).date();
    return locale.toString(startTime, today ? u"h:mm AP"_s : u"ddd h:mm AP"_s);
}

QString StatusMenuContent::statusItemSymbol()
{
    return u"calendar.badge.clock"_s;
}

QString StatusMenuContent::statusItemName()
{
    return u"Orvane"_s;
}

} // namespace orvane
