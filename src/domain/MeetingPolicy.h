// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionMatcher.h"
#include "domain/MeetingOccurrence.h"
#include "domain/NotifierSettings.h"

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

private:
    template <class Excluded>
    static bool passesRules(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                           const Excluded& isExcluded);
};

} // namespace orvane
