// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/FullScreenAlertAction.h"
#include "calendars/CalendarReconciliationIssue.h"
#include "calendars/CalendarSourceHealthIssue.h"
#include "cloud/RemoteCalendarAccountMetadata.h"
#include "domain/AlertBatch.h"
#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarGroup.h"
#include "domain/EligibilityMode.h"
#include "domain/ExclusionRecord.h"
#include "domain/MeetingOccurrence.h"
#include "domain/NotifierSettings.h"
#include "persistence/PersistenceComponent.h"
#include "scheduling/AlertSchedulerEvent.h"

#include <QByteArray>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QUuid>
#include <qcoro/qcorotask.h>

#include <exception>
#include <functional>
#include <optional>
#include <variant>
#include <vector>

namespace orvane {

class AlertScheduler;
class CalendarIdentityReconciler;
class CloudAccountCoordinator;
class RemoteOAuthClientIDStore;
class CalendarRepository;
class Clock;
class CompositeCalendarRepository;
class DefaultsDatabase;
class DeliveryStoring;
class ExclusionStoring;
class FullScreenAlertController;
class SettingsStoring;
class SystemEventSource;

/// Why calendar identity recovery cannot run now.
class CalendarRecoveryError : public std::exception {
public:
    /// A stored record is unreadable; `component` names its kind ("meeting exclusions"). Re-matching the others
    /// without it could leave the stored choices disagreeing with each other.
    struct UnreadableComponent {
        QString component;
        friend bool operator==(const UnreadableComponent&, const UnreadableComponent&) = default;
    };

    using Case = std::variant<UnreadableComponent>;

    explicit CalendarRecoveryError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;

private:
    Case m_value;
    QByteArray m_what;
};

/// Everything the application model works with. All of it must outlive the model; the composition root owns it.
struct AppModelDependencies {
    DefaultsDatabase& defaults;
    /// The desktop calendar database: authorization and its calendars.
    CalendarRepository& localCalendars;
    /// The one provider the scheduler reads (every source together), with source health.
    CompositeCalendarRepository& repository;
    SettingsStoring& settingsStore;
    ExclusionStoring& exclusionStore;
    DeliveryStoring& deliveryStore;
    AlertScheduler& scheduler;
    FullScreenAlertController& alertController;
    const Clock& clock;
    SystemEventSource& systemEvents;
    /// Optional: reports calendar identity issues.
    CalendarIdentityReconciler* reconciler = nullptr;
    /// Opens a URL in the user's browser; false when it could not.
    std::function<bool(const QUrl&)> openUrl;
    /// Optional: the directly connected Google and Microsoft accounts, and the OAuth clients they sign in with.
    CloudAccountCoordinator* remoteAccountCoordinator = nullptr;
    RemoteOAuthClientIDStore* oauthClientIDs = nullptr;
};

/// The one observable object behind the menu and every window: it publishes what they show, turns scheduler events
/// into alerts on screen and error texts, and carries out the user's commands. Main thread only; `changed()` is
/// emitted after any published value changed.
class AppModel final : public QObject {
    Q_OBJECT

public:
    /// The defaults key of the finished-onboarding flag.
    static inline const QString onboardingCompletedKey = QStringLiteral("Orvane.hasCompletedCalendarOnboarding.v2");
    /// The title of the sample meeting the test alert shows.
    static inline const QString testAlertTitle = QStringLiteral("Project kickoff · Test alert");
    /// A lead time outside 0 to 120 minutes was asked for.
    static inline const QString leadTimeOutOfRangeMessage =
        QStringLiteral("The alert lead time must be between 0 and 120 minutes.");
    /// A calendar to be selected is no longer listed.
    static inline const QString calendarListChangedMessage =
        QStringLiteral("The calendar list changed. Refresh your selection and try again.");
    /// Resetting an unreadable record failed; the store's description follows.
    static inline const QString calendarRecoveryFailedPrefix =
        QStringLiteral("Calendar recovery failed without resetting unrelated data: ");
    /// The unreadable settings file was moved aside to make way for a fresh one; its new path follows.
    static inline const QString databaseMovedAsidePrefix = QStringLiteral("The unreadable settings file was kept as ");
    /// Shown alerts or snoozes could not be written; the store's description and recordingFailedNote follow.
    static inline const QString recordingFailedPrefix = QStringLiteral("Reminders cannot be recorded: ");
    static inline const QString recordingFailedNote =
        QStringLiteral("Alerts still show. Orvane remembers what it showed until it quits and records it as soon as it "
                       "can.");

