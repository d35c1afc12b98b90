// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionScope.h"
#include "domain/MeetingIdentity.h"

#include <QUuid>

#include <optional>

namespace orvane {

/// A meeting the user chose never to be alerted about again: one occurrence, or its whole series.
struct ExclusionRecord {
    QUuid id;
    /// The occurrence that was excluded (for a series, any occurrence of it).
    MeetingIdentity identity;
    ExclusionScope scope = ExclusionScope::occurrence;
    Date createdAt;
    /// The event's title when it was excluded, for display only.
    std::optional<QString> eventTitle;
    /// The calendar's title when it was excluded, for display only.
    std::optional<QString> calendarTitle;

    friend bool operator==(const ExclusionRecord&, const ExclusionRecord&) = default;
};

std::size_t hash(const ExclusionRecord& value);
json::Value toJson(const ExclusionRecord& value);
ExclusionRecord fromJson(const json::Decoder& decoder, json::Tag<ExclusionRecord>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::ExclusionRecord);
