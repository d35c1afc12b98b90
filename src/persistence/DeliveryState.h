// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/DeliveryRecord.h"
#include "domain/SnoozeRecord.h"

#include <vector>

namespace orvane {

/// The payload of the delivery record.
struct DeliveryState {
    std::vector<DeliveryRecord> records;
    std::vector<SnoozeRecord> snoozes;

    friend bool operator==(const DeliveryState&, const DeliveryState&) = default;
};

json::Value toJson(const DeliveryState& value);
DeliveryState fromJson(const json::Decoder& decoder, json::Tag<DeliveryState>);

} // namespace orvane
