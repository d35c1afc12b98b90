// SPDX-License-Identifier: GPL-3.0-or-later
#include "model/AppModel.h"

#include "alert/FullScreenAlertController.h"
#include "calendars/CalendarIdentityReconciler.h"
#include "calendars/CalendarRepository.h"
#include "calendars/CalendarRepositoryError.h"
#include "calendars/CloudAccountCoordinator.h"
#include "calendars/CompositeCalendarRepository.h"
#include "calendars/RemoteAccountError.h"
#include "cloud/RemoteCalendarAccountStoreError.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "domain/Overloaded.h"
#include "model/SystemEventSource.h"
#include "oauth/OAuthError.h"
#include "oauth/RemoteOAuthClientIDStore.h"
#include "persistence/DefaultsDatabase.h"
#include "persistence/DeliveryStoring.h"
#include "persistence/ExclusionStoring.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStoring.h"
#include "scheduling/AlertScheduler.h"

#include <QPointer>
#include <QUuid>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

using Operation = AlertSchedulerFailure::Operation;

QString failureText(const AlertSchedulerFailure& failure)
{
    switch (failure.operation) {
    case Operation::readingPersistence:
        return QString::fromUtf16(persistencePausedMessage);
    case Operation::fetchingMeetings:
        return u"Unable to load calendar events: "_s + failure.underlyingError;
    case Operation::reconcilingPersistence:
        return u"Unable to update the stored calendar choices: "_s + failure.underlyingError;
    case Operation::recordingDelivery:
        return AppModel::recordingFailedPrefix + failure.underlyingError + u" "_s + AppModel::recordingFailedNote;
    case Operation::pruningHistory:
        return u"Unable to clear old reminder history: "_s + failure.underlyingError;
    }
    return failure.underlyingError;
}

const QString linkNotOpened = u"The meeting link could not be opened in the browser."_s;

std::vector<MeetingIdentity> identitiesOf(const AlertBatch& batch)
{
    std::vector<MeetingIdentity> identities;
    identities.reserve(batch.alerts.size());
    for (const auto& alert : batch.alerts) {
        identities.push_back(alert.occurrence.identity);
    }
    return identities;
}

template <class T>
bool assign(T& field, T value)
{
    if (field == value) {
        return false;
    }
    field = std::move(value);
    return true;
}

} // namespace

CalendarRecoveryError::CalendarRecoveryError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString CalendarRecoveryError::description() const
{
    return std::visit(
        Overloaded{
            [](const UnreadableComponent& error) {
                return u"Stored "_s + error.component + u" must be reviewed before calendar recovery can continue."_s;
            },
        },
        m_value);
}

const char* CalendarRecoveryError::what() const noexcept
{
    return m_what.constData();
}

AppModel::AppModel(AppModelDependencies dependencies, QObject* parent)
    : QObject(parent)
    , m_dependencies(std::move(dependencies))
{
}

AppModel::~AppModel()
{
    if (m_started) {
        // The scheduler and the reconciler outlive the model; they must not call into it afterwards.
        m_dependencies.scheduler.setEventHandler({});
        if (m_dependencies.reconciler != nullptr) {
            m_dependencies.reconciler->setIssuesChanged({});
        }
    }
}

const std::vector<CalendarReconciliationIssue>& AppModel::calendarReconciliationIssues() const
{
    static const std::vector<CalendarReconciliationIssue> none;
    return m_dependencies.reconciler != nullptr ? m_dependencies.reconciler->issues() : none;
}

const std::vector<CalendarSourceHealthIssue>& AppModel::calendarSourceHealthIssues() const
{
    return m_dependencies.repository.healthIssues();
}

const NotifierSettings& AppModel::settings() const
{
    return m_dependencies.settingsStore.settings();
}

const std::vector<ExclusionRecord>& AppModel::exclusions() const
{
    return m_dependencies.exclusionStore.records();
}

bool AppModel::hasUsableCalendarSource() const
{
    return m_authorizationState == CalendarAuthorizationState::fullAccess || !usableRemoteAccountIDs().isEmpty();
}

const std::vector<RemoteCalendarAccountMetadata>& AppModel::remoteAccounts() const
{
    static const std::vector<RemoteCalendarAccountMetadata> none;
    return m_dependencies.remoteAccountCoordinator ? m_dependencies.remoteAccountCoordinator->accounts() : none;
}

QSet<QUuid> AppModel::usableRemoteAccountIDs() const
{
    return m_dependencies.remoteAccountCoordinator ? m_dependencies.remoteAccountCoordinator->usableAccountIDs()
                                                   : QSet<QUuid>();
}

