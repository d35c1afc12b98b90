// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarDescriptor.h"

#include <vector>

namespace orvane {

/// The calendars of one source, as settings and onboarding list them.
struct CalendarGroup {
    QString sourceIdentifier;
    QString sourceTitle;
    CalendarSourceKind sourceKind = CalendarSourceKind::unknown;
    /// In the order the source lists them.
    std::vector<CalendarDescriptor> calendars;

    friend bool operator==(const CalendarGroup&, const CalendarGroup&) = default;
};

std::size_t hash(const CalendarGroup& value);
json::Value toJson(const CalendarGroup& value);
CalendarGroup fromJson(const json::Decoder& decoder, json::Tag<CalendarGroup>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::CalendarGroup);
