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

QCoro::Task<> AlertScheduler::refresh()
{
    cancelTimer();
    m_nextTriggerDate.reset();

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
    } catch (...) {
        emitFailure(AlertSchedulerFailure::Operation::pruningHistory);
    }

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
    if (!fetched || !self || generation != m_refreshGeneration) {
        co_return;
    }

    m_consecutiveFetchFailures = 0;
    const Date now = m_clock.now();
    const auto schedule = m_policy.makeSchedule(occurrences, settings, m_exclusionStore.matcher(),
                                                m_deliveryStore.records(), m_deliveryStore.snoozes(), now);
    m_upcoming = schedule.upcoming;

    if (m_reconciler != nullptr) {
        try {
            m_reconciler->reconcile(occurrences);
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
    try {
        m_deliveryStore.prepareDeliveries(pending);
    } catch (...) {
        emitFailure(AlertSchedulerFailure::Operation::recordingDelivery);
        return;
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
    try {
        if (presented) {
            m_deliveryStore.confirmDeliveries(keys, m_clock.now());
        } else {
            m_deliveryStore.discardPendingDeliveries(keys);
        }
    } catch (...) {
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
    // A dismissed meeting must not come back from a snooze set before.
    std::vector<MeetingIdentity> snoozed;
    for (const auto& identity : identities) {
        if (m_deliveryStore.snoozeRecord(identity)) {
            snoozed.push_back(identity);
        }
    }
    if (!snoozed.empty()) {
        m_deliveryStore.clearSnoozes(snoozed);
    }
    removeActive([&](const ScheduledAlert& alert) { return contains(identities, alert.occurrence.identity); });
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
    std::vector<SnoozeRecord> snoozes;
    for (const auto& snooze : m_deliveryStore.snoozes()) {
        if (!contains(identities, snooze.identity)) {
            snoozes.push_back(snooze);
        }
    }
    for (const auto& identity : identities) {
        snoozes.push_back({identity, end, now});
    }
    m_deliveryStore.setSnoozes(snoozes);
    removeActive([&](const ScheduledAlert& alert) { return contains(identities, alert.occurrence.identity); });
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
    m_exclusionStore.add(record);
    if (m_deliveryStore.snoozeRecord(identity)) {
        try {
            m_deliveryStore.clearSnooze(identity);
        } catch (...) {
            // The exclusion is what the user asked for and it is stored: it keeps the meeting from alerting.
            emitFailure(AlertSchedulerFailure::Operation::recordingDelivery);
        }
    }
    removeActive(
        [&](const ScheduledAlert& alert) { return ExclusionMatcher::matches(record, alert.occurrence.identity); });
    emitStateChanged();
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
    emitEvent({AlertSchedulerEvent::Failed{AlertSchedulerFailure::fromCurrentException(operation)}});
}

} // namespace orvane
