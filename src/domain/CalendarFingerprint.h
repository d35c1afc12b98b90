// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarSourceKind.h"
#include "domain/Hashing.h"
#include "domain/Json.h"

#include <QString>

namespace orvane {

/// What a calendar looks like (its source kind, source title and calendar title), used to recognise it when its
/// identifier changes. Compared field by field, never through a hash of the text.
struct CalendarFingerprint {
    CalendarSourceKind sourceKind = CalendarSourceKind::unknown;
    QString sourceTitle;
    QString calendarTitle;

    /// Both titles are non-empty after trimming white space and line breaks: only then can it stand in for an
    /// identifier.
    bool isComplete() const;

    friend bool operator==(const CalendarFingerprint&, const CalendarFingerprint&) = default;
};

std::size_t hash(const CalendarFingerprint& value);
json::Value toJson(const CalendarFingerprint& value);
CalendarFingerprint fromJson(const json::Decoder& decoder, json::Tag<CalendarFingerprint>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::CalendarFingerprint);