std::optional<RemoteCalendarProviderKind> AppModel::isConnectingRemoteProvider() const
{
    return m_dependencies.remoteAccountCoordinator ? m_dependencies.remoteAccountCoordinator->connectingProvider()
                                                   : std::nullopt;
}

bool AppModel::isMutatingRemoteAccounts() const
{
    return m_dependencies.remoteAccountCoordinator && m_dependencies.remoteAccountCoordinator->isMutating();
}

bool AppModel::hasRemoteAccountNeedingReconnection() const
{
    const QSet<QUuid> usable = usableRemoteAccountIDs();
    const auto& accounts = remoteAccounts();
    return std::any_of(accounts.begin(), accounts.end(),
                       [&](const RemoteCalendarAccountMetadata& account) { return !usable.contains(account.id); });
}

std::optional<QString> AppModel::oauthClientID(RemoteCalendarProviderKind provider) const
{
    return m_dependencies.oauthClientIDs ? m_dependencies.oauthClientIDs->clientID(provider) : std::nullopt;
}

bool AppModel::hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const
{
    return m_dependencies.oauthClientIDs && m_dependencies.oauthClientIDs->preconfiguredClientID(provider);
}

void AppModel::setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID)
{
    if (!m_dependencies.oauthClientIDs) {
        return;
    }
    try {
        m_dependencies.oauthClientIDs->setClientID(clientID, provider);
    } catch (const PersistenceStoreError& error) {
        commandFailed(error.description());
        return;
    }
    commandSucceeded();
    Q_EMIT changed();
}

void AppModel::loadRemoteAccounts()
{
    if (!m_dependencies.remoteAccountCoordinator) {
        return;
    }
    try {
        m_dependencies.remoteAccountCoordinator->load();
    } catch (const RemoteCalendarAccountStoreError& error) {
        // The stored list stays as it is; connecting is refused until it can be read.
        commandFailed(error.userMessage());
    } catch (const std::exception& error) {
        commandFailed(u"Unable to read connected calendar accounts: "_s + QString::fromUtf8(error.what()));
    }
}

QCoro::Task<> AppModel::afterAccountChange()
{
    const QPointer<AppModel> self(this);
    auto loading = loadCalendars();
    co_await std::move(loading);
    if (self) {
        refresh();
        Q_EMIT changed();
    }
}

QCoro::Task<> AppModel::connectRemoteAccount(RemoteCalendarProviderKind provider, std::optional<QUuid> reconnecting)
{
    if (!m_dependencies.remoteAccountCoordinator) {
        co_return;
    }
    const QPointer<AppModel> self(this);
    auto& settingsStore = m_dependencies.settingsStore;
    QSet<QUuid> connectedBefore;
    for (const auto& account : remoteAccounts()) {
        connectedBefore.insert(account.id);
    }

    // "All calendars" would otherwise take in every calendar of the new account, colleagues' calendars included, so
    // the calendars listed now are pinned first and the account's own calendars are added once it is connected.
    bool pinned = false;
    if (!settingsStore.settings().selectedCalendars && !settingsStore.readState().isUnreadable()) {
        QSet<QString> current;
        for (const auto& group : m_calendarGroups) {
            for (const auto& calendar : group.calendars) {
                current.insert(calendar.identifier);
            }
        }
        NotifierSettings settings = settingsStore.settings();
        settings.selectedCalendars = selectionRecords(current);
        try {
            settingsStore.save(settings);
            pinned = true;
        } catch (const PersistenceStoreError& error) {
            commandFailed(error.description());
            co_return;
        }
    }

    std::optional<QString> failure;
    bool cancelled = false;
    std::optional<RemoteCalendarAccountMetadata> connected;
    try {
        auto connecting = m_dependencies.remoteAccountCoordinator->connectAccount(provider, reconnecting);
        connected = co_await std::move(connecting);
    } catch (const OAuthError& error) {
        // Closing the sign-in is the user's choice: nothing to report, and nothing succeeded either.
        cancelled = std::holds_alternative<OAuthError::Cancelled>(error.value());
        failure = error.description();
    } catch (const RemoteAccountError& error) {
        failure = error.description();
    } catch (const RemoteCalendarAccountStoreError& error) {
        failure = error.userMessage();
    } catch (const std::exception& error) {
        failure = QString::fromUtf8(error.what());
    }
    if (!self) {
        co_return;
    }
    if (!connected) {
        if (pinned) {
            NotifierSettings settings = settingsStore.settings();
            settings.selectedCalendars.reset();
            try {
                settingsStore.save(settings);
            } catch (const PersistenceStoreError& error) {
                commandFailed(u"Connection failed and the prior all-calendars setting could not be restored: "_s +
                              error.description());
                co_return;
            }
        }
        if (!cancelled) {
            commandFailed(*failure);
        }
        Q_EMIT changed();
        co_return;
    }
    commandSucceeded();
    auto loading = loadCalendars();
    co_await std::move(loading);
    if (!self) {
        co_return;
    }
    if (!connectedBefore.contains(connected->id) && settingsStore.settings().selectedCalendars) {
        // A newly connected account's own calendars alert; calendars shared with the user wait to be chosen.
        QSet<QString> selection;
        for (const auto& record : *settingsStore.settings().selectedCalendars) {
            selection.insert(record.calendarIdentifier);
        }
        for (const auto& group : m_calendarGroups) {
            for (const auto& calendar : group.calendars) {
                if (RemoteCalendarIdentityNamespace::belongsToAccount(calendar.identifier, *connected) &&
                    calendar.allowsContentModifications && !calendar.isSubscribed) {
                    selection.insert(calendar.identifier);
                }
            }
        }
        if (const auto records = selectionRecords(selection)) {
            NotifierSettings settings = settingsStore.settings();
            settings.selectedCalendars = records;
            try {
                settingsStore.save(settings);
            } catch (const PersistenceStoreError& error) {
                commandFailed(error.description());
            }
        }
    }
    refresh();
    Q_EMIT changed();
}

