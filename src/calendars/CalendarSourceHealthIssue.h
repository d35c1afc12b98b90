// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RemoteCalendarProviderKind.h"

#include <QString>

#include <optional>
#include <variant>

namespace orvane {

/// A calendar source, or one calendar of it, that could not deliver its meetings, as the menu and settings show it.
struct CalendarSourceHealthIssue {
    /// The desktop's calendar database.
    struct Local {
        friend bool operator==(const Local&, const Local&) = default;
    };
    /// A directly connected cloud account.
    struct Remote {
        RemoteCalendarProviderKind provider = RemoteCalendarProviderKind::google;
        QString accountID;
        friend bool operator==(const Remote&, const Remote&) = default;
    };

    using Source = std::variant<Local, Remote>;
    /// The one calendar concerned, when the source itself answered.
    struct Calendar {
        QString identifier;
        QString title;
        friend bool operator==(const Calendar&, const Calendar&) = default;
    };

    Source source;
    /// The source's name as the user knows it.
    QString displayName;
    /// What is wrong, for the user.
    QString message;
    /// Only a new sign-in can fix it (remote sources only).
    bool requiresReauthentication = false;
    /// Absent when the whole source failed.
    std::optional<Calendar> calendar;

    /// What the issue is about, as a heading: the source's name, or the calendar's within its source.
    QString title() const;

    friend bool operator==(const CalendarSourceHealthIssue&, const CalendarSourceHealthIssue&) = default;
};

} // namespace orvane
