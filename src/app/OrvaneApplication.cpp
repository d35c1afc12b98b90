// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/OrvaneApplication.h"

#include "alert/AlertPanelContentFactory.h"
#include "alert/AlertPrivacy.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "alert/linux/LogindAlertPresentationSessionMonitor.h"
#include "alert/linux/MutterKeyboardIdleWatch.h"
#include "alert/linux/PipeWireScreenCastMonitor.h"
#include "alert/linux/QtAlertWindowSystem.h"
#include "alert/linux/wayland/MutterAlertWindowSystem.h"
#include "alert/linux/wayland/WaylandAlertWindowSystem.h"
#include "alert/linux/wayland/WaylandConnection.h"
#include "alert/linux/wayland/WaylandKeyboardIdleWatch.h"
#include "alert/linux/X11DisplayState.h"
#include "alert/linux/X11KeyboardGrabProbe.h"
#include "app/ApplicationControlService.h"
#include "app/BundleInfo.h"
#include "app/linux/DBusApplicationActivation.h"
#include "app/linux/LinuxSystemEventSource.h"
#include "calendars/CalendarIdentityReconciler.h"
#include "calendars/CloudAccountCoordinator.h"
#include "calendars/CompositeCalendarRepository.h"
#include "calendars/LocalCalendarSource.h"
#include "calendars/linux/EdsCalendarRepository.h"
#include "cloud/GoogleCalendarClient.h"
#include "cloud/MicrosoftGraphCalendarClient.h"
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "model/AppModel.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "oauth/RemoteOAuthClientIDStore.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsDefaultsDatabase.h"
#include "persistence/SettingsStore.h"
#include "scheduling/AlertScheduler.h"
#include "scheduling/Clock.h"
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"
#include "ui/AppModelOnboardingModel.h"
#include "ui/AppModelSettingsModel.h"
#include "ui/ConnectedAccountsViewModel.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/StatusItemController.h"
#include "ui/linux/StatusItemHostWatch.h"
#include "ui/WindowCoordinating.h"
#include "ui/WindowCoordinator.h"
#include "ui/linux/BackgroundPortalLaunchAtLoginService.h"
#include "ui/linux/LauncherActivation.h"
#include "ui/linux/XdgAutostartLaunchAtLoginService.h"

#include <QApplication>
#include <QDesktopServices>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QtDebug>

#include <array>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

bool openInBrowser(const QUrl& url)
{
    return QDesktopServices::openUrl(url);
}

/// Inside a Flatpak sandbox only the Background portal can have Orvane started at login; elsewhere the XDG
/// autostart entry does it.
std::unique_ptr<LaunchAtLoginService> makeLaunchAtLoginService()
{
    if (BackgroundPortalLaunchAtLoginService::isSandboxed()) {
        return std::make_unique<BackgroundPortalLaunchAtLoginService>(QDBusConnection::sessionBus());
    }
    return std::make_unique<XdgAutostartLaunchAtLoginService>(
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation),
        QCoreApplication::applicationFilePath());
}

/// Starts the desktop's calendar application: the first installed of GNOME Calendar, Evolution's calendar view and
/// KOrganizer. False when there is none or it could not be started.
bool openCalendarApplication()
{
    const std::array<std::pair<QString, QStringList>, 3> candidates = {{
        {u"gnome-calendar"_s, {}},
        {u"evolution"_s, {u"-c"_s, u"calendar"_s}},
        {u"korganizer"_s, {}},
    }};
    for (const auto& [program, arguments] : candidates) {
        const QString path = QStandardPaths::findExecutable(program);
        if (!path.isEmpty()) {
            return QProcess::startDetached(path, arguments);
        }
    }
    return false;
}

/// An X11 desktop session, as opposed to a Wayland one that runs X clients through XWayland.
bool isX11Session()
{
    return qEnvironmentVariableIsSet("DISPLAY") && !qEnvironmentVariableIsSet("WAYLAND_DISPLAY") &&
           qEnvironmentVariable("XDG_SESSION_TYPE") != u"wayland"_s;
}

