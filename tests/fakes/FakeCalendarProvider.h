// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "scheduling/CalendarProviding.h"

#include <qcoro/qcorosignal.h>

#include <stdexcept>
#include <vector>

/// Calendars held in memory. Fetches can be made to fail, or to wait until the test releases them.
class FakeCalendarProvider final : public orvane::CalendarProviding {
    Q_OBJECT

public:
    std::vector<orvane::MeetingOccurrence> meetings;
    /// The next this many fetches fail.
    int failingFetches = 0;
    /// Fetches wait for release() while set.
    bool holdFetches = false;
    int fetchCount = 0;
    std::vector<orvane::FetchInterval> intervals;

    QCoro::Task<std::vector<orvane::MeetingOccurrence>> occurrences(orvane::FetchInterval interval) override
    {
        ++fetchCount;
        intervals.push_back(interval);
        if (holdFetches) {
            co_await qCoro(this, &FakeCalendarProvider::released);
        }
        if (failingFetches > 0) {
            --failingFetches;
            throw std::runtime_error("The calendar service is unavailable.");
        }
        std::vector<orvane::MeetingOccurrence> result;
        for (const auto& meeting : meetings) {
            if (meeting.endDate >= interval.start && meeting.startDate <= interval.end) {
                result.push_back(meeting);
            }
        }
        co_return result;
    }

    /// Lets every held fetch continue.
    void release() { Q_EMIT released(); }

    /// Reports a change, as a calendar source does when an event is edited.
    void announceChange() { Q_EMIT changed(); }

Q_SIGNALS:
    void released();
};