void AppModel::cancelRemoteConnection()
{
    if (m_dependencies.remoteAccountCoordinator) {
        m_dependencies.remoteAccountCoordinator->cancelConnection();
    }
}

QCoro::Task<> AppModel::disconnectRemoteAccount(QUuid accountID)
{
    if (!m_dependencies.remoteAccountCoordinator) {
        co_return;
    }
    const QPointer<AppModel> self(this);
    std::optional<QString> failure;
    std::optional<QString> warning;
    try {
        auto disconnecting = m_dependencies.remoteAccountCoordinator->disconnectAccount(accountID);
        warning = co_await std::move(disconnecting);
    } catch (const std::exception& error) {
        failure = QString::fromUtf8(error.what());
    }
    if (!self) {
        co_return;
    }
    if (failure || warning) {
        commandFailed(failure ? *failure : *warning);
    } else {
        commandSucceeded();
    }
    if (!failure) {
        auto reloading = afterAccountChange();
        co_await std::move(reloading);
    }
}

bool AppModel::hasCompletedOnboarding() const
{
    // A settings file that cannot be read says nothing either way; starting onboarding over would be wrong, and
    // the stored-data review is where the user is needed.
    if (isDatabaseUnreadable()) {
        return true;
    }
    // Written as text; a boolean (from an older build or another tool) counts too.
    const QVariant value = m_dependencies.defaults.object(onboardingCompletedKey);
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::QString:
    case QMetaType::QByteArray:
        return value.toString().compare(u"true"_s, Qt::CaseInsensitive) == 0;
    default:
        return false;
    }
}

void AppModel::setOnboardingCompleted(bool completed)
{
    if (completed == hasCompletedOnboarding()) {
        return;
    }
    try {
        m_dependencies.defaults.setString(onboardingCompletedKey, completed ? u"true"_s : u"false"_s);
    } catch (const PersistenceStoreError& error) {
        setLastError(error.description());
        return;
    }
    Q_EMIT changed();
}

void AppModel::changeSettings(const std::function<void(NotifierSettings&)>& change, bool affectsSchedule)
{
    auto& store = m_dependencies.settingsStore;
    NotifierSettings settings = store.settings();
    change(settings);
    // An unreadable record still shows the defaults: saving them must report the refusal, not pretend success.
    if (settings == store.settings() && !store.readState().isUnreadable()) {
        commandSucceeded();
        return;
    }
    try {
        store.save(settings);
    } catch (const PersistenceStoreError& error) {
        commandFailed(error.description());
        return;
    }
    commandSucceeded();
    Q_EMIT changed();
    if (affectsSchedule) {
        refresh();
    }
}

void AppModel::setAlertLeadTime(double seconds)
{
    if (!std::isfinite(seconds) || seconds < 0 || seconds > NotifierSettings::maximumAlertLeadTime) {
        commandFailed(leadTimeOutOfRangeMessage);
        return;
    }
    changeSettings([seconds](NotifierSettings& settings) { settings.alertLeadTime = seconds; }, true);
}