/// The X server's screen saver and keyboard, in an X11 session only: under Wayland the compositor blanks and locks
/// the screens, and XWayland's own screen saver, which sees no input from native windows, would say nothing true.
std::unique_ptr<X11DisplayState> makeDisplayState()
{
    if (!isX11Session()) {
        return nullptr;
    }
    auto state = std::make_unique<X11DisplayState>();
    return state->isConnected() ? std::move(state) : nullptr;
}

/// Orvane's own connection to the Wayland compositor, when the session is a Wayland one whose compositor can put a
/// surface above full-screen windows (wlr-layer-shell: KWin, sway and other wlroots compositors) or is GNOME's, which
/// activates a new full-screen window above everything. Elsewhere (X11, weston) the alert's windows are Qt's, through
/// XWayland on a Wayland session.
std::unique_ptr<WaylandConnection> makeOverlayConnection()
{
    if (!qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
        return nullptr;
    }
    auto connection = std::make_unique<WaylandConnection>();
    if (!connection->isConnected() || !(connection->layerShell() || (connection->isMutter() && connection->wmBase()))) {
        return nullptr;
    }
    return connection;
}

std::unique_ptr<AlertWindowSystem> makeAlertWindowSystem(WaylandConnection* overlay, const Clock& clock,
                                                         const AlertPrivacy& privacy)
{
    const auto content = makeAlertPanelContentFactory(clock, &privacy);
    auto xwayland = std::make_unique<QtAlertWindowSystem>(content);
    if (overlay && overlay->layerShell()) {
        return std::make_unique<WaylandAlertWindowSystem>(*overlay, content);
    }
    if (overlay) {
        return std::make_unique<MutterAlertWindowSystem>(*overlay, std::move(xwayland), content);
    }
    return xwayland;
}

/// On Wayland a password prompt's hold on the keyboard cannot be seen: the alert waits until typing pauses.
std::unique_ptr<KeyboardIdleWatch> makeIdleWatch(WaylandConnection* overlay)
{
    if (overlay && overlay->layerShell()) {
        return std::make_unique<WaylandKeyboardIdleWatch>(*overlay);
    }
    if (overlay) {
        return std::make_unique<MutterKeyboardIdleWatch>(QDBusConnection::sessionBus());
    }
    return nullptr;
}

/// The OAuth clients this build was configured with.
std::map<QString, QString> oauthClientValues(const BundleInfo& bundle)
{
    std::map<QString, QString> values;
    for (const QString& key :
         {RemoteOAuthClientIDStore::googleClientIDKey, RemoteOAuthClientIDStore::googleClientSecretKey,
          RemoteOAuthClientIDStore::microsoftClientIDKey}) {
        if (const auto value = bundle.value(key)) {
            values[key] = *value;
        }
    }
    return values;
}

} // namespace

struct OrvaneApplication::Parts {
    explicit Parts(const BundleInfo& bundle)
        : clientIDs(defaults, oauthClientValues(bundle))
        , windows(WindowCoordinatorDependencies{
              .onboarding = onboardingModel,
              .settings = settingsModel,
              .launchAtLogin = launchAtLogin,
              .bundleValue = [bundle](const QString& key) { return bundle.value(key); },
              .openUrl = openInBrowser,
              .accounts = &accountsModel,
              .activateWithToken = activateWithLauncherToken,
          })
    {
        defaults.removeOrphanedLock();
    }

    SystemClock clock;
    TimerfdAlertTimerScheduler timers;
    SettingsDefaultsDatabase defaults;
    SettingsStore settingsStore{defaults};
    ExclusionStore exclusionStore{defaults};
    DeliveryStore deliveryStore{defaults};

    EdsCalendarRepository localCalendars;
    LocalCalendarSource localSource{localCalendars};
    CompositeCalendarRepository repository{settingsStore, clock};
    CalendarIdentityReconciler reconciler{
        settingsStore, exclusionStore, deliveryStore, [this] {
            return CalendarSnapshot{repository.knownCalendarGroups(), repository.lastFetchWasComplete()};
        }};
    AlertScheduler scheduler{repository, settingsStore, exclusionStore, deliveryStore, timers, clock};

