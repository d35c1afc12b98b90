// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/DeliveryKey.h"
#include "persistence/DeliveryStatus.h"

namespace orvane {

/// The reminder history of one alert.
struct DeliveryRecord {
    MeetingIdentity identity;
    /// The moment the alert was due.
    Date triggerDate;
    DeliveryStatus status = DeliveryStatus::pending;
    /// When it was handed to the alert, or when the user saw it once confirmed.
    Date deliveredAt;

    DeliveryKey id() const { return {identity, triggerDate}; }

    friend bool operator==(const DeliveryRecord&, const DeliveryRecord&) = default;
};

std::size_t hash(const DeliveryRecord& value);
json::Value toJson(const DeliveryRecord& value);
/// Records of the oldest schema have no "status": they were written only once shown, so they read as confirmed.
DeliveryRecord fromJson(const json::Decoder& decoder, json::Tag<DeliveryRecord>);

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

/// The payload of the delivery record.
struct DeliveryState {
    std::vector<DeliveryRecord> records;
    std::vector<SnoozeRecord> snoozes;

    friend bool operator==(const DeliveryState&, const DeliveryState&) = default;
};

json::Value toJson(const DeliveryState& value);
DeliveryState fromJson(const json::Decoder& decoder, json::Tag<DeliveryState>);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::DeliveryRecord);
ORVANE_DECLARE_STD_HASH(orvane::SnoozeRecord);
