// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingPolicy.h"

#include <QtGlobal>

#include <algorithm>
#include <unordered_map>

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

bool MeetingPolicy::occursBefore(const MeetingOccurrence& lhs, const MeetingOccurrence& rhs)
{
    if (lhs.startDate != rhs.startDate) {
        return lhs.startDate < rhs.startDate;
    }
    if (lhs.endDate != rhs.endDate) {
        return lhs.endDate < rhs.endDate;
    }
    if (lhs.calendar.identifier != rhs.calendar.identifier) {
        return lhs.calendar.identifier < rhs.calendar.identifier;
    }
    return lhs.identity.seriesIdentifier < rhs.identity.seriesIdentifier;
}

MeetingSchedule MeetingPolicy::makeSchedule(std::span<const MeetingOccurrence> occurrences,
                                            const NotifierSettings& settings, const ExclusionMatcher& exclusions,
                                            std::span<const DeliveryRecord> deliveries,
                                            std::span<const SnoozeRecord> snoozes, Date now) const
{
    std::vector<const MeetingOccurrence*> eligible;
    eligible.reserve(occurrences.size());
    for (const auto& occurrence : occurrences) {
        if (isEligible(occurrence, settings, exclusions) && occurrence.endDate > now) {
            eligible.push_back(&occurrence);
        }
    }
    std::stable_sort(eligible.begin(), eligible.end(), [](const MeetingOccurrence* lhs, const MeetingOccurrence* rhs) {
        return occursBefore(*lhs, *rhs);
    });

    MeetingSchedule schedule;
    const std::size_t listed = std::min(eligible.size(), MeetingSchedule::upcomingLimit);
    schedule.upcoming.reserve(listed);
    for (std::size_t index = 0; index < listed; ++index) {
        schedule.upcoming.push_back(*eligible[index]);
    }

    // An identity hashes slowly (five strings), so both histories are indexed by a date, and identities are compared
    // only among the few records that share it.
    std::unordered_multimap<Date, const MeetingIdentity*> confirmedByTrigger;
    for (const auto& record : deliveries) {
        if (record.status == DeliveryStatus::confirmed) {
            confirmedByTrigger.emplace(record.triggerDate, &record.identity);
        }
    }
    const auto isDelivered = [&](const MeetingIdentity& identity, Date triggerDate) {
        const auto [first, last] = confirmedByTrigger.equal_range(triggerDate);
        return std::any_of(first, last, [&](const auto& entry) { return *entry.second == identity; });
    };
    std::unordered_multimap<Date, const SnoozeRecord*> snoozesByStart;
    for (const auto& snooze : snoozes) {
        snoozesByStart.emplace(snooze.identity.occurrenceStart, &snooze);
    }
    // When several records carry the identity, the one later in the list wins.
    const auto snoozeOf = [&](const MeetingIdentity& identity) {
        const SnoozeRecord* latest = nullptr;
        const auto [first, last] = snoozesByStart.equal_range(identity.occurrenceStart);
        for (auto entry = first; entry != last; ++entry) {
            if (entry->second->identity == identity && (latest == nullptr || entry->second > latest)) {
                latest = entry->second;
            }
        }
        return latest;
    };

    // Alerts are kept as references until they are known to be due: most are not, and copying every occurrence of
    // the week (and moving the copies while sorting) would cost more than the rest of the computation.
    struct Candidate {
        const MeetingOccurrence* occurrence;
        Date triggerDate;
        AlertReason reason;
    };
    const Date lateLimit = now - MeetingSchedule::lateDeliveryGrace;
    std::vector<Candidate> alerts;
    alerts.reserve(eligible.size());
    for (const auto* occurrence : eligible) {
        Candidate alert{occurrence, occurrence->startDate - settings.alertLeadTime, AlertReason::initial};
        if (const SnoozeRecord* snooze = snoozeOf(occurrence->identity)) {
            alert.triggerDate = snooze->snoozedUntil;
            alert.reason = AlertReason::snoozed;
            if (alert.triggerDate < lateLimit) {
                continue;
            }
        } else if (occurrence->startDate < lateLimit) {
            continue;
        }
        if (isDelivered(occurrence->identity, alert.triggerDate)) {
            continue;
        }
        alerts.push_back(alert);
    }
    // The alerts are in occurrence order already, so a stable sort by trigger date gives alert order.
    std::stable_sort(alerts.begin(), alerts.end(),
                     [](const Candidate& lhs, const Candidate& rhs) { return lhs.triggerDate < rhs.triggerDate; });

    auto alert = alerts.begin();
    for (; alert != alerts.end() && alert->triggerDate <= now; ++alert) {
        if (schedule.dueBatches.empty() || schedule.dueBatches.back().triggerDate != alert->triggerDate) {
            schedule.dueBatches.push_back({alert->triggerDate, {}});
        }
        schedule.dueBatches.back().alerts.push_back({*alert->occurrence, alert->triggerDate, alert->reason});
    }
    if (alert != alerts.end()) {
        schedule.nextTriggerDate = alert->triggerDate;
    }
    for (const auto& batch : schedule.dueBatches) {
        for (const auto& member : batch.alerts) {
            // Shown together means due together: anything else would show a meeting at the wrong moment.
            if (member.triggerDate != batch.triggerDate) {
                qFatal("An alert batch holds an alert with another trigger date");
            }
        }
    }
    return schedule;
}

} // namespace orvane
