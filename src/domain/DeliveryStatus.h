// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// Whether an alert was only about to be shown or was seen on screen.
enum class DeliveryStatus {
    /// Handed to the alert, not yet shown: suppresses nothing.
    pending,
    /// Shown to the user: the same alert is never shown again.
    confirmed,
};

template <>
struct RawValues<DeliveryStatus> {
    static constexpr std::string_view name = "DeliveryStatus";
    static constexpr std::array cases = {
        std::pair{DeliveryStatus::pending, std::string_view("pending")},
        std::pair{DeliveryStatus::confirmed, std::string_view("confirmed")},
    };
};

} // namespace orvane