void AppModel::setEligibilityMode(EligibilityMode mode)
{
    changeSettings([mode](NotifierSettings& settings) { settings.eligibilityMode = mode; }, true);
}

void AppModel::setShowsOnAllDisplays(bool shows)
{
    changeSettings([shows](NotifierSettings& settings) { settings.showsOnAllDisplays = shows; }, false);
    // Follows what is stored, so that a refused save leaves the alert as it was.
    m_dependencies.alertController.setShowsOnAllDisplays(m_dependencies.settingsStore.settings().showsOnAllDisplays);
}

void AppModel::setLaunchAtLogin(bool launches)
{
    changeSettings([launches](NotifierSettings& settings) { settings.launchAtLogin = launches; }, false);
}

std::optional<std::vector<CalendarSelectionRecord>> AppModel::selectionRecords(const QSet<QString>& identifiers) const
{
    // The fingerprint lets identity reconciliation find the calendar again if its identifier changes later.
    std::vector<CalendarSelectionRecord> selection;
    QSet<QString> found;
    for (const auto& group : m_calendarGroups) {
        for (const auto& calendar : group.calendars) {
            if (identifiers.contains(calendar.identifier) && !found.contains(calendar.identifier)) {
                found.insert(calendar.identifier);
                selection.push_back({calendar.identifier,
                                     CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title}});
            }
        }
    }
    if (found.size() != identifiers.size()) {
        return std::nullopt;
    }
    return selection;
}

void AppModel::setSelectedCalendars(std::optional<QSet<QString>> calendarIdentifiers)
{
    std::optional<std::vector<CalendarSelectionRecord>> selection;
    if (calendarIdentifiers) {
        selection = selectionRecords(*calendarIdentifiers);
        if (!selection) {
            commandFailed(calendarListChangedMessage);
            return;
        }
    }
    changeSettings([&selection](NotifierSettings& settings) { settings.selectedCalendars = std::move(selection); },
                   true);
}

void AppModel::removeExclusions(const QSet<QUuid>& ids)
{
    if (ids.isEmpty()) {
        return;
    }
    try {
        m_dependencies.exclusionStore.remove(ids);
    } catch (const PersistenceStoreError& error) {
        commandFailed(error.description());
        return;
    }
    commandSucceeded();
    Q_EMIT changed();
    refresh();
}

void AppModel::removeAllExclusions()
{
    try {
        m_dependencies.exclusionStore.removeAll();
    } catch (const PersistenceStoreError& error) {
        commandFailed(error.description());
        return;
    }
    commandSucceeded();
    Q_EMIT changed();
    refresh();
}

QString AppModel::storageLocation() const
{
    return m_dependencies.defaults.location();
}

bool AppModel::isDatabaseUnreadable() const
{
    const auto issues = m_dependencies.scheduler.persistenceIssues();
    return std::any_of(issues.begin(), issues.end(),
                       [](const PersistenceIssue& issue) { return issue.failure.isUnreadableDatabase(); });
}

void AppModel::watchUnreadableDatabase()
{
    if (m_watchingDatabase || !isDatabaseUnreadable()) {
        return;
    }
    m_watchingDatabase = true;
    m_dependencies.defaults.watchUntilReadable([self = QPointer<AppModel>(this)] {
        if (self) {
            self->databaseBecameReadable();
        }
    });
}

void AppModel::databaseBecameReadable()
{
    m_watchingDatabase = false;
    // Each record now gets its own verdict; the scheduler resumes once none is unreadable.
    m_dependencies.settingsStore.reloadAfterDatabaseRecovered();
    m_dependencies.exclusionStore.reloadAfterDatabaseRecovered();
    m_dependencies.deliveryStore.reloadAfterDatabaseRecovered();
    loadRemoteAccounts();
    m_dependencies.alertController.setShowsOnAllDisplays(m_dependencies.settingsStore.settings().showsOnAllDisplays);
    Q_EMIT changed();
    refresh();
}

