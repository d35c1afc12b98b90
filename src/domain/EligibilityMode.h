// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// Which events may alert at all.
enum class EligibilityMode {
    /// Every timed event.
    allTimedEvents,
    /// Only events with another attendee or a recognised meeting link.
    meetingLike,
};

template <>
struct RawValues<EligibilityMode> {
    static constexpr std::string_view name = "EligibilityMode";
    static constexpr std::array cases = {
        std::pair{EligibilityMode::allTimedEvents, std::string_view("allTimedEvents")},
        std::pair{EligibilityMode::meetingLike, std::string_view("meetingLike")},
    };
};

} // namespace orvane
