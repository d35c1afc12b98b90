// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarFingerprint.h"
#include "domain/RawValue.h"
#include "persistence/PersistenceComponent.h"

#include <QString>

#include <optional>

namespace orvane {

/// A stored choice of the user (a calendar selection or exclusions) that names a calendar which can no longer be
/// found, so the choice may no longer do what the user meant. Delivery history and snoozes are never reported:
/// they expire by themselves.
struct CalendarReconciliationIssue {
    /// Why the stored calendar could not be found again.
    enum class Kind {
        /// No current calendar has its identifier, and nothing identifies it by what it looks like.
        missingCalendar,
        /// Its identifier is gone and more than one current calendar looks like it (or did when it was recorded).
        ambiguousCalendar,
    };

    Kind kind = Kind::missingCalendar;
    /// The record that holds the choice: settings (the calendar selection) or exclusions.
    PersistenceComponent component = PersistenceComponent::settings;
    /// The identifier the records still carry.
    QString calendarIdentifier;
    /// What the calendar looked like when the records were last brought up to date, if known.
    std::optional<CalendarFingerprint> fingerprint;
    /// How many records of the component name the calendar.
    int recordCount = 0;
    /// The heading shown to the user.
    QString title;
    /// What happened and what the user can do about it.
    QString message;

    friend bool operator==(const CalendarReconciliationIssue&, const CalendarReconciliationIssue&) = default;
};

template <>
struct RawValues<CalendarReconciliationIssue::Kind> {
    static constexpr std::string_view name = "CalendarReconciliationIssue.Kind";
    static constexpr std::array cases = {
        std::pair{CalendarReconciliationIssue::Kind::missingCalendar, std::string_view("missingCalendar")},
        std::pair{CalendarReconciliationIssue::Kind::ambiguousCalendar, std::string_view("ambiguousCalendar")},
    };
};

} // namespace orvane
