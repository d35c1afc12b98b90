// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// A cloud calendar service Orvane connects to directly.
enum class RemoteCalendarProviderKind {
    google,
    microsoft,
};

template <>
struct RawValues<RemoteCalendarProviderKind> {
    static constexpr std::string_view name = "RemoteCalendarProviderKind";
    static constexpr std::array cases = {
        std::pair{RemoteCalendarProviderKind::google, std::string_view("google")},
        std::pair{RemoteCalendarProviderKind::microsoft, std::string_view("microsoft")},
    };
};

} // namespace orvane
