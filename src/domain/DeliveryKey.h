// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingIdentity.h"

namespace orvane {

/// One alert of one occurrence: at most one delivery record exists per key.
struct DeliveryKey {
    MeetingIdentity identity;
    Date triggerDate;

    friend bool operator==(const DeliveryKey&, const DeliveryKey&) = default;
};

inline std::size_t hash(const DeliveryKey& key)
{
    return hashFields(key.identity, key.triggerDate);
}

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::DeliveryKey);
