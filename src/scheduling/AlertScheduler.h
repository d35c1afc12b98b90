// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionScope.h"
#include "domain/MeetingPolicy.h"
#include "persistence/DeliveryStoring.h"
#include "persistence/ExclusionStoring.h"
#include "persistence/SettingsStoring.h"
#include "scheduling/AlertSchedulerEvent.h"
#include "scheduling/AlertTimerScheduling.h"
#include "scheduling/CalendarIdentityReconciling.h"
#include "scheduling/CalendarProviding.h"
#include "scheduling/Clock.h"

#include <QMetaObject>
#include <QObject>
#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <set>
#include <span>
#include <unordered_map>
#include <unordered_set>

namespace orvane {

/// Turns the schedule into behaviour over time: fetches, computes, hands due batches to its owner, records what
/// the user did with an alert, prunes history and arms one timer for the next moment anything can change.
///
/// Lives on the main thread. A refresh suspends only while the calendars are fetched; when refreshes overlap, the
/// last one started wins. Failures never escape a refresh: they become `failed` events.
class AlertScheduler : public QObject {
    Q_OBJECT

public:
    /// Reminder history is kept this long (30 days).
    static constexpr double deliveryRetention = 2'592'000;
    /// With nothing scheduled, the scheduler still wakes after a day, when the fetch window has moved on.
    static constexpr double idleWakeUp = 86'400;

    /// Seconds to wait after `consecutiveFailures` failed fetches: 60, 120, 240, 480, then 900.
    static double retryDelay(int consecutiveFailures);

    AlertScheduler(CalendarProviding& calendarProvider, SettingsStoring& settingsStore,
                   ExclusionStoring& exclusionStore, DeliveryStoring& deliveryStore,
                   AlertTimerScheduling& timerScheduler, const Clock& clock, MeetingPolicy policy = {},
                   QObject* parent = nullptr);
    ~AlertScheduler() override;

    /// Receives every event; set once by the owner before start().
    void setEventHandler(std::function<void(const AlertSchedulerEvent&)> handler);
    /// Re-matches stored records after each successful fetch (optional).
    void setIdentityReconciler(CalendarIdentityReconciling* reconciler);

    /// Starts listening for calendar changes and runs the first refresh.
    QCoro::Task<> start();
    /// Cancels the timer and stops listening for calendar changes.
    void stop();
    /// One full pass: read, prune, fetch, compute, hand out due batches, arm the timer. Does nothing while suspended.
    QCoro::Task<> refresh();

    /// The machine is going to sleep: the timer is cancelled, and every refresh asked for until resume() is one
    /// refresh then (resuming fires the wall-clock timers and reports the clock as set, as well as waking).
    void suspend();
    /// The machine woke: refreshes once.
    void resume();
    /// The wall clock was set. A refresh in flight settles it when its fetch window still fits the new time;
    /// otherwise (or with none in flight) the scheduler refreshes.
    void clockDidChange();

    const std::vector<MeetingOccurrence>& upcoming() const { return m_upcoming; }
    const std::vector<AlertBatch>& activeBatches() const { return m_activeBatches; }
    /// The alert date the timer is armed for; absent while idle or paused.
    std::optional<Date> nextTriggerDate() const { return m_nextTriggerDate; }
    bool isRefreshing() const { return m_isRefreshing; }
    AlertSchedulerSnapshot snapshot() const;
    /// The first upcoming meeting.
    std::optional<MeetingOccurrence> next() const;
    /// The unreadable records that pause alerts, in the order settings, exclusions, delivery.
    std::vector<PersistenceIssue> persistenceIssues() const;
    /// Whether shown alerts or snoozes are held in memory only, because the delivery store refused to write them.
    bool hasUnrecordedHistory() const { return !m_unrecordedDeliveries.empty() || !m_snoozeOverrides.empty(); }

    /// The owner reports whether it could show a batch it received. Shown: its alerts are confirmed and never shown
    /// again. Not shown: they are forgotten and offered again once presentationSurfaceDidBecomeAvailable() is
    /// called, while their meetings are still within the late-delivery grace.
    void acknowledgePresentation(const AlertBatch& batch, bool presented);
    /// The display can show alerts again.
    void presentationSurfaceDidBecomeAvailable();

