// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarFingerprint.h"

#include <optional>

namespace orvane {

/// One calendar the user selected for alerts.
struct CalendarSelectionRecord {
    QString calendarIdentifier;
    /// What the calendar looked like when selected; filled in by identity reconciliation for old selections.
    std::optional<CalendarFingerprint> fingerprint;

    friend bool operator==(const CalendarSelectionRecord&, const CalendarSelectionRecord&) = default;
};

std::size_t hash(const CalendarSelectionRecord& value);
json::Value toJson(const CalendarSelectionRecord& value);
CalendarSelectionRecord fromJson(const json::Decoder& decoder, json::Tag<CalendarSelectionRecord>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::CalendarSelectionRecord);
