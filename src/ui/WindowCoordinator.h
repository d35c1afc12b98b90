// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/AboutViewModel.h"
#include "ui/ConnectedAccountsViewModel.h"
#include "ui/OnboardingViewModel.h"
#include "ui/SettingsViewModel.h"
#include "ui/StatusMenuViewModel.h"
#include "ui/WindowCoordinating.h"

#include <QString>

#include <functional>
#include <memory>

class QQmlEngine;
class QQuickWindow;
class QWindow;

namespace orvane {

/// What the window coordinator works with; the models and the controller must outlive the coordinator.
struct WindowCoordinatorDependencies {
    OnboardingModel& onboarding;
    SettingsModel& settings;
    LaunchAtLoginController& launchAtLogin;
    AboutViewModel::BundleValue bundleValue;
    AboutViewModel::OpenUrl openUrl;
    /// The connected accounts, which settings and onboarding's connect sheet show; absent when this copy cannot
    /// connect any. Must outlive the coordinator.
    ConnectedAccountsModel* accounts = nullptr;
    /// Brings a shown window in front of the user's work with a launcher's activation token (the desktop refuses
    /// it otherwise); absent: the window only asks.
    std::function<void(QWindow& window, const QString& activationToken)> activateWithToken;
};

/// Owns the onboarding, settings and about windows: each is made on first use, reused afterwards and brought to the
/// front when asked for again. Main thread only.
class WindowCoordinator final : public WindowCoordinating {
public:
    explicit WindowCoordinator(WindowCoordinatorDependencies dependencies);
    ~WindowCoordinator() override;

    void openOnboarding() override;
    void openSettings(SettingsSection section = SettingsSection::general) override;
    void openAbout() override;

    /// Orvane was launched again: the windows open now come forward as they are; with none open, settings opens
    /// when the calendar setup is usable (on the menu while no tray shows it), otherwise onboarding.
    /// `activationToken` is the launcher's, if any.
    void reopen(bool calendarSetupUsable, const QString& activationToken);

    /// The status menu that settings shows while no tray does; set before settings is first opened. Not owned, and
    /// must outlive the coordinator.
    void setStatusMenu(StatusMenuViewModel* menu) { m_statusMenu = menu; }

    /// The windows once made; null before the first use or when their scene failed to load.
    QQuickWindow* onboardingWindow() const { return m_onboardingWindow.get(); }
    QQuickWindow* settingsWindow() const { return m_settingsWindow.get(); }
    QQuickWindow* aboutWindow() const { return m_aboutWindow.get(); }
    OnboardingViewModel* onboardingViewModel() const { return m_onboardingViewModel.get(); }
    SettingsViewModel* settingsViewModel() const { return m_settingsViewModel.get(); }
    /// Why the last window could not be made; empty after a success.
    const QString& errorString() const { return m_errorString; }

    ConnectedAccountsViewModel* accountsViewModel() const { return m_accountsViewModel.get(); }

private:
    QQuickWindow* createWindow(const QString& source, QObject* viewModel);
    /// The accounts' view model shared by settings and onboarding, made with the first of them.
    QObject* sharedAccountsViewModel();
    void bringToFront(QQuickWindow& window);

    WindowCoordinatorDependencies m_dependencies;
    QString m_errorString;
    /// The token of the reopen being handled; used once.
    QString m_activationToken;
    StatusMenuViewModel* m_statusMenu = nullptr;
    // Destroyed in reverse: the windows before the view models they show, both before the engine.
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<OnboardingViewModel> m_onboardingViewModel;
    std::unique_ptr<ConnectedAccountsViewModel> m_accountsViewModel;
    std::unique_ptr<SettingsViewModel> m_settingsViewModel;
    std::unique_ptr<AboutViewModel> m_aboutViewModel;
    std::unique_ptr<QQuickWindow> m_onboardingWindow;
    std::unique_ptr<QQuickWindow> m_settingsWindow;
    std::unique_ptr<QQuickWindow> m_aboutWindow;
};

} // namespace orvane