    /// User actions on active alerts. Each throws AlertSchedulerActionError, and exclude() a PersistenceStoreError
    /// when the exclusion could not be stored. The alerts leave the active batches before anything is written: a
    /// dismiss or snooze that cannot be recorded still takes effect for this session and is reported as a
    /// `recordingDelivery` failure, written as soon as the store accepts writes again.
    void dismiss(std::span<const MeetingIdentity> identities);
    void snoozeFor(std::span<const MeetingIdentity> identities, double seconds);
    void snoozeUntil(std::span<const MeetingIdentity> identities, Date end);
    void exclude(const MeetingIdentity& identity, ExclusionScope scope);

private:
    void startRefresh();
    void pause(const std::vector<PersistenceIssue>& issues);
    void arm(Date wakeDate);
    void cancelTimer();
    void handOut(const MeetingSchedule& schedule, Date now);
    void requireActionable(std::span<const MeetingIdentity> identities) const;
    /// Takes the alerts `leaves` selects out of the active batches, dropping emptied batches.
    void removeActive(const std::function<bool(const ScheduledAlert&)>& leaves);
    void emitEvent(AlertSchedulerEvent event);
    void emitStateChanged();
    void emitFailure(AlertSchedulerFailure::Operation operation);
    /// Reports `operation` recovered if its last attempt had failed.
    void succeeded(AlertSchedulerFailure::Operation operation);
    void listenForChanges();
    /// Writes what could not be written before; keeps it in memory when the store still refuses.
    void recordUnrecordedHistory(Date now);
    void recordingSucceeded();
    /// The stored snoozes with the ones held in memory applied.
    std::vector<SnoozeRecord> effectiveSnoozes() const;
    /// Whether a snooze is held for this meeting, in memory or in the store.
    bool isSnoozed(const MeetingIdentity& identity) const;
    /// The stored deliveries with the ones held in memory.
    std::vector<DeliveryRecord> effectiveDeliveries() const;
    /// Stores the snoozes of `identities` (absent: cleared), or keeps them in memory and reports the failure.
    void changeSnoozes(std::span<const MeetingIdentity> identities, const std::optional<SnoozeRecord>& snooze,
                       Date now);

    CalendarProviding& m_calendarProvider;
    SettingsStoring& m_settingsStore;
    ExclusionStoring& m_exclusionStore;
    DeliveryStoring& m_deliveryStore;
    AlertTimerScheduling& m_timerScheduler;
    const Clock& m_clock;
    MeetingPolicy m_policy;
    CalendarIdentityReconciling* m_reconciler = nullptr;
    std::function<void(const AlertSchedulerEvent&)> m_onEvent;

    std::vector<MeetingOccurrence> m_upcoming;
    std::vector<AlertBatch> m_activeBatches;
    std::optional<Date> m_nextTriggerDate;
    bool m_isRefreshing = false;

    std::unique_ptr<AlertTimerToken> m_timerToken;
    QMetaObject::Connection m_changeConnection;
    bool m_started = false;
    bool m_suspended = false;
    /// The clock was set while a refresh was fetching.
    bool m_clockChangedDuringRefresh = false;
    quint64 m_refreshGeneration = 0;
    int m_consecutiveFetchFailures = 0;
    /// Alerts that could not be shown, held back until the display is available again.
    std::unordered_set<DeliveryKey> m_awaitingSurface;
    /// Background operations whose last attempt failed, so that the first success afterwards is reported.
    std::set<AlertSchedulerFailure::Operation> m_failing;
    /// Alerts shown while the delivery store refused to write (a full disk, a read-only home): a missed meeting is
    /// worse than an unrecorded one, so they were shown anyway, and these confirmed records keep them from showing
    /// twice until they can be written.
    std::vector<DeliveryRecord> m_unrecordedDeliveries;
    /// Snoozes set or cleared while the store refused to write, by meeting; absent: cleared.
    std::unordered_map<MeetingIdentity, std::optional<SnoozeRecord>> m_snoozeOverrides;
};

} // namespace orvane
