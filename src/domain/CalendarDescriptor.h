// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarSourceKind.h"
#include "domain/Hashing.h"
#include "domain/Json.h"

#include <QString>

#include <optional>

namespace orvane {

/// One calendar, as a source lists it.
struct CalendarDescriptor {
    QString identifier;
    QString title;
    /// The account or source that holds the calendar.
    QString sourceIdentifier;
    /// The account's display name.
    QString sourceTitle;
    CalendarSourceKind sourceKind = CalendarSourceKind::unknown;
    /// The calendar colour as "#RRGGBB".
    std::optional<QString> colorHex;
    /// A read-only subscription.
    bool isSubscribed = false;
    bool allowsContentModifications = false;

    friend bool operator==(const CalendarDescriptor&, const CalendarDescriptor&) = default;
};

std::size_t hash(const CalendarDescriptor& value);
json::Value toJson(const CalendarDescriptor& value);
CalendarDescriptor fromJson(const json::Decoder& decoder, json::Tag<CalendarDescriptor>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::CalendarDescriptor);
