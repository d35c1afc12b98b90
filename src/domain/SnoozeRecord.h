// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingIdentity.h"

namespace orvane {

/// An alert snoozed until a later moment. At most one exists per identity.
struct SnoozeRecord {
    MeetingIdentity identity;
    /// When the alert is to appear again.
    Date snoozedUntil;
    Date createdAt;

    friend bool operator==(const SnoozeRecord&, const SnoozeRecord&) = default;
};

std::size_t hash(const SnoozeRecord& value);
json::Value toJson(const SnoozeRecord& value);
SnoozeRecord fromJson(const json::Decoder& decoder, json::Tag<SnoozeRecord>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::SnoozeRecord);
