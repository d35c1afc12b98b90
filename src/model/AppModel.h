// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/FullScreenAlertAction.h"
#include "calendars/CalendarReconciliationIssue.h"
#include "calendars/CalendarSourceHealthIssue.h"
#include "domain/AlertBatch.h"
#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarGroup.h"
#include "domain/MeetingOccurrence.h"
#include "persistence/PersistenceComponent.h"
#include "scheduling/AlertSchedulerEvent.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>
#include <vector>

namespace orvane {

class AlertScheduler;
class CalendarIdentityReconciler;
class CalendarRepository;
class Clock;
class CompositeCalendarRepository;
class DefaultsDatabase;
class DeliveryStoring;
class ExclusionStoring;
class FullScreenAlertController;
class SettingsStoring;
class SystemEventSource;

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
    /// At least one source (the desktop calendars with access, or a usable connected account) can deliver events.
    bool hasUsableCalendarSource() const;
    /// Whether a connected account needs the user to sign in again.
    bool hasRemoteAccountNeedingReconnection() const { return false; }
    bool hasCompletedOnboarding() const;
    bool isShowingTestAlert() const { return m_isShowingTestAlert; }

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
    void updateFromScheduler(const AlertSchedulerSnapshot& snapshot);
    QCoro::Task<> loadCalendars();

    AppModelDependencies m_dependencies;
    CalendarAuthorizationState m_authorizationState = CalendarAuthorizationState::notDetermined;
    std::vector<CalendarGroup> m_calendarGroups;
    std::vector<MeetingOccurrence> m_upcoming;
    bool m_isRefreshing = false;
    std::optional<QString> m_lastError;
    /// The error shown is a failed fetch, which the next successful refresh takes back.
    bool m_lastErrorIsFetchFailure = false;
    std::vector<PersistenceIssue> m_persistenceIssues;
    bool m_started = false;
    bool m_isShowingTestAlert = false;
};

} // namespace orvane
