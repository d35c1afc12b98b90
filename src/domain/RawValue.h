// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringView>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace orvane {

/// The raw string of each case of an enumeration, in declaration order.
///
/// Specialise it beside the enumeration with `name` (the type's name, for error messages) and `cases`, an
/// array of (case, raw string) pairs. The stored records hold these strings, so they never change once shipped.
template <class E>
struct RawValues;

template <class E>
concept RawValueEnum = requires
{
    RawValues<E>::name;
    RawValues<E>::cases;
};

/// The raw string of one case.
template <RawValueEnum E>
QString rawValue(E value)
{
    for (const auto& [candidate, raw] : RawValues<E>::cases) {
        if (candidate == value) {
            return QString::fromLatin1(raw.data(), qsizetype(raw.size()));
        }
    }
    // Every case is in the table (the tests check it), so only a value cast from an out-of-range integer lands here.
    return {};
}

/// The case whose raw string is exactly `raw` (case-sensitive), if any.
template <RawValueEnum E>
std::optional<E> fromRawValue(QStringView raw)
{
    for (const auto& [candidate, string] : RawValues<E>::cases) {
        if (raw == QLatin1StringView(string.data(), qsizetype(string.size()))) {
            return candidate;
        }
    }
    return std::nullopt;
}

/// Every case, in declaration order.
template <RawValueEnum E>
constexpr auto allCases()
{
    std::array<E, RawValues<E>::cases.size()> result{};
    std::transform(RawValues<E>::cases.begin(), RawValues<E>::cases.end(), result.begin(),
                   [](const auto& entry) { return entry.first; });
    return result;
}

} // namespace orvane
