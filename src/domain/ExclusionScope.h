// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

namespace orvane {

/// How much of a meeting an exclusion covers.
enum class ExclusionScope {
    /// Only the one occurrence that was excluded.
    occurrence,
    /// Every occurrence of the meeting's series in that calendar.
    series,
};

template <>
struct RawValues<ExclusionScope> {
    static constexpr std::string_view name = "ExclusionScope";
    static constexpr std::array cases = {
        std::pair{ExclusionScope::occurrence, std::string_view("occurrence")},
        std::pair{ExclusionScope::series, std::string_view("series")},
    };
};

} // namespace orvane