    // Directly connected Google and Microsoft accounts.
    NetworkRemoteHTTPTransport transport{RemoteHTTPRedirectPolicy::sameOrigin};
    OAuthTokenClient tokenClient{transport, [this] {
                                     return clock.now();
                                 }};
    KeyringOAuthRefreshTokenStore keyring;
    OAuthWebAuthorizer authorizer{openInBrowser};
    UserDefaultsRemoteCalendarAccountStore accountStore{defaults};
    RemoteOAuthClientIDStore clientIDs;
    GoogleCalendarClient googleClient{transport};
    MicrosoftGraphCalendarClient microsoftClient{transport};
    CloudAccountCoordinator accounts{CloudAccountCoordinatorDependencies{
        .accountStore = accountStore,
        .clientIDs = clientIDs,
        .authorizer = authorizer,
        .tokenClient = tokenClient,
        .keyring = keyring,
        .repository = repository,
        .settingsStore = settingsStore,
        .exclusionStore = exclusionStore,
        .deliveryStore = deliveryStore,
        .clock = clock,
        .googleClient = googleClient,
        .microsoftClient = microsoftClient,
        .configuration = {},
    }};

    std::unique_ptr<X11DisplayState> displayState = makeDisplayState();
    LogindAlertPresentationSessionMonitor monitor{QDBusConnection::systemBus(), QDBusConnection::sessionBus(),
                                                  displayState.get()};
    X11KeyboardGrabProbe keyboardProbe;
    std::unique_ptr<WaylandConnection> overlayConnection = makeOverlayConnection();
    std::unique_ptr<KeyboardIdleWatch> idleWatch = makeIdleWatch(overlayConnection.get());
    SecureEventInputActivationGate gate{clock, timers, [this] {
                                            return idleWatch ? !idleWatch->isUserIdle()
                                                             : keyboardProbe.anotherClientHoldsKeyboard();
                                        }};
    /// While the screen is shared, alerts show no meeting details.
    PipeWireScreenCastMonitor screenCasts;
    AlertPrivacy alertPrivacy;
    std::unique_ptr<AlertWindowSystem> windowSystem =
        makeAlertWindowSystem(overlayConnection.get(), clock, alertPrivacy);
    FullScreenAlertController alertController{monitor, *windowSystem, clock, timers, gate};

    LinuxSystemEventSource systemEvents;
    AppModel model{AppModelDependencies{
        .defaults = defaults,
        .localCalendars = localCalendars,
        .repository = repository,
        .settingsStore = settingsStore,
        .exclusionStore = exclusionStore,
        .deliveryStore = deliveryStore,
        .scheduler = scheduler,
        .alertController = alertController,
        .clock = clock,
        .systemEvents = systemEvents,
        .reconciler = &reconciler,
        .openUrl = openInBrowser,
        .remoteAccountCoordinator = &accounts,
        .oauthClientIDs = &clientIDs,
    }};

    AppModelOnboardingModel onboardingModel{model, openCalendarApplication};
    AppModelSettingsModel settingsModel{model};
    AppModelConnectedAccountsModel accountsModel{model};
    std::unique_ptr<LaunchAtLoginService> launchAtLoginService = makeLaunchAtLoginService();
    LaunchAtLoginController launchAtLogin{*launchAtLoginService};
    WindowCoordinator windows;
    std::unique_ptr<StatusItemController> statusItem;
    std::unique_ptr<StatusItemHostWatch> statusItemHost;
    DBusApplicationService applicationService;
    ApplicationControlService control{model};
};

