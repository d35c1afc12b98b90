// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"

namespace orvane {

/// The current wall-clock time. Injected wherever time matters, so that tests can move it.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;
};

/// The system's real-time clock.
class SystemClock final : public Clock {
public:
    Date now() const override;
};

} // namespace orvane
