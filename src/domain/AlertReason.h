// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// Why an alert is shown.
enum class AlertReason {
    /// The lead time before the start has come.
    initial,
    /// A snooze has ended.
    snoozed,
};

template <>
struct RawValues<AlertReason> {
    static constexpr std::string_view name = "AlertReason";
    static constexpr std::array cases = {
        std::pair{AlertReason::initial, std::string_view("initial")},
        std::pair{AlertReason::snoozed, std::string_view("snoozed")},
    };
};

} // namespace orvane
