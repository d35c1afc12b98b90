// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QHashFunctions>

#include <cstddef>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

namespace orvane {

/// The hash of one value: std::hash where the type has one, otherwise Qt's qHash.
template <class T>
std::size_t hashValue(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return std::hash<std::underlying_type_t<T>>{}(static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (requires { std::hash<T>{}(value); }) {
        return std::hash<T>{}(value);
    } else {
        return qHash(value);
    }
}

template <class T>
std::size_t hashValue(const std::optional<T>& value)
{
    return value ? hashValue(*value) ^ 0x9e3779b97f4a7c15ULL : 0;
}

template <class T>
std::size_t hashValue(const std::vector<T>& values)
{
    std::size_t seed = values.size();
    for (const auto& value : values) {
        seed ^= hashValue(value) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    }
    return seed;
}

/// Hashes several fields into one value, in order.
template <class... Fields>
std::size_t hashFields(const Fields&... fields)
{
    std::size_t seed = 0;
    ((seed ^= hashValue(fields) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2)), ...);
    return seed;
}

} // namespace orvane

/// Declares std::hash for an Orvane value type whose hash is the free function `hash(const T&)`.
#define ORVANE_DECLARE_STD_HASH(Type)                                                                                  \
    template <>                                                                                                        \
    struct std::hash<Type> {                                                                                           \
        std::size_t operator()(const Type& value) const noexcept { return ::orvane::hash(value); }                     \
    }
