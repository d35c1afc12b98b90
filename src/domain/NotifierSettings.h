// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarSelectionRecord.h"
#include "domain/EligibilityMode.h"

#include <optional>
#include <vector>

namespace orvane {

/// The user's alert preferences.
struct NotifierSettings {
    /// The longest lead time the user may choose, in seconds.
    static constexpr double maximumAlertLeadTime = 7200;

    /// How long before a meeting's start the alert appears, in seconds (0 to 7200).
    double alertLeadTime = 0;
    /// Calendars whose events may alert; absent until the user makes a selection (then every calendar may).
    std::optional<std::vector<CalendarSelectionRecord>> selectedCalendars;
    EligibilityMode eligibilityMode = EligibilityMode::allTimedEvents;
    bool launchAtLogin = false;
    /// Cover every display, not only the one with the active window.
    bool showsOnAllDisplays = false;

    friend bool operator==(const NotifierSettings&, const NotifierSettings&) = default;
};

std::size_t hash(const NotifierSettings& value);
/// Always writes "selectedCalendars" when there is a selection, never the first version's
/// "enabledCalendarIdentifiers".
json::Value toJson(const NotifierSettings& value);
/// Reads both versions: the first stored a set of calendar identifiers under "enabledCalendarIdentifiers", which
/// becomes a sorted selection without fingerprints. A lead time that is not finite or outside 0 to 7200 seconds
/// fails the whole value.
NotifierSettings fromJson(const json::Decoder& decoder, json::Tag<NotifierSettings>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::NotifierSettings);