void AppModel::recoverUnreadableRecord(PersistenceComponent component)
{
    if (isDatabaseUnreadable()) {
        // The file as a whole cannot be read, so no record in it can be reset on its own: the file is moved aside,
        // its bytes kept, and a fresh one starts.
        QString aside;
        try {
            aside = m_dependencies.defaults.moveAside();
        } catch (const PersistenceStoreError& error) {
            commandFailed(calendarRecoveryFailedPrefix + error.description());
            return;
        }
        commandFailed(databaseMovedAsidePrefix + aside + u"; Orvane started a fresh one."_s);
        databaseBecameReadable();
        return;
    }
    // Only the named record is reset: the others keep their bytes even if they are unreadable too, because each
    // reset costs the user something different and is confirmed on its own.
    const auto reset = [](auto& store) {
        if (!store.readState().isUnreadable()) {
            return false;
        }
        store.resetAfterReadFailure();
        return true;
    };
    bool didReset = false;
    try {
        switch (component) {
        case PersistenceComponent::settings:
            didReset = reset(m_dependencies.settingsStore);
            break;
        case PersistenceComponent::exclusions:
            didReset = reset(m_dependencies.exclusionStore);
            break;
        case PersistenceComponent::delivery:
            didReset = reset(m_dependencies.deliveryStore);
            break;
        }
    } catch (const PersistenceStoreError& error) {
        commandFailed(calendarRecoveryFailedPrefix + error.description());
        return;
    }
    if (!didReset) {
        return;
    }
    commandSucceeded();
    Q_EMIT changed();
    // The scheduler lifts its pause (and the pause text) once no record is unreadable any more.
    refresh();
}

void AppModel::recoverCalendarIdentities()
{
    if (const auto issues = m_dependencies.scheduler.persistenceIssues(); !issues.empty()) {
        const CalendarRecoveryError error(
            CalendarRecoveryError::UnreadableComponent{title(issues[0].component).toLower()});
        commandFailed(error.description());
        return;
    }
    commandSucceeded();
    refresh();
}

QCoro::Task<> AppModel::requestCalendarAccess()
{
    const QPointer<AppModel> self(this);
    CalendarAuthorizationState state = CalendarAuthorizationState::unknown;
    try {
        auto requesting = m_dependencies.localCalendars.requestFullAccess();
        state = co_await std::move(requesting);
    } catch (const CalendarRepositoryError& error) {
        if (self) {
            commandFailed(error.description());
        }
        co_return;
    }
    if (!self) {
        co_return;
    }
    if (assign(m_authorizationState, state)) {
        Q_EMIT changed();
    }
    auto loading = loadCalendars();
    co_await std::move(loading);
    if (self) {
        refresh();
    }
}

QCoro::Task<> AppModel::start()
{
    if (m_started) {
        co_return;
    }
    m_started = true;
    m_dependencies.alertController.setShowsOnAllDisplays(m_dependencies.settingsStore.settings().showsOnAllDisplays);

    auto& events = m_dependencies.systemEvents;
    auto& scheduler = m_dependencies.scheduler;
    for (const auto signal : {&SystemEventSource::timeZoneChanged, &SystemEventSource::sessionDidBecomeActive}) {
        connect(&events, signal, this, &AppModel::refresh);
    }
    // Waking sets the clock and fires the timers as well: the scheduler makes one refresh of all three.
    connect(&events, &SystemEventSource::willSleep, &scheduler, &AlertScheduler::suspend);
    connect(&events, &SystemEventSource::didWake, &scheduler, &AlertScheduler::resume);
    connect(&events, &SystemEventSource::clockChanged, &scheduler, &AlertScheduler::clockDidChange);
    m_dependencies.scheduler.setEventHandler([this](const AlertSchedulerEvent& event) { handle(event); });
    connect(&m_dependencies.repository, &CompositeCalendarRepository::healthIssuesChanged, this, &AppModel::changed);
    connect(&m_dependencies.localCalendars, &CalendarRepository::authorizationStateChanged, this,
            [this](CalendarAuthorizationState state) {
                if (!assign(m_authorizationState, state)) {
                    return;
                }
                Q_EMIT changed();
                // Access just granted (or the service came back): the calendar list has something to show now.
                loadCalendars();
            });
    if (m_dependencies.reconciler != nullptr) {
        m_dependencies.reconciler->setIssuesChanged([self = QPointer<AppModel>(this)] {
            if (self) {
                Q_EMIT self->changed();
            }
        });
    }
    if (assign(m_authorizationState, m_dependencies.localCalendars.authorizationState())) {
        Q_EMIT changed();
    }

    if (m_dependencies.remoteAccountCoordinator) {
        connect(m_dependencies.remoteAccountCoordinator, &CloudAccountCoordinator::changed, this, &AppModel::changed);
    }
    // Before the first fetch, so that connected accounts are part of it.
    loadRemoteAccounts();

    const QPointer<AppModel> self(this);
    auto starting = m_dependencies.scheduler.start();
    co_await std::move(starting);
    if (!self) {
        co_return;
    }
    auto loading = loadCalendars();
    co_await std::move(loading);
}