    explicit AppModel(AppModelDependencies dependencies, QObject* parent = nullptr);
    ~AppModel() override;

    // Published state.
    CalendarAuthorizationState authorizationState() const { return m_authorizationState; }
    const std::vector<CalendarGroup>& calendarGroups() const { return m_calendarGroups; }
    const std::vector<MeetingOccurrence>& upcoming() const { return m_upcoming; }
    bool isRefreshing() const { return m_isRefreshing; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    const std::vector<CalendarReconciliationIssue>& calendarReconciliationIssues() const;
    const std::vector<CalendarSourceHealthIssue>& calendarSourceHealthIssues() const;
    /// The unreadable stored records that pause alerts.
    const std::vector<PersistenceIssue>& persistenceIssues() const { return m_persistenceIssues; }
    /// Where the stored records are kept.
    QString storageLocation() const;
    /// At least one source (the desktop calendars with access, or a usable connected account) can deliver events.
    bool hasUsableCalendarSource() const;
    /// The connected cloud accounts in listing order.
    const std::vector<RemoteCalendarAccountMetadata>& remoteAccounts() const;
    /// The accounts whose sign-in currently works.
    QSet<QUuid> usableRemoteAccountIDs() const;
    /// The provider whose browser sign-in is in progress.
    std::optional<RemoteCalendarProviderKind> isConnectingRemoteProvider() const;
    /// An account is being added or removed.
    bool isMutatingRemoteAccounts() const;
    /// Whether a connected account needs the user to sign in again.
    bool hasRemoteAccountNeedingReconnection() const;
    /// Whether accounts can be connected at all in this build and session.
    bool supportsRemoteAccounts() const { return m_dependencies.remoteAccountCoordinator != nullptr; }
    /// The OAuth client ID a provider signs in with, and whether the build fixed it (then it cannot be changed).
    std::optional<QString> oauthClientID(RemoteCalendarProviderKind provider) const;
    bool hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const;
    bool hasCompletedOnboarding() const;
    bool isShowingTestAlert() const { return m_isShowingTestAlert; }
    /// Why shown alerts cannot be recorded, while that is so (alerts still show).
    std::optional<QString> recordingFailure() const;
    /// Alerts wait because the screen is locked (or the session looks locked).
    bool areAlertsHeldForLock() const { return m_alertsHeldForLock; }
    /// Told by whoever watches the session, so that the menu can say why nothing alerts.
    void setAlertsHeldForLock(bool held);
    /// The stored alert preferences, as settings shows them.
    const NotifierSettings& settings() const;
    /// The stored exclusions, for the list in settings.
    const std::vector<ExclusionRecord>& exclusions() const;

    /// Installs the system event observers, starts the scheduler and loads the calendar list. Only the first call
    /// does anything.
    QCoro::Task<> start();
    /// Asks the scheduler to look at the calendars again now.
    void refresh();
    /// Shows the sample meeting the way a real alert is shown; its answers touch no store. Nothing happens while it
    /// shows already. Returns whether it is on screen.
    bool showTestAlert();
    /// Excludes an upcoming meeting (from the menu) and refreshes.
    void exclude(const MeetingOccurrence& meeting, ExclusionScope scope);
    /// Opens the meeting's link in the browser; false when it has none or it could not be opened.
    bool openMeetingLink(const MeetingOccurrence& meeting);
    void setOnboardingCompleted(bool completed);

    // Commands of settings and onboarding. A failure shows in lastError(), which a later success clears again.

    /// Seconds before a meeting's start, 0 to NotifierSettings::maximumAlertLeadTime; anything else is refused.
    void setAlertLeadTime(double seconds);
    void setEligibilityMode(EligibilityMode mode);
    void setShowsOnAllDisplays(bool shows);
    /// Only records the choice; registering with the session is the launch-at-login controller's business.
    void setLaunchAtLogin(bool launches);
    /// The calendars that may alert, by identifier; absent: every calendar. Each must be in calendarGroups(),
    /// whose fingerprints are stored with the selection; otherwise nothing is saved.
    void setSelectedCalendars(std::optional<QSet<QString>> calendarIdentifiers);
    void removeExclusions(const QSet<QUuid>& ids);
    void removeAllExclusions();
    /// Resets the unreadable record of `component` (and no other) to its empty state, then refreshes. Nothing
    /// happens while that record is readable. When the whole settings file is unreadable, it is moved aside (kept)
    /// and a fresh one starts, which is the only reset that can succeed then.
    void recoverUnreadableRecord(PersistenceComponent component);
    /// Re-attaches stored calendar choices to the current calendars: the reconciler does so after every successful
    /// fetch, so this refreshes. Refused with a CalendarRecoveryError text while any record is unreadable.
    void recoverCalendarIdentities();
    /// Asks for access to the desktop calendars, then reloads the calendar list and refreshes.
    QCoro::Task<> requestCalendarAccess();
    /// Signs in to a provider in the browser and connects the account (or renews the sign-in of `reconnecting`),
    /// then reloads the calendar list and refreshes. A newly connected account's own calendars join the selection;
    /// calendars shared with the user do not, even under "all calendars" (which is pinned to the calendars listed
    /// before, and restored if the connection fails). A cancelled sign-in is no failure.
    QCoro::Task<> connectRemoteAccount(RemoteCalendarProviderKind provider,
                                       std::optional<QUuid> reconnecting = std::nullopt);
    /// Stops a sign-in that waits for the browser.
    void cancelRemoteConnection();
    /// Disconnects an account and forgets what was stored about it, then reloads the calendar list and refreshes.
    QCoro::Task<> disconnectRemoteAccount(QUuid accountID);
    /// Stores the user's own OAuth client ID for a provider (blank: forget it).
    void setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID);

