// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ScheduledAlert.h"

#include <vector>

namespace orvane {

/// The alerts due at exactly the same instant, shown together on one full-screen alert.
struct AlertBatch {
    Date triggerDate;
    /// Never empty; every alert has exactly the batch's trigger date; in alert order.
    std::vector<ScheduledAlert> alerts;

    friend bool operator==(const AlertBatch&, const AlertBatch&) = default;
};

} // namespace orvane
