// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The writes of the crash writer, shared by the writer program and by the test that replays them to know every state
// the settings file may be left in.

#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"

#include <array>

namespace orvane::crashwriter {

inline MeetingIdentity identityOfStep(qint64 step, int meeting)
{
    const Date start{780'000'000.0 + double(step) * 60};
    return {.sourceIdentifier = QStringLiteral("crash@example.com"),
            .calendarIdentifier = QStringLiteral("calendar"),
            .seriesIdentifier = QStringLiteral("external:meeting-%1-%2").arg(step).arg(meeting),
            .occurrenceStart = start,
            .scheduledStart = start};
}

/// The step that wrote these settings: their one selected calendar is named after it. 0 before the first.
inline qint64 stepOf(const NotifierSettings& settings)
{
    if (!settings.selectedCalendars || settings.selectedCalendars->empty()) {
        return 0;
    }
    return settings.selectedCalendars->front().calendarIdentifier.mid(5).toLongLong();
}

/// Step `step`: one durable write to each record, settings first, then exclusions, then the reminder history.
inline void writeStep(qint64 step, SettingsStore& settings, ExclusionStore& exclusions, DeliveryStore& delivery)
{
    static constexpr std::array leadTimes{0.0, 60.0, 300.0, 899.5, 7200.0};
    settings.save({.alertLeadTime = leadTimes[std::size_t(step) % leadTimes.size()],
                   .selectedCalendars = std::vector<CalendarSelectionRecord>{{QStringLiteral("step-%1").arg(step)}}});

    if (step % 3 == 0 && !exclusions.records().empty()) {
        // Every third step drops the two oldest exclusions, so that the record neither grows nor stays alike.
        QSet<QUuid> oldest;
        for (std::size_t index = 0; index < std::min<std::size_t>(2, exclusions.records().size()); ++index) {
            oldest.insert(exclusions.records()[index].id);
        }
        exclusions.remove(oldest);
    } else {
        exclusions.add({.id = QUuid(uint(step), 0, 0, 0, 0, 0, 0, 0, 0, 0, 1),
                        .identity = identityOfStep(step, 0),
                        .scope = step % 2 == 0 ? ExclusionScope::series : ExclusionScope::occurrence,
                        .createdAt = Date{double(step)},
                        .eventTitle = QStringLiteral("Meeting of step %1").arg(step)});
    }

    const Date now{double(step)};
    switch (step % 3) {
    case 0:
        delivery.prepareDeliveries(std::array{DeliveryRecord{identityOfStep(step, 1), now, {}, now},
                                              DeliveryRecord{identityOfStep(step, 2), now, {}, now}});
        break;
    case 1: {
        std::vector<DeliveryKey> pending;
        for (const auto& record : delivery.records()) {
            if (record.status == DeliveryStatus::pending) {
                pending.push_back(record.id());
            }
        }
        delivery.confirmDeliveries(pending, now);
        break;
    }
    default:
        delivery.prune(now - 12, now);
        break;
    }
}

} // namespace orvane::crashwriter
