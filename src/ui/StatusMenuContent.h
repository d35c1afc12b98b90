// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarAuthorizationState.h"
#include "domain/Date.h"
#include "domain/MeetingOccurrence.h"

#include <QKeySequence>
#include <QLocale>
#include <QString>
#include <QTimeZone>

#include <optional>
#include <vector>

namespace orvane {

/// What a status menu item does when chosen.
enum class StatusMenuAction {
    /// Status lines, headers and separators do nothing.
    none,
    refresh,
    showTestAlert,
    openSettings,
    openCalendarSettings,
    openOnboarding,
    openAbout,
    checkForUpdates,
    quit,
    /// The entry's meeting: open its link.
    join,
    /// The entry's meeting: exclude this occurrence only.
    excludeOccurrence,
    /// The entry's meeting: exclude its whole series (for a single event, the event itself).
    excludeSeries,
};

/// One item of the status menu, as plain data: the menu is described first and turned into widgets afterwards, so
/// that what it shows can be checked without a tray or a model.
struct StatusMenuEntry {
    enum class Kind {
        /// A disabled line saying how things stand.
        status,
        /// A command the user can choose (possibly disabled).
        action,
        /// A disabled section title.
        header,
        separator,
        /// An upcoming meeting; its actions are in `submenu`.
        meeting,
    };

    Kind kind = Kind::action;
    QString text;
    /// The symbol's name ("calendar", "video", "exclamationmark.triangle.fill"); empty for none. `StatusMenu`
    /// turns it into an icon.
    QString symbol;
    bool enabled = true;
    QKeySequence shortcut;
    StatusMenuAction action = StatusMenuAction::none;
    /// The meeting a meeting entry shows or a per-meeting action acts on.
    std::optional<MeetingOccurrence> meeting;
    std::vector<StatusMenuEntry> submenu;

    friend bool operator==(const StatusMenuEntry&, const StatusMenuEntry&) = default;
};

/// Everything the status menu depends on, taken from the application model by its owner.
struct StatusMenuInput {
    bool onboardingCompleted = false;
    /// A stored record is unreadable, so alerts are paused.
    bool persistencePaused = false;
    /// Alerts wait for the screen to be unlocked.
    bool alertsHeldForLock = false;
    /// Shown alerts cannot be written down (alerts still show).
    bool recordingFailed = false;
    bool hasUsableCalendarSource = false;
    bool remoteAccountNeedsReconnection = false;
    CalendarAuthorizationState authorizationState = CalendarAuthorizationState::notDetermined;
    bool hasSourceHealthIssues = false;
    bool hasReconciliationIssues = false;
    /// Desktop calendar access is not granted, but connected accounts supply the calendars.
    bool usingConnectedCalendarsOnly = false;
    /// The eligible upcoming meetings, in the order to show them.
    std::vector<MeetingOccurrence> upcoming;
    bool isRefreshing = false;
    bool hasUpdateURL = false;
    /// "Today" for the meeting times is the day of `now` in `timeZone`.
    Date now;
    QTimeZone timeZone = QTimeZone::systemTimeZone();
    QLocale locale;
};

/// The status menu's content and every text it shows.
class StatusMenuContent {
public:
    /// The menu from top to bottom: the health section, the upcoming meetings where they belong, then the commands.
    ///
    /// Health lines, first match wins: setup unfinished (nothing else of the section); stored data unreadable (no
    /// meetings either, since alerts are paused). Then, each when it applies: alerts held for a locked screen,
    /// reminders not recorded. Then: no usable source — an account needing reconnection, then by
    /// authorization: not asked yet, refused (denied, restricted or write-only), granted (meetings), unknown
    /// ("Calendar status unavailable": the calendar service did not answer); a usable source — sync failures and
    /// identity issues (both when both apply), the meetings, and the connected-accounts note.
    static std::vector<StatusMenuEntry> build(const StatusMenuInput& input);

    /// The start time as a meeting item shows it: "2:05 PM" today, "Tue 2:05 PM" on another day.
    static QString startTimeText(Date start, Date now, const QTimeZone& timeZone, const QLocale& locale);

    /// The symbol of the status item itself.
    static QString statusItemSymbol();
    /// The status item's tooltip and accessible name.
    static QString statusItemName();
};

} // namespace orvane
