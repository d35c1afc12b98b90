// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/AlertBatch.h"

#include <optional>
#include <vector>

namespace orvane {

/// What one schedule computation found.
struct MeetingSchedule {
    /// How many meetings the menu lists.
    static constexpr std::size_t upcomingLimit = 10;
    /// How long after its start a meeting may still be announced, and after its end a snooze may still fire.
    static constexpr double lateDeliveryGrace = 60;
    /// The occurrences to fetch reach back this far before now...
    static constexpr double fetchLookBehind = 60;
    /// ...and this far ahead.
    static constexpr double fetchLookAhead = 604'800;

    /// Eligible occurrences that have not ended, in occurrence order, at most ten.
    std::vector<MeetingOccurrence> upcoming;
    /// Alerts whose trigger date has come, one batch per distinct trigger date, ascending.
    std::vector<AlertBatch> dueBatches;
    /// The earliest trigger date still in the future.
    std::optional<Date> nextTriggerDate;

    friend bool operator==(const MeetingSchedule&, const MeetingSchedule&) = default;
};

/// The closed interval of occurrences a schedule at `now` needs.
struct FetchInterval {
    Date start;
    Date end;

    static FetchInterval around(Date now)
    {
        return {now - MeetingSchedule::fetchLookBehind, now + MeetingSchedule::fetchLookAhead};
    }

    friend bool operator==(const FetchInterval&, const FetchInterval&) = default;
};

} // namespace orvane