OrvaneApplication::OrvaneApplication(const BundleInfo& bundle, QObject* parent)
    : QObject(parent)
    , m_parts(std::make_unique<Parts>(bundle))
{
    Parts& parts = *m_parts;
    parts.repository.addSource(parts.localSource);
    parts.scheduler.setIdentityReconciler(&parts.reconciler);
    connect(&parts.timers, &TimerfdAlertTimerScheduler::systemClockChanged, &parts.systemEvents,
            &SystemEventSource::clockChanged);
    connect(&parts.monitor, &LogindAlertPresentationSessionMonitor::systemWillSleep, &parts.systemEvents,
            &SystemEventSource::willSleep);
    connect(&parts.monitor, &LogindAlertPresentationSessionMonitor::systemDidWake, &parts.systemEvents,
            &SystemEventSource::didWake);
    connect(&parts.monitor, &LogindAlertPresentationSessionMonitor::sessionDidBecomeActive, &parts.systemEvents,
            &SystemEventSource::sessionDidBecomeActive);
    if (parts.idleWatch) {
        connect(parts.idleWatch.get(), &KeyboardIdleWatch::becameIdle, this, [this] { m_parts->gate.evaluate(); });
    }
    parts.alertPrivacy.setConcealsDetails(parts.screenCasts.isScreenShared());
    connect(&parts.screenCasts, &PipeWireScreenCastMonitor::screenSharedChanged, &parts.alertPrivacy,
            &AlertPrivacy::setConcealsDetails);
    connect(&parts.monitor, &LogindAlertPresentationSessionMonitor::sessionLockChanged, &parts.model,
            &AppModel::setAlertsHeldForLock);
    // Alerts held back while the screen was locked or asleep are offered again.
    connect(&parts.monitor, &LogindAlertPresentationSessionMonitor::presentationDidBecomeAvailable, this,
            [this] { m_parts->scheduler.presentationSurfaceDidBecomeAvailable(); });
    const auto updateURL = bundle.value(u"OrvaneUpdateURL"_s);
    parts.statusItem = std::make_unique<StatusItemController>(
        parts.model, parts.windows, updateURL ? std::optional(QUrl(*updateURL)) : std::nullopt, openInBrowser);
    // XEmbed trays exist only on X11 sessions; through XWayland no Wayland desktop shows them.
    parts.statusItemHost = std::make_unique<StatusItemHostWatch>(QDBusConnection::sessionBus(), isX11Session());
    connect(parts.statusItemHost.get(), &StatusItemHostWatch::hostAvailable, parts.statusItem.get(),
            &StatusItemController::showStatusItem);
    connect(parts.statusItemHost.get(), &StatusItemHostWatch::hostMissing, parts.statusItem.get(),
            &StatusItemController::showMenuInWindows);
    parts.windows.setStatusMenu(&parts.statusItem->windowMenu());
    // Queued: the second launch waits for the D-Bus reply, which must not wait for a window.
    connect(&parts.applicationService, &DBusApplicationService::reopenRequested, this, &OrvaneApplication::reopen,
            Qt::QueuedConnection);
}

OrvaneApplication::~OrvaneApplication() = default;

AppModel& OrvaneApplication::model()
{
    return m_parts->model;
}

QCoro::Task<> OrvaneApplication::start(bool atLogin)
{
    if (!m_parts->applicationService.registerOnBus()) {
        qWarning("Orvane: the session bus is unavailable; a second launch cannot find this one.");
    }
    m_parts->control.registerOnBus();
    if (!m_parts->model.hasCompletedOnboarding()) {
        m_parts->windows.openOnboarding();
    }
    QPointer<OrvaneApplication> self(this);
    auto starting = m_parts->model.start();
    co_await std::move(starting);
    if (!self || !m_parts->model.hasCompletedOnboarding()) {
        co_return;
    }
    if (!m_parts->model.hasUsableCalendarSource()) {
        m_parts->windows.openOnboarding();
    } else if (!atLogin) {
        openMenuWithoutTray();
    }
}

void OrvaneApplication::openMenuWithoutTray()
{
    // Someone started Orvane on purpose; without a tray nothing would show that it did. At login nothing opens:
    // a window at every login is a nuisance, and starting Orvane again opens the menu.
    const auto open = [this] { m_parts->windows.openSettings(WindowCoordinating::SettingsSection::menu); };
    if (m_parts->statusItemHost->isHostMissing()) {
        open();
    } else if (!m_parts->statusItemHost->isHostAvailable()) {
        connect(m_parts->statusItemHost.get(), &StatusItemHostWatch::hostMissing, this, open,
                Qt::SingleShotConnection);
    }
}

void OrvaneApplication::reopen(const QString& activationToken)
{
    m_parts->windows.reopen(m_parts->model.hasCompletedOnboarding() && m_parts->model.hasUsableCalendarSource(),
                            activationToken);
}

} // namespace orvane
