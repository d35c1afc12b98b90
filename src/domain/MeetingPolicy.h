// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/DeliveryRecord.h"
#include "domain/ExclusionMatcher.h"
#include "domain/MeetingOccurrence.h"
#include "domain/MeetingSchedule.h"
#include "domain/NotifierSettings.h"
#include "domain/SnoozeRecord.h"

#include <span>

namespace orvane {

/// The rules that decide which meetings may alert. A stateless value the scheduler carries.
struct MeetingPolicy {
    /// Whether `occurrence` may alert: timed, not cancelled, not declined, of positive length, in a selected
    /// calendar (every calendar while there is no selection), not excluded, and in meeting-like mode with
    /// another attendee or a meeting link. The steps are tested in that order.
    bool isEligible(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                    const ExclusionMatcher& exclusions) const;

    /// The same for a single query against a plain list of exclusions.
    bool isEligible(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                    std::span<const ExclusionRecord> exclusions) const;

    /// The schedule at `now`: which eligible meetings are upcoming, which alerts are due (in batches of exactly
    /// equal trigger dates) and when the next one falls due.
    ///
    /// An alert is due at the start minus the lead time, or at the end of the meeting's snooze (the last snooze
    /// record of an identity wins); a meeting that has ended never alerts. An initial alert is dropped once the
    /// meeting started more than a minute ago, a snoozed one once its snooze ended more than a minute ago, and
    /// either when a confirmed delivery has the same identity and trigger date. Past trigger dates are not moved.
    MeetingSchedule makeSchedule(std::span<const MeetingOccurrence> occurrences, const NotifierSettings& settings,
                                 const ExclusionMatcher& exclusions, std::span<const DeliveryRecord> deliveries,
                                 std::span<const SnoozeRecord> snoozes, Date now) const;

    /// The order of meetings in lists and within a batch: by start, then end, then calendar identifier, then series
    /// identifier.
    static bool occursBefore(const MeetingOccurrence& lhs, const MeetingOccurrence& rhs);

private:
    template <class Excluded>
    static bool passesRules(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                            const Excluded& isExcluded);
};

} // namespace orvane
