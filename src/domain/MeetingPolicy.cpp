// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingPolicy.h"

#include <QtGlobal>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

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
    std::stable_sort(eligible.begin(), eligible.end(),
                     [](const MeetingOccurrence* lhs, const MeetingOccurrence* rhs) { return occursBefore(*lhs, *rhs); });

    MeetingSchedule schedule;
    const std::size_t listed = std::min(eligible.size(), MeetingSchedule::upcomingLimit);
    schedule.upcoming.reserve(listed);
    for (std::size_t index = 0; index < listed; ++index) {
        schedule.upcoming.push_back(*eligible[index]);
    }

    std::unordered_set<DeliveryKey> delivered;
    for (const auto& record : deliveries) {
        if (record.status == DeliveryStatus::confirmed) {
            delivered.insert(record.id());
        }
    }
    std::unordered_map<MeetingIdentity, Date> snoozedUntil;
    for (const auto& snooze : snoozes) {
        snoozedUntil.insert_or_assign(snooze.identity, snooze.snoozedUntil);
    }

    const Date lateLimit = now - MeetingSchedule::lateDeliveryGrace;
    std::vector<ScheduledAlert> alerts;
    for (const auto* occurrence : eligible) {
        ScheduledAlert alert{*occurrence, occurrence->startDate - settings.alertLeadTime, AlertReason::initial};
        if (const auto snooze = snoozedUntil.find(occurrence->identity); snooze != snoozedUntil.end()) {
            alert.triggerDate = snooze->second;
            alert.reason = AlertReason::snoozed;
            if (alert.triggerDate < lateLimit) {
                continue;
            }
        } else if (occurrence->startDate < lateLimit) {
            continue;
        }
        if (delivered.contains(DeliveryKey{occurrence->identity, alert.triggerDate})) {
            continue;
        }
        alerts.push_back(std::move(alert));
    }
    // The alerts are in occurrence order already, so a stable sort by trigger date gives alert order.
    std::stable_sort(alerts.begin(), alerts.end(),
                     [](const ScheduledAlert& lhs, const ScheduledAlert& rhs) { return lhs.triggerDate < rhs.triggerDate; });

    auto alert = alerts.begin();
    for (; alert != alerts.end() && alert->triggerDate <= now; ++alert) {
        if (schedule.dueBatches.empty() || schedule.dueBatches.back().triggerDate != alert->triggerDate) {
            schedule.dueBatches.push_back({alert->triggerDate, {}});
        }
        schedule.dueBatches.back().alerts.push_back(std::move(*alert));
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
