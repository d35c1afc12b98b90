// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>

#include <cstdint>

namespace orvane {

/// A display's identifier from what names it (its connector name, maker, model, serial): the same in every run,
/// and never 0, which stands for "no display". 32-bit FNV-1a, whose value is fixed by its definition (unlike qHash,
/// which is seeded per process).
inline std::uint32_t stableDisplayID(const QByteArray& identity)
{
    std::uint32_t hash = 2166136261u;
    for (const char byte : identity) {
        hash ^= std::uint8_t(byte);
        hash *= 16777619u;
    }
    return hash == 0 ? 1 : hash;
}

} // namespace orvane
