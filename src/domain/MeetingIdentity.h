// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarFingerprint.h"
#include "domain/Date.h"

#include <optional>

namespace orvane {

/// The stable identity of one occurrence of a meeting, built to survive calendar identifiers that change.
struct MeetingIdentity {
    /// The account or source that holds the calendar; for a connected account, its remote identity string.
    QString sourceIdentifier;
    /// The calendar within its source.
    QString calendarIdentifier;
    /// The event, or the repeating series it belongs to ("external:" + iCalendar UID, or "local:" + item id).
    QString seriesIdentifier;
    /// What the calendar looked like, for recognising it after its identifier changed.
    std::optional<CalendarFingerprint> calendarFingerprint;
    /// The fingerprint matched exactly one calendar when it was taken.
    bool calendarFingerprintIsUnique = false;
    /// The start that keys this occurrence within its series.
    Date occurrenceStart;
    /// The start actually scheduled now (differs from occurrenceStart for a moved occurrence).
    Date scheduledStart;

    friend bool operator==(const MeetingIdentity&, const MeetingIdentity&) = default;
};

std::size_t hash(const MeetingIdentity& value);
json::Value toJson(const MeetingIdentity& value);
/// Records of older versions lack some keys: no source identifier reads as "", no fingerprint flag as not unique,
/// and no scheduled start as the occurrence start.
MeetingIdentity fromJson(const json::Decoder& decoder, json::Tag<MeetingIdentity>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::MeetingIdentity);