QCoro::Task<> AppModel::loadCalendars()
{
    const QPointer<AppModel> self(this);
    std::vector<CalendarGroup> groups;
    try {
        auto fetching = m_dependencies.repository.calendarGroups();
        groups = co_await std::move(fetching);
    } catch (...) {
        // Keep the list shown so far: the failing source already appears as a health issue, and the scheduler
        // reports a fetch that delivered nothing.
        co_return;
    }
    if (self && assign(m_calendarGroups, std::move(groups))) {
        Q_EMIT changed();
    }
}

void AppModel::refresh()
{
    // Runs on by itself (the scheduler never lets a refresh throw); overlapping refreshes are the scheduler's
    // business: the last one started wins.
    m_dependencies.scheduler.refresh();
}

void AppModel::handle(const AlertSchedulerEvent& event)
{
    std::visit(Overloaded{
                   [this](const AlertSchedulerEvent::StateChanged& state) { updateFromScheduler(state.snapshot); },
                   [this](const AlertSchedulerEvent::AlertsDue& due) { present(due.batch); },
                   [this](const AlertSchedulerEvent::Failed& failed) {
                       const QString text = failureText(failed.failure);
                       bool published = assign(m_persistenceIssues, m_dependencies.scheduler.persistenceIssues());
                       published |= assign(m_lastError, std::optional(text));
                       m_lastErrorOperation = failed.failure.operation;
                       std::erase_if(m_backgroundFailures,
                                     [&](const auto& entry) { return entry.first == failed.failure.operation; });
                       if (failed.failure.operation != Operation::readingPersistence) {
                           m_backgroundFailures.emplace_back(failed.failure.operation, text);
                       }
                       watchUnreadableDatabase();
                       if (published) {
                           Q_EMIT changed();
                       }
                   },
                   [](const AlertSchedulerEvent::RefreshSucceeded&) {},
                   [this](const AlertSchedulerEvent::Recovered& recovered) {
                       backgroundOperationRecovered(recovered.operation);
                   },
               },
               event.value);
}

void AppModel::backgroundOperationRecovered(AlertSchedulerFailure::Operation operation)
{
    const bool wasFailing =
        std::erase_if(m_backgroundFailures, [&](const auto& entry) { return entry.first == operation; }) > 0;
    // The text shown goes with its failure; another failure still current takes its place.
    if (m_lastErrorOperation == operation) {
        m_lastErrorOperation.reset();
        std::optional<QString> next;
        if (!m_backgroundFailures.empty()) {
            m_lastErrorOperation = m_backgroundFailures.back().first;
            next = m_backgroundFailures.back().second;
        }
        if (assign(m_lastError, std::move(next))) {
            Q_EMIT changed();
            return;
        }
    }
    if (wasFailing && operation == Operation::recordingDelivery) {
        Q_EMIT changed();
    }
}

std::optional<QString> AppModel::recordingFailure() const
{
    for (const auto& [operation, text] : m_backgroundFailures) {
        if (operation == Operation::recordingDelivery) {
            return text;
        }
    }
    return std::nullopt;
}

void AppModel::setAlertsHeldForLock(bool held)
{
    if (assign(m_alertsHeldForLock, held)) {
        Q_EMIT changed();
    }
}

void AppModel::updateFromScheduler(const AlertSchedulerSnapshot& snapshot)
{
    bool published = assign(m_upcoming, snapshot.upcoming);
    published |= assign(m_isRefreshing, snapshot.isRefreshing);
    published |= assign(m_persistenceIssues, m_dependencies.scheduler.persistenceIssues());
    const QString paused = QString::fromUtf16(persistencePausedMessage);
    if (!m_persistenceIssues.empty()) {
        published |= assign(m_lastError, std::optional(paused));
        m_lastErrorOperation = Operation::readingPersistence;
    } else if (m_lastError == paused) {
        published |= assign(m_lastError, std::optional<QString>());
    }
    watchUnreadableDatabase();
    // The alerts were settled elsewhere (or the scheduler paused): nothing is left to answer on screen.
    auto& controller = m_dependencies.alertController;
    if (snapshot.activeBatches.empty() && !m_isShowingTestAlert && controller.isPresenting()) {
        controller.closeWithoutAction();
    }
    if (published) {
        Q_EMIT changed();
    }
}

Date AppModel::safetyEnd(const AlertBatch& batch)
{
    Date end = batch.triggerDate;
    for (const auto& alert : batch.alerts) {
        end = std::max(end, alert.occurrence.endDate);
    }
    return end;
}

