// SPDX-License-Identifier: GPL-3.0-or-later
#include "scheduling/Clock.h"

#include <chrono>

namespace orvane {

Date SystemClock::now() const
{
    const std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromUnixTime(sinceEpoch.count());
}

} // namespace orvane
