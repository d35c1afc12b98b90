// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/AlertReason.h"
#include "domain/MeetingOccurrence.h"

namespace orvane {

/// One alert of one occurrence.
struct ScheduledAlert {
    MeetingOccurrence occurrence;
    /// When the alert is shown.
    Date triggerDate;
    AlertReason reason = AlertReason::initial;

    friend bool operator==(const ScheduledAlert&, const ScheduledAlert&) = default;
};

} // namespace orvane
