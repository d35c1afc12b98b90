// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/WindowCoordinator.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QtDebug>

#include <algorithm>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace orvane {

WindowCoordinator::WindowCoordinator(WindowCoordinatorDependencies dependencies)
    : m_dependencies(std::move(dependencies))
{
}

WindowCoordinator::~WindowCoordinator() = default;

void WindowCoordinator::openOnboarding()
{
    if (m_onboardingWindow == nullptr) {
        m_onboardingViewModel = std::make_unique<OnboardingViewModel>(m_dependencies.onboarding);
        m_onboardingViewModel->setAccounts(sharedAccountsViewModel());
        m_onboardingWindow.reset(createWindow(u"qrc:/orvane/ui/OnboardingWindow.qml"_s, m_onboardingViewModel.get()));
        if (m_onboardingWindow == nullptr) {
            return;
        }
        QObject::connect(m_onboardingViewModel.get(), &OnboardingViewModel::closeRequested, m_onboardingWindow.get(),
                         &QQuickWindow::close);
    } else if (!m_onboardingWindow->isVisible()) {
        // A closed window opens anew at the beginning; an open one keeps the user's place.
        m_onboardingViewModel->restart();
    }
    bringToFront(*m_onboardingWindow);
}

void WindowCoordinator::openSettings(SettingsSection section)
{
    if (m_settingsWindow == nullptr) {
        m_settingsViewModel =
            std::make_unique<SettingsViewModel>(m_dependencies.settings, m_dependencies.launchAtLogin);
        m_settingsViewModel->setAccounts(sharedAccountsViewModel());
        m_settingsViewModel->setStatusMenu(m_statusMenu);
        m_settingsWindow.reset(createWindow(u"qrc:/orvane/ui/SettingsWindow.qml"_s, m_settingsViewModel.get()));
        if (m_settingsWindow == nullptr) {
            return;
        }
    }
    m_settingsViewModel->open(section);
    bringToFront(*m_settingsWindow);
}

void WindowCoordinator::openAbout()
{
    if (m_aboutWindow == nullptr) {
        m_aboutViewModel = std::make_unique<AboutViewModel>(m_dependencies.bundleValue, m_dependencies.openUrl);
        m_aboutWindow.reset(createWindow(u"qrc:/orvane/ui/AboutWindow.qml"_s, m_aboutViewModel.get()));
        if (m_aboutWindow == nullptr) {
            return;
        }
    }
    bringToFront(*m_aboutWindow);
}

QObject* WindowCoordinator::sharedAccountsViewModel()
{
    if (m_accountsViewModel == nullptr && m_dependencies.accounts != nullptr) {
        m_accountsViewModel = std::make_unique<ConnectedAccountsViewModel>(*m_dependencies.accounts);
    }
    return m_accountsViewModel.get();
}

QQuickWindow* WindowCoordinator::createWindow(const QString& source, QObject* viewModel)
{
    if (m_engine == nullptr) {
        m_engine = std::make_unique<QQmlEngine>();
    }
    m_errorString.clear();
    QQmlComponent component(m_engine.get(), QUrl(source), QQmlComponent::PreferSynchronous);
    std::unique_ptr<QObject> object(
        component.createWithInitialProperties({{u"viewModel"_s, QVariant::fromValue(viewModel)}}));
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    if (window == nullptr || component.isError()) {
        m_errorString =
            object == nullptr || component.isError() ? component.errorString() : u"The scene's root is not a window"_s;
        qWarning().noquote() << "Orvane could not show" << source << ":" << m_errorString;
        return nullptr;
    }
    object.release();
    return window;
}

void WindowCoordinator::reopen(bool calendarSetupUsable, const QString& activationToken)
{
    m_activationToken = activationToken;
    std::vector<QQuickWindow*> open;
    for (QQuickWindow* window : {m_aboutWindow.get(), m_onboardingWindow.get(), m_settingsWindow.get()}) {
        if (window != nullptr && window->isVisible()) {
            open.push_back(window);
        }
    }
    if (open.empty()) {
        // Without a tray, the menu is the only place the user can reach the meetings and the commands; with one,
        // settings has no menu page and opens on its general one.
        calendarSetupUsable ? openSettings(SettingsSection::menu) : openOnboarding();
    }
    // Every open window comes forward; the last one raised takes the focus (and the token).
    if (!open.empty()) {
        std::for_each(open.begin(), open.end() - 1, [](QQuickWindow* window) { window->raise(); });
        bringToFront(*open.back());
    }
    m_activationToken.clear();
}

void WindowCoordinator::bringToFront(QQuickWindow& window)
{
    window.show();
    window.raise();
    // A token is good for one activation.
    const QString token = std::exchange(m_activationToken, QString());
    if (!token.isEmpty() && m_dependencies.activateWithToken) {
        m_dependencies.activateWithToken(window, token);
    } else {
        window.requestActivate();
    }
}

} // namespace orvane
