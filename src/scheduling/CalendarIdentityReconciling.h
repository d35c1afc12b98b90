// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"

#include <span>

namespace orvane {

/// Re-matches stored selections, exclusions and reminder history with the calendars just fetched, for calendars
/// whose identifiers changed.
class CalendarIdentityReconciling {
public:
    virtual ~CalendarIdentityReconciling() = default;
    /// Throws on failure; the scheduler reports it and carries on.
    virtual void reconcile(std::span<const MeetingOccurrence> fetched) = 0;
};

} // namespace orvane
