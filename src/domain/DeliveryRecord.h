// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/DeliveryKey.h"
#include "domain/DeliveryStatus.h"

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

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::DeliveryRecord);
