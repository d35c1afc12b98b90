// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// Whether Orvane may read the desktop's calendar database.
enum class CalendarAuthorizationState {
    notDetermined,
    denied,
    restricted,
    writeOnly,
    fullAccess,
    unknown,
};

template <>
struct RawValues<CalendarAuthorizationState> {
    static constexpr std::string_view name = "CalendarAuthorizationState";
    static constexpr std::array cases = {
        std::pair{CalendarAuthorizationState::notDetermined, std::string_view("notDetermined")},
        std::pair{CalendarAuthorizationState::denied, std::string_view("denied")},
        std::pair{CalendarAuthorizationState::restricted, std::string_view("restricted")},
        std::pair{CalendarAuthorizationState::writeOnly, std::string_view("writeOnly")},
        std::pair{CalendarAuthorizationState::fullAccess, std::string_view("fullAccess")},
        std::pair{CalendarAuthorizationState::unknown, std::string_view("unknown")},
    };
};

} // namespace orvane
