// SPDX-License-Identifier: GPL-3.0-or-later
#include "scheduling/AlertScheduler.h"

#include "domain/Overloaded.h"
#include "persistence/PersistenceStoreError.h"

#include <QPointer>
#include <QUuid>

#include <algorithm>
#include <cmath>

namespace orvane {

namespace {

DeliveryKey keyOf(const ScheduledAlert& alert)
{
    return {alert.occurrence.identity, alert.triggerDate};
}

bool contains(std::span<const MeetingIdentity> identities, const MeetingIdentity& identity)
{
    return std::find(identities.begin(), identities.end(), identity) != identities.end();
}

} // namespace

double AlertScheduler::retryDelay(int consecutiveFailures)
{
    const int exponent = std::clamp(consecutiveFailures - 1, 0, 16);
    return std::min(60.0 * std::pow(2.0, exponent), 900.0);
}

AlertScheduler::AlertScheduler(CalendarProviding& calendarProvider, SettingsStoring& settingsStore,
                               ExclusionStoring& exclusionStore, DeliveryStoring& deliveryStore,
                               AlertTimerScheduling& timerScheduler, const Clock& clock, MeetingPolicy policy,
                               QObject* parent)
    : QObject(parent)
    , m_calendarProvider(calendarProvider)
    , m_settingsStore(settingsStore)
    , m_exclusionStore(exclusionStore)
    , m_deliveryStore(deliveryStore)
    , m_timerScheduler(timerScheduler)
    , m_clock(clock)
    , m_policy(policy)
{
}

AlertScheduler::~AlertScheduler()
{
    stop();
}

void AlertScheduler::setEventHandler(std::function<void(const AlertSchedulerEvent&)> handler)
{
    m_onEvent = std::move(handler);
}

void AlertScheduler::setIdentityReconciler(CalendarIdentityReconciling* reconciler)
{
    m_reconciler = reconciler;
}

QCoro::Task<> AlertScheduler::start()
{
    m_started = true;
    listenForChanges();
    co_await refresh();
}

void AlertScheduler::stop()
{
    m_started = false;
    cancelTimer();
    QObject::disconnect(m_changeConnection);
}

void AlertScheduler::listenForChanges()
{
    if (m_started && !m_changeConnection) {
        m_changeConnection =
            connect(&m_calendarProvider, &CalendarProviding::changed, this, &AlertScheduler::startRefresh);
    }
}

void AlertScheduler::startRefresh()
{
    // Fire and forget: the task keeps itself alive until it finishes, and refresh() never throws.
    refresh();
}

AlertSchedulerSnapshot AlertScheduler::snapshot() const
{
    return {m_upcoming, m_activeBatches, m_nextTriggerDate, m_isRefreshing};
}

std::optional<MeetingOccurrence> AlertScheduler::next() const
{
    if (m_upcoming.empty()) {
        return std::nullopt;
    }
    return m_upcoming.front();
}

std::vector<PersistenceIssue> AlertScheduler::persistenceIssues() const
{
    std::vector<PersistenceIssue> issues;
    const std::pair<PersistenceComponent, const PersistenceReadState*> states[] = {
        {PersistenceComponent::settings, &m_settingsStore.readState()},
        {PersistenceComponent::exclusions, &m_exclusionStore.readState()},
        {PersistenceComponent::delivery, &m_deliveryStore.readState()},
    };
    for (const auto& [component, state] : states) {
        if (auto failure = state->failure()) {
            issues.push_back({component, *failure});
        }
    }
    return issues;
}

void AlertScheduler::suspend()
{
    m_suspended = true;
    cancelTimer();
}

void AlertScheduler::resume()
{
    m_suspended = false;
    startRefresh();
}

void AlertScheduler::clockDidChange()
{
    if (m_suspended) {
        return;
    }
    if (m_isRefreshing) {
        m_clockChangedDuringRefresh = true;
        return;
    }
    startRefresh();
}

QCoro::Task<> AlertScheduler::refresh()
{
    if (m_suspended) {
        co_return;
    }
    cancelTimer();
    m_nextTriggerDate.reset();
    m_clockChangedDuringRefresh = false;

    if (const auto issues = persistenceIssues(); !issues.empty()) {
        pause(issues);
        co_return;
    }
    listenForChanges();
    m_isRefreshing = true;
    emitStateChanged();

    const NotifierSettings settings = m_settingsStore.settings();
    const Date started = m_clock.now();
    try {
        m_deliveryStore.prune(started - deliveryRetention, started - MeetingSchedule::lateDeliveryGrace);
        succeeded(AlertSchedulerFailure::Operation::pruningHistory);
    } catch (...) {
        emitFailure(AlertSchedulerFailure::Operation::pruningHistory);
    }
    recordUnrecordedHistory(started);

    const quint64 generation = ++m_refreshGeneration;
    const QPointer<AlertScheduler> self(this);
    std::vector<MeetingOccurrence> occurrences;
    bool fetched = true;
    try {
        occurrences = co_await m_calendarProvider.occurrences(FetchInterval::around(started));
    } catch (...) {
        fetched = false;
        if (self && generation == m_refreshGeneration) {
            ++m_consecutiveFetchFailures;
            arm(m_clock.now() + retryDelay(m_consecutiveFetchFailures));
            m_isRefreshing = false;
            emitStateChanged();
            emitFailure(AlertSchedulerFailure::Operation::fetchingMeetings);
        }
    }
    // A newer refresh (or a pause) started while this one waited: its result is the one that counts.
    if (!self || generation != m_refreshGeneration) {
        co_return;
    }
    // The clock was set during the fetch: the schedule below reads the new time, and the fetch window (which
    // looks a minute back) still fits unless the clock moved further than that.
    if (std::exchange(m_clockChangedDuringRefresh, false) &&
        std::abs(m_clock.now() - started) > MeetingSchedule::lateDeliveryGrace) {
        startRefresh();
        co_return;
    }
    if (!fetched) {
        co_return;
    }

    m_consecutiveFetchFailures = 0;
    succeeded(AlertSchedulerFailure::Operation::fetchingMeetings);
    const Date now = m_clock.now();
    const auto schedule = m_policy.makeSchedule(occurrences, settings, m_exclusionStore.matcher(),
                                                effectiveDeliveries(), effectiveSnoozes(), now);
    m_upcoming = schedule.upcoming;

    if (m_reconciler != nullptr) {
        try {
            m_reconciler->reconcile(occurrences);
            succeeded(AlertSchedulerFailure::Operation::reconcilingPersistence);
        } catch (...) {
            emitFailure(AlertSchedulerFailure::Operation::reconcilingPersistence);
        }
    }

    handOut(schedule, now);
    // Whoever received the due batches may have started a newer refresh; it has armed the timer already.
    if (!self || generation != m_refreshGeneration) {
        co_return;
    }
    arm(schedule.nextTriggerDate.value_or(now + idleWakeUp));
    m_nextTriggerDate = schedule.nextTriggerDate;
    m_isRefreshing = false;
    emitStateChanged();
    emitEvent({AlertSchedulerEvent::RefreshSucceeded{}});
}

void AlertScheduler::handOut(const MeetingSchedule& schedule, Date now)
{
    std::unordered_set<DeliveryKey> alreadyOut = m_awaitingSurface;
    for (const auto& batch : m_activeBatches) {
        for (const auto& alert : batch.alerts) {
            alreadyOut.insert(keyOf(alert));
        }
    }

    // A batch already on screen (or held back until the display returns) is not handed out a second time: only
    // its pending delivery, not a confirmed one, exists until the user acts.
    std::vector<AlertBatch> due;
    std::vector<DeliveryRecord> pending;
    for (const auto& batch : schedule.dueBatches) {
        AlertBatch fresh{batch.triggerDate, {}};
        for (const auto& alert : batch.alerts) {
            if (!alreadyOut.contains(keyOf(alert))) {
                fresh.alerts.push_back(alert);
                pending.push_back({alert.occurrence.identity, alert.triggerDate, DeliveryStatus::pending, now});
            }
        }
        if (!fresh.alerts.empty()) {
            due.push_back(std::move(fresh));
        }
    }
    if (due.empty()) {
        return;
    }
    // A meeting missed is worse than a reminder not recorded: when the store refuses the pending records, the
    // alerts are shown all the same, and their confirmation is kept in memory until it can be written.
    try {
        m_deliveryStore.prepareDeliveries(pending);
    } catch (...) {
        emitFailure(AlertSchedulerFailure::Operation::recordingDelivery);
    }
    m_activeBatches.insert(m_activeBatches.end(), due.begin(), due.end());
    for (auto& batch : due) {
        emitEvent({AlertSchedulerEvent::AlertsDue{std::move(batch)}});
    }
}

void AlertScheduler::pause(const std::vector<PersistenceIssue>& issues)
{
    // Invalidate any fetch still in flight: its result must not arm a timer while paused.
    ++m_refreshGeneration;
    m_consecutiveFetchFailures = 0;
    QObject::disconnect(m_changeConnection);
    m_upcoming.clear();
    m_activeBatches.clear();
    m_isRefreshing = false;
    emitStateChanged();
    for (const auto& issue : issues) {
        emitEvent({AlertSchedulerEvent::Failed{
            {AlertSchedulerFailure::Operation::readingPersistence, issue.failure.message(), issue, nullptr}}});
    }
}

void AlertScheduler::arm(Date wakeDate)
{
    cancelTimer();
    m_timerToken = m_timerScheduler.schedule(wakeDate, [self = QPointer<AlertScheduler>(this)] {
        if (self) {
            self->startRefresh();
        }
    });
}

void AlertScheduler::cancelTimer()
{
    if (m_timerToken) {
        m_timerToken->cancel();
        m_timerToken.reset();
    }
}

void AlertScheduler::acknowledgePresentation(const AlertBatch& batch, bool presented)
{
    std::vector<DeliveryKey> keys;
    keys.reserve(batch.alerts.size());
    for (const auto& alert : batch.alerts) {
        keys.push_back(keyOf(alert));
    }
    const Date now = m_clock.now();
    try {
        if (presented) {
            m_deliveryStore.confirmDeliveries(keys, now);
        } else {
            m_deliveryStore.discardPendingDeliveries(keys);
        }
        recordingSucceeded();
    } catch (...) {
        if (presented) {
            for (const auto& key : keys) {
                m_unrecordedDeliveries.push_back({key.identity, key.triggerDate, DeliveryStatus::confirmed, now});
            }
        }
        emitFailure(AlertSchedulerFailure::Operation::recordingDelivery);
    }
    if (!presented) {
        m_awaitingSurface.insert(keys.begin(), keys.end());
        const std::unordered_set<DeliveryKey> withdrawn(keys.begin(), keys.end());
        removeActive([&](const ScheduledAlert& alert) { return withdrawn.contains(keyOf(alert)); });
        emitStateChanged();
    }
}

void AlertScheduler::presentationSurfaceDidBecomeAvailable()
{
    if (m_awaitingSurface.empty()) {
        return;
    }
    m_awaitingSurface.clear();
    startRefresh();
}

void AlertScheduler::requireActionable(std::span<const MeetingIdentity> identities) const
{
    if (auto issues = persistenceIssues(); !issues.empty()) {
        throw AlertSchedulerActionError(AlertSchedulerActionError::PersistenceRecoveryRequired{std::move(issues)});
    }
    for (const auto& identity : identities) {
        const bool active = std::any_of(m_activeBatches.begin(), m_activeBatches.end(), [&](const AlertBatch& batch) {
            return std::any_of(batch.alerts.begin(), batch.alerts.end(),
                               [&](const ScheduledAlert& alert) { return alert.occurrence.identity == identity; });
        });
        if (!active) {
            throw AlertSchedulerActionError(AlertSchedulerActionError::OccurrenceIsNotActive{});
        }
    }
}

void AlertScheduler::removeActive(const std::function<bool(const ScheduledAlert&)>& leaves)
{
    for (auto& batch : m_activeBatches) {
        std::erase_if(batch.alerts, leaves);
    }
    std::erase_if(m_activeBatches, [](const AlertBatch& batch) { return batch.alerts.empty(); });
}

void AlertScheduler::dismiss(std::span<const MeetingIdentity> identities)
{
    requireActionable(identities);
    // The alerts leave first: a dismissed meeting must not come back, whatever the store says afterwards.
    removeActive([&](const ScheduledAlert& alert) { return contains(identities, alert.occurrence.identity); });
    // Nor may it come back from a snooze set before.
    std::vector<MeetingIdentity> snoozed;
    std::copy_if(identities.begin(), identities.end(), std::back_inserter(snoozed),
                 [this](const MeetingIdentity& identity) { return isSnoozed(identity); });
    if (!snoozed.empty()) {
        changeSnoozes(snoozed, std::nullopt, m_clock.now());
    }
    emitStateChanged();
}

void AlertScheduler::snoozeFor(std::span<const MeetingIdentity> identities, double seconds)
{
    snoozeUntil(identities, m_clock.now() + seconds);
}

void AlertScheduler::snoozeUntil(std::span<const MeetingIdentity> identities, Date end)
{
    requireActionable(identities);
    const Date now = m_clock.now();
    if (end <= now) {
        throw AlertSchedulerActionError(AlertSchedulerActionError::SnoozeMustBeInTheFuture{});
    }
    removeActive([&](const ScheduledAlert& alert) { return contains(identities, alert.occurrence.identity); });
    changeSnoozes(identities, SnoozeRecord{{}, end, now}, now);
    emitStateChanged();
    startRefresh();
}

void AlertScheduler::exclude(const MeetingIdentity& identity, ExclusionScope scope)
{
    requireActionable(std::span(&identity, 1));
    std::optional<MeetingOccurrence> occurrence;
    for (const auto& batch : m_activeBatches) {
        for (const auto& alert : batch.alerts) {
            if (alert.occurrence.identity == identity) {
                occurrence = alert.occurrence;
            }
        }
    }
    const ExclusionRecord record{.id = QUuid::createUuid(),
                                 .identity = identity,
                                 .scope = scope,
                                 .createdAt = m_clock.now(),
                                 .eventTitle = occurrence->title,
                                 .calendarTitle = occurrence->calendar.title};
    // The alert goes whether or not the exclusion can be stored: the user answered it, and a refused write is
    // reported to them by the exception.
    removeActive(
        [&](const ScheduledAlert& alert) { return ExclusionMatcher::matches(record, alert.occurrence.identity); });
    emitStateChanged();
    m_exclusionStore.add(record);
    if (isSnoozed(identity)) {
        changeSnoozes(std::span(&identity, 1), std::nullopt, m_clock.now());
    }
    startRefresh();
}

void AlertScheduler::emitEvent(AlertSchedulerEvent event)
{
    if (m_onEvent) {
        m_onEvent(event);
    }
}

void AlertScheduler::emitStateChanged()
{
    emitEvent({AlertSchedulerEvent::StateChanged{snapshot()}});
}

void AlertScheduler::emitFailure(AlertSchedulerFailure::Operation operation)
{
    m_failing.insert(operation);
    emitEvent({AlertSchedulerEvent::Failed{AlertSchedulerFailure::fromCurrentException(operation)}});
}

void AlertScheduler::succeeded(AlertSchedulerFailure::Operation operation)
{
    if (m_failing.erase(operation) > 0) {
        emitEvent({AlertSchedulerEvent::Recovered{operation}});
    }
}

void AlertScheduler::recordingSucceeded()
{
    // Recording works again only once nothing is left in memory alone.
    if (!hasUnrecordedHistory()) {
        succeeded(AlertSchedulerFailure::Operation::recordingDelivery);
    }
}

bool AlertScheduler::isSnoozed(const MeetingIdentity& identity) const
{
    const auto held = m_snoozeOverrides.find(identity);
    return held != m_snoozeOverrides.end() ? held->second.has_value()
                                           : m_deliveryStore.snoozeRecord(identity).has_value();
}

std::vector<SnoozeRecord> AlertScheduler::effectiveSnoozes() const
{
    if (m_snoozeOverrides.empty()) {
        return m_deliveryStore.snoozes();
    }
    std::vector<SnoozeRecord> snoozes;
    for (const auto& snooze : m_deliveryStore.snoozes()) {
        if (!m_snoozeOverrides.contains(snooze.identity)) {
            snoozes.push_back(snooze);
        }
    }
    for (const auto& [identity, snooze] : m_snoozeOverrides) {
        if (snooze) {
            snoozes.push_back(*snooze);
        }
    }
    return snoozes;
}

std::vector<DeliveryRecord> AlertScheduler::effectiveDeliveries() const
{
    std::vector<DeliveryRecord> records = m_deliveryStore.records();
    records.insert(records.end(), m_unrecordedDeliveries.begin(), m_unrecordedDeliveries.end());
    return records;
}

void AlertScheduler::changeSnoozes(std::span<const MeetingIdentity> identities,
                                   const std::optional<SnoozeRecord>& snooze, Date now)
{
    for (const auto& identity : identities) {
        m_snoozeOverrides[identity] =
            snooze ? std::optional(SnoozeRecord{identity, snooze->snoozedUntil, snooze->createdAt}) : std::nullopt;
    }
    recordUnrecordedHistory(now);
}

void AlertScheduler::recordUnrecordedHistory(Date now)
{
    // History older than what the store keeps would be pruned at once.
    std::erase_if(m_unrecordedDeliveries,
                  [&](const DeliveryRecord& record) { return record.deliveredAt < now - deliveryRetention; });
    if (!hasUnrecordedHistory()) {
        return;
    }
    try {
        while (!m_unrecordedDeliveries.empty()) {
            const Date shownAt = m_unrecordedDeliveries.front().deliveredAt;
            std::vector<DeliveryKey> keys;
            for (const auto& record : m_unrecordedDeliveries) {
                if (record.deliveredAt == shownAt) {
                    keys.push_back(record.id());
                }
            }
            m_deliveryStore.confirmDeliveries(keys, shownAt);
            std::erase_if(m_unrecordedDeliveries,
                          [&](const DeliveryRecord& record) { return record.deliveredAt == shownAt; });
        }
        if (!m_snoozeOverrides.empty()) {
            m_deliveryStore.setSnoozes(effectiveSnoozes());
            m_snoozeOverrides.clear();
        }
    } catch (...) {
        emitFailure(AlertSchedulerFailure::Operation::recordingDelivery);
        return;
    }
    recordingSucceeded();
}

} // namespace orvane
