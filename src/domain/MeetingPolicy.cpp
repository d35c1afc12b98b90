// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingPolicy.h"

#include <algorithm>

namespace orvane {

namespace {

bool isInSelectedCalendar(const MeetingOccurrence& occurrence, const NotifierSettings& settings)
{
    if (!settings.selectedCalendars) {
        return true;
    }
    return std::any_of(settings.selectedCalendars->begin(), settings.selectedCalendars->end(),
                       [&](const CalendarSelectionRecord& selection) {
                           return selection.calendarIdentifier == occurrence.calendar.identifier;
                       });
}

} // namespace

template <class Excluded>
bool MeetingPolicy::passesRules(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                               const Excluded& isExcluded)
{
    if (occurrence.isAllDay || occurrence.isCanceled ||
        occurrence.participationStatus == MeetingParticipationStatus::declined) {
        return false;
    }
    if (!(occurrence.endDate > occurrence.startDate)) {
        return false;
    }
    if (!isInSelectedCalendar(occurrence, settings) || isExcluded(occurrence.identity)) {
        return false;
    }
    switch (settings.eligibilityMode) {
    case EligibilityMode::allTimedEvents:
        return true;
    case EligibilityMode::meetingLike:
        return occurrence.hasAttendees || occurrence.meetingURL.has_value();
    }
    return false;
}

bool MeetingPolicy::isEligible(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                               const ExclusionMatcher& exclusions) const
{
    return passesRules(occurrence, settings,
                      [&](const MeetingIdentity& identity) { return exclusions.isExcluded(identity); });
}

bool MeetingPolicy::isEligible(const MeetingOccurrence& occurrence, const NotifierSettings& settings,
                               std::span<const ExclusionRecord> exclusions) const
{
    return passesRules(occurrence, settings, [&](const MeetingIdentity& identity) {
        return ExclusionMatcher::firstMatch(exclusions, identity) != nullptr;
    });
}

} // namespace orvane