void AppModel::present(const AlertBatch& batch)
{
    // Every active alert is shown together, not only the new batch: the controller replaces an alert on screen
    // without answering it, and the scheduler never hands out an active alert again, so a replaced one would be lost.
    AlertBatch shown{batch.triggerDate, {}};
    for (const auto& active : m_dependencies.scheduler.activeBatches()) {
        for (const auto& alert : active.alerts) {
            const auto same = [&](const ScheduledAlert& other) {
                return other.occurrence.identity == alert.occurrence.identity;
            };
            if (std::none_of(shown.alerts.begin(), shown.alerts.end(), same)) {
                shown.alerts.push_back(alert);
            }
        }
    }
    if (shown.alerts.empty()) {
        shown = batch;
    }
    std::vector<MeetingOccurrence> meetings;
    for (const auto& alert : shown.alerts) {
        meetings.push_back(alert.occurrence);
    }

    auto& controller = m_dependencies.alertController;
    // Several batches due at once arrive one after the other; the first already showed them all.
    bool presented = !m_isShowingTestAlert && controller.isPresenting() && controller.meetings() == meetings;
    if (!presented) {
        presented = controller.present(meetings, safetyEnd(shown),
                                       [self = QPointer<AppModel>(this), shown](FullScreenAlertAction action) {
                                           if (self) {
                                               self->perform(action, shown);
                                           }
                                       });
        // A real alert replaces the sample, whose answer will never come.
        if (presented && assign(m_isShowingTestAlert, false)) {
            Q_EMIT changed();
        }
    }
    m_dependencies.scheduler.acknowledgePresentation(batch, presented);
}

void AppModel::perform(const FullScreenAlertAction& action, const AlertBatch& batch)
{
    auto& scheduler = m_dependencies.scheduler;
    // Each step on its own, so that one refused step does not keep the others from being recorded.
    const auto attempt = [this](const std::function<void()>& step) {
        try {
            step();
        } catch (const AlertSchedulerActionError& error) {
            setLastError(error.description());
        } catch (const PersistenceStoreError& error) {
            setLastError(error.description());
        }
    };
    // The still-active meetings of the alert besides `except`; an exclusion of a series takes its siblings along.
    const auto activeOthers = [&](const std::optional<MeetingIdentity>& except) {
        std::vector<MeetingIdentity> identities;
        for (const auto& identity : identitiesOf(batch)) {
            const bool active = std::any_of(
                scheduler.activeBatches().begin(), scheduler.activeBatches().end(), [&](const AlertBatch& active) {
                    return std::any_of(active.alerts.begin(), active.alerts.end(), [&](const ScheduledAlert& alert) {
                        return alert.occurrence.identity == identity;
                    });
                });
            if (active && identity != except) {
                identities.push_back(identity);
            }
        }
        return identities;
    };
    const auto dismiss = [&](const std::vector<MeetingIdentity>& identities) {
        if (!identities.empty()) {
            attempt([&] { scheduler.dismiss(identities); });
        }
    };

    std::visit(Overloaded{
                   [&](const FullScreenAlertAction::Join& join) {
                       if (!openMeetingLink(join.meeting)) {
                           setLastError(linkNotOpened);
                       }
                       dismiss(activeOthers(std::nullopt));
                   },
                   [&](const FullScreenAlertAction::Dismiss& dismissal) { dismiss(dismissal.meetingIDs); },
                   [&](const FullScreenAlertAction::Exclude& exclusion) {
                       attempt([&] { scheduler.exclude(exclusion.meeting.identity, exclusion.scope); });
                       dismiss(activeOthers(exclusion.meeting.identity));
                   },
                   [&](const FullScreenAlertAction::Snooze& snooze) {
                       switch (snooze.option) {
                       case FullScreenAlertSnooze::oneMinute:
                           attempt([&] { scheduler.snoozeFor(snooze.meetingIDs, 60); });
                           return;
                       case FullScreenAlertSnooze::fiveMinutes:
                           attempt([&] { scheduler.snoozeFor(snooze.meetingIDs, 300); });
                           return;
                       case FullScreenAlertSnooze::untilStart:
                           break;
                       }
                       // Each meeting comes back at its own start; one that has started already has nothing to
                       // wait for.
                       const Date now = m_dependencies.clock.now();
                       std::vector<MeetingIdentity> started;
                       std::vector<std::pair<MeetingIdentity, Date>> ahead;
                       for (const auto& identity : snooze.meetingIDs) {
                           const auto alert =
                               std::find_if(batch.alerts.begin(), batch.alerts.end(), [&](const ScheduledAlert& each) {
                                   return each.occurrence.identity == identity;
                               });
                           const Date start =
                               alert != batch.alerts.end() ? alert->occurrence.startDate : identity.scheduledStart;
                           if (start > now) {
                               ahead.emplace_back(identity, start);
                           } else {
                               started.push_back(identity);
                           }
                       }
                       dismiss(started);
                       for (const auto& snoozed : ahead) {
                           attempt([&] { scheduler.snoozeUntil(std::span(&snoozed.first, 1), snoozed.second); });
                       }
                   },
                   [&](const FullScreenAlertAction::Expired& expired) { dismiss(expired.meetingIDs); },
               },
               action.value);
}