    /// The sample meeting of the test alert, starting two minutes after `now`.
    static MeetingOccurrence testAlertMeeting(Date now);
    /// When an unanswered alert for `batch` closes by itself.
    static Date safetyEnd(const AlertBatch& batch);

Q_SIGNALS:
    void changed();

private:
    void handle(const AlertSchedulerEvent& event);
    void present(const AlertBatch& batch);
    void perform(const FullScreenAlertAction& action, const AlertBatch& batch);
    void setLastError(std::optional<QString> error);
    void commandFailed(QString error);
    void commandSucceeded();
    /// Saves the settings as `change` leaves them; refreshes when the schedule depends on what changed.
    void changeSettings(const std::function<void(NotifierSettings&)>& change, bool affectsSchedule);
    void updateFromScheduler(const AlertSchedulerSnapshot& snapshot);
    void backgroundOperationRecovered(AlertSchedulerFailure::Operation operation);
    /// The unreadable records are so because the whole settings file is.
    bool isDatabaseUnreadable() const;
    void watchUnreadableDatabase();
    void databaseBecameReadable();
    QCoro::Task<> loadCalendars();
    /// Selection records, with fingerprints, of calendars listed now; absent when one of them is not listed.
    std::optional<std::vector<CalendarSelectionRecord>> selectionRecords(const QSet<QString>& identifiers) const;
    void loadRemoteAccounts();
    QCoro::Task<> afterAccountChange();

    AppModelDependencies m_dependencies;
    CalendarAuthorizationState m_authorizationState = CalendarAuthorizationState::notDetermined;
    std::vector<CalendarGroup> m_calendarGroups;
    std::vector<MeetingOccurrence> m_upcoming;
    bool m_isRefreshing = false;
    std::optional<QString> m_lastError;
    /// The background operation whose failure is shown; its next success takes the text back.
    std::optional<AlertSchedulerFailure::Operation> m_lastErrorOperation;
    /// The background operations failing now, oldest first, with their texts.
    std::vector<std::pair<AlertSchedulerFailure::Operation, QString>> m_backgroundFailures;
    bool m_alertsHeldForLock = false;
    bool m_watchingDatabase = false;
    /// The last command's failure, which the next successful command takes back if it is still shown.
    std::optional<QString> m_commandError;
    std::vector<PersistenceIssue> m_persistenceIssues;
    bool m_started = false;
    bool m_isShowingTestAlert = false;
};

} // namespace orvane
