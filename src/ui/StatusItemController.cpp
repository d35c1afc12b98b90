// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusItemController.h"

#include "model/AppModel.h"
#include "ui/StatusMenu.h"
#include "ui/WindowCoordinating.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QMenu>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {
Q_LOGGING_CATEGORY(statusItemLog, "orvane.ui.statusitem")
} // namespace

StatusItemController::StatusItemController(AppModel& model, WindowCoordinating& windows, std::optional<QUrl> updateURL,
                                           std::function<bool(const QUrl&)> openUrl, QObject* parent)
    : QObject(parent)
    , m_model(model)
    , m_windows(windows)
    , m_updateURL(std::move(updateURL))
    , m_openUrl(std::move(openUrl))
    , m_menu(std::make_unique<QMenu>())
    , m_windowMenu(performer())
{
    const QString name = StatusMenuContent::statusItemName();
    m_menu->setTitle(name);
    m_menu->setAccessibleName(name);
    rebuild();
    connect(&m_model, &AppModel::changed, this, &StatusItemController::scheduleRebuild);
}

void StatusItemController::showStatusItem()
{
    if (m_statusItem) {
        return;
    }
    const QString name = StatusMenuContent::statusItemName();
    m_statusItem = std::make_unique<QSystemTrayIcon>();
    m_statusItem->setIcon(StatusMenu::icon(StatusMenuContent::statusItemSymbol()));
    m_statusItem->setToolTip(name);
    m_statusItem->setContextMenu(m_menu.get());
    m_statusItem->show();
    m_windowMenu.setNeeded(false);
    qCInfo(statusItemLog) << "Orvane's menu is in the desktop's tray";
}

void StatusItemController::showMenuInWindows()
{
    if (!m_statusItem) {
        m_windowMenu.setNeeded(true);
        qCInfo(statusItemLog) << "The desktop shows no tray; Orvane's menu is in its settings window";
    }
}

StatusItemController::~StatusItemController() = default;

StatusMenuInput StatusItemController::input(const AppModel& model, bool hasUpdateURL, Date now)
{
    const bool usable = model.hasUsableCalendarSource();
    return {.onboardingCompleted = model.hasCompletedOnboarding(),
            .persistencePaused = !model.persistenceIssues().empty(),
            .alertsHeldForLock = model.areAlertsHeldForLock(),
            .recordingFailed = model.recordingFailure().has_value(),
            .hasUsableCalendarSource = usable,
            .remoteAccountNeedsReconnection = model.hasRemoteAccountNeedingReconnection(),
            .authorizationState = model.authorizationState(),
            .hasSourceHealthIssues = !model.calendarSourceHealthIssues().empty(),
            .hasReconciliationIssues = !model.calendarReconciliationIssues().empty(),
            // A usable source without desktop access can only be a connected account.
            .usingConnectedCalendarsOnly =
                usable && model.authorizationState() != CalendarAuthorizationState::fullAccess,
            .upcoming = model.upcoming(),
            .isRefreshing = model.isRefreshing(),
            .hasUpdateURL = hasUpdateURL,
            .now = now,
            .timeZone = QTimeZone::systemTimeZone(),
            .locale = QLocale()};
}

void StatusItemController::scheduleRebuild()
{
    // Rebuilt from the event loop, never inside a change notification: the notification may come from an action
    // of this very menu (Refresh, Exclude), whose item a rebuild would delete while it is still being triggered.
    // Bursts of changes also collapse into one rebuild.
    if (m_rebuildPending) {
        return;
    }
    m_rebuildPending = true;
    QMetaObject::invokeMethod(this, &StatusItemController::rebuild, Qt::QueuedConnection);
}

void StatusItemController::rebuild()
{
    m_rebuildPending = false;
    const StatusMenuInput state =
        input(m_model, m_updateURL.has_value(), Date::fromDateTime(QDateTime::currentDateTimeUtc()));
    std::vector<StatusMenuEntry> entries = StatusMenuContent::build(state);
    StatusMenu::populate(*m_menu, entries, performer());
    m_windowMenu.setEntries(std::move(entries));
}

StatusMenu::Perform StatusItemController::performer()
{
    return [this](StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting) {
        perform(action, meeting);
    };
}

void StatusItemController::perform(StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting)
{
    switch (action) {
    case StatusMenuAction::none:
        return;
    case StatusMenuAction::refresh:
        m_model.refresh();
        return;
    case StatusMenuAction::showTestAlert:
        m_model.showTestAlert();
        return;
    case StatusMenuAction::openSettings:
        // While an account waiting for a new sign-in is all that could alert, that is what settings is opened for.
        m_windows.openSettings(m_model.hasRemoteAccountNeedingReconnection() && !m_model.hasUsableCalendarSource()
                                   ? WindowCoordinating::SettingsSection::accounts
                                   : WindowCoordinating::SettingsSection::general);
        return;
    case StatusMenuAction::openCalendarSettings:
        m_windows.openSettings(WindowCoordinating::SettingsSection::calendars);
        return;
    case StatusMenuAction::openOnboarding:
        m_windows.openOnboarding();
        return;
    case StatusMenuAction::openAbout:
        m_windows.openAbout();
        return;
    case StatusMenuAction::checkForUpdates:
        if (m_updateURL && m_openUrl && !m_openUrl(*m_updateURL)) {
            qCWarning(statusItemLog) << "Could not open the update address" << m_updateURL->toDisplayString();
        }
        return;
    case StatusMenuAction::quit:
        QCoreApplication::quit();
        return;
    case StatusMenuAction::join:
        if (meeting) {
            m_model.openMeetingLink(*meeting);
        }
        return;
    case StatusMenuAction::excludeOccurrence:
        if (meeting) {
            m_model.exclude(*meeting, ExclusionScope::occurrence);
        }
        return;
    case StatusMenuAction::excludeSeries:
        if (meeting) {
            m_model.exclude(*meeting, ExclusionScope::series);
        }
        return;
    }
}

} // namespace orvane
