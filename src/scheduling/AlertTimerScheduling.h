// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"

#include <functional>
#include <memory>

namespace orvane {

/// One armed timer. Cancelling it (or destroying the token) means its handler never runs; cancelling twice is
/// harmless.
class AlertTimerToken {
public:
    virtual ~AlertTimerToken() = default;
    virtual void cancel() = 0;
};

/// Makes one-shot timers that fire at a wall-clock instant.
class AlertTimerScheduling {
public:
    /// The earliest a timer fires after it is armed, in seconds: a date in the past fires at once, not never.
    static constexpr double minimumDelay = 0.001;

    virtual ~AlertTimerScheduling() = default;

    /// Runs `handler` once, on the main thread, at `date` (at least `minimumDelay` from now).
    virtual std::unique_ptr<AlertTimerToken> schedule(Date date, std::function<void()> handler) = 0;
};

} // namespace orvane