MeetingOccurrence AppModel::testAlertMeeting(Date now)
{
    const Date start = now + 120;
    const CalendarDescriptor calendar{.identifier = u"orvane.preview.calendar"_s,
                                      .title = u"Team Calendar · Sample"_s,
                                      .sourceIdentifier = u"orvane.preview.source"_s,
                                      .sourceTitle = u"Desktop calendar preview"_s,
                                      .sourceKind = CalendarSourceKind::local,
                                      .colorHex = std::nullopt,
                                      .isSubscribed = false,
                                      .allowsContentModifications = false};
    return {.identity = {.sourceIdentifier = calendar.sourceIdentifier,
                         .calendarIdentifier = calendar.identifier,
                         .seriesIdentifier = u"local:orvane.preview.meeting"_s,
                         .calendarFingerprint =
                             CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title},
                         .calendarFingerprintIsUnique = true,
                         .occurrenceStart = start,
                         .scheduledStart = start},
            .title = testAlertTitle,
            .startDate = start,
            .endDate = start + 1800,
            .isAllDay = false,
            .isCanceled = false,
            .participationStatus = MeetingParticipationStatus::accepted,
            .hasAttendees = true,
            .location = u"Video call · Sample data"_s,
            .isRecurring = false,
            .calendar = calendar,
            .meetingURL = QUrl(u"https://meet.google.com/orv-test-alrt"_s)};
}

bool AppModel::showTestAlert()
{
    if (m_isShowingTestAlert) {
        return true;
    }
    auto& controller = m_dependencies.alertController;
    // The sample would replace a real alert, which would then never be answered.
    if (controller.isPresenting()) {
        return false;
    }
    const MeetingOccurrence meeting = testAlertMeeting(m_dependencies.clock.now());
    const bool presented =
        controller.present({meeting}, meeting.endDate, [self = QPointer<AppModel>(this)](FullScreenAlertAction action) {
            if (!self) {
                return;
            }
            // Only the link is real; no answer to the sample is recorded anywhere.
            if (const auto* join = std::get_if<FullScreenAlertAction::Join>(&action.value)) {
                self->openMeetingLink(join->meeting);
            }
            if (assign(self->m_isShowingTestAlert, false)) {
                Q_EMIT self->changed();
            }
        });
    if (presented) {
        m_isShowingTestAlert = true;
        Q_EMIT changed();
    }
    return presented;
}

void AppModel::exclude(const MeetingOccurrence& meeting, ExclusionScope scope)
{
    const ExclusionRecord record{.id = QUuid::createUuid(),
                                 .identity = meeting.identity,
                                 .scope = scope,
                                 .createdAt = m_dependencies.clock.now(),
                                 .eventTitle = meeting.title,
                                 .calendarTitle = meeting.calendar.title};
    try {
        m_dependencies.exclusionStore.add(record);
    } catch (const PersistenceStoreError& error) {
        setLastError(error.description());
        return;
    }
    refresh();
}

bool AppModel::openMeetingLink(const MeetingOccurrence& meeting)
{
    if (!meeting.meetingURL || !m_dependencies.openUrl) {
        return false;
    }
    return m_dependencies.openUrl(*meeting.meetingURL);
}

void AppModel::commandFailed(QString error)
{
    setLastError(error);
    m_commandError = std::move(error);
}

void AppModel::commandSucceeded()
{
    // Only the command's own failure is taken back: a pause or a failed fetch stays until it is resolved.
    if (m_commandError && m_lastError == m_commandError) {
        setLastError(std::nullopt);
    }
    m_commandError.reset();
}

void AppModel::setLastError(std::optional<QString> error)
{
    m_lastErrorOperation.reset();
    if (assign(m_lastError, std::move(error))) {
        Q_EMIT changed();
    }
}

} // namespace orvane
