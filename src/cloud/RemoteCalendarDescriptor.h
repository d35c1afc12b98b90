// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Hashing.h"

#include <QString>

#include <optional>

namespace orvane {

/// One calendar of a connected account, as its provider lists it.
struct RemoteCalendarDescriptor {
    /// The remote identity string of kind "calendar".
    QString identifier;
    QString title;
    /// The provider's colour as "#RRGGBB", when it has one.
    std::optional<QString> colorHex;
    bool isSubscribed = false;
    bool allowsContentModifications = false;

    friend bool operator==(const RemoteCalendarDescriptor&, const RemoteCalendarDescriptor&) = default;
};

std::size_t hash(const RemoteCalendarDescriptor& value);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::RemoteCalendarDescriptor);
