// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// The kind of account or source that holds a calendar.
enum class CalendarSourceKind {
    local,
    exchange,
    calDAV,
    google,
    microsoft,
    mobileMe,
    subscribed,
    birthdays,
    unknown,
};

template <>
struct RawValues<CalendarSourceKind> {
    static constexpr std::string_view name = "CalendarSourceKind";
    static constexpr std::array cases = {
        std::pair{CalendarSourceKind::local, std::string_view("local")},
        std::pair{CalendarSourceKind::exchange, std::string_view("exchange")},
        std::pair{CalendarSourceKind::calDAV, std::string_view("calDAV")},
        std::pair{CalendarSourceKind::google, std::string_view("google")},
        std::pair{CalendarSourceKind::microsoft, std::string_view("microsoft")},
        std::pair{CalendarSourceKind::mobileMe, std::string_view("mobileMe")},
        std::pair{CalendarSourceKind::subscribed, std::string_view("subscribed")},
        std::pair{CalendarSourceKind::birthdays, std::string_view("birthdays")},
        std::pair{CalendarSourceKind::unknown, std::string_view("unknown")},
    };
};

} // namespace orvane
