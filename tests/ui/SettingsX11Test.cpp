// SPDX-License-Identifier: GPL-3.0-or-later
// The settings window on a real X server managed by openbox: one screenshot per section, window frame included, in
// artifacts/.
//
// This executable has a main of its own: Qt must find DISPLAY and the xcb platform before its application object
// exists, so the X server and openbox start first.
#include "SettingsFixtures.h"
#include "support/X11TestSession.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/StatusMenuViewModel.h"
#include "ui/WindowCoordinator.h"

#include <QApplication>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

using namespace settingsfixtures;
using Section = SettingsViewModel::Section;

namespace {

X11TestSession* session = nullptr;

/// Saves what the screen shows of `window`, frame included, as artifacts/<name>.png.
void shoot(const QQuickWindow& window, const std::string& name)
{
    QTest::qWait(400); // the window manager's frame and the first frame of the new content
    const QRect frame = window.frameGeometry();
    const std::string crop = std::to_string(frame.width()) + "x" + std::to_string(frame.height()) + "+" +
                             std::to_string(frame.x()) + "+" + std::to_string(frame.y());
    const std::string path = std::string(ORVANE_SETTINGS_X11_ARTIFACTS_DIR) + "/" + name + ".png";
    session->screenshot(path); // makes the directory
    session->run({"import", "-window", "root", "-crop", crop, "+repage", path});
}

TEST(SettingsX11Test, EachSectionOnScreen)
{
    FakeSettingsModel model;
    fill(model);
    ScriptedLaunchService service;
    LaunchAtLoginController launchAtLogin(service);
    SettingsViewModel settings(model, launchAtLogin);
    FakeConnectedAccountsModel accountsModel;
    fill(accountsModel);
    ConnectedAccountsViewModel accounts(accountsModel);
    settings.setAccounts(&accounts);
    StatusMenuViewModel menu({});
    menu.setEntries(sampleMenu());
    settings.setStatusMenu(&menu);
    QQmlEngine engine;
    QQmlComponent component(&engine, QUrl(u"qrc:/orvane/ui/SettingsWindow.qml"_s), QQmlComponent::PreferSynchronous);
    std::unique_ptr<QObject> object(
        component.createWithInitialProperties({{u"viewModel"_s, QVariant::fromValue(&settings)}}));
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    ASSERT_NE(window, nullptr) << component.errorString().toStdString();
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window));

    const std::pair<Section, const char*> sections[] = {
        {Section::general, "general"},
        {Section::calendars, "calendars"},
        {Section::accounts, "accounts"},
        {Section::exclusions, "exclusions"},
    };
    for (const auto& [section, name] : sections) {
        settings.open(section);
        EXPECT_EQ(settings.section(), section);
        shoot(*window, std::string("settings-") + name);
    }

    // A desktop without a tray.
    menu.setNeeded(true);
    settings.open(Section::menu);
    EXPECT_EQ(settings.section(), Section::menu);
    shoot(*window, "settings-menu");
    menu.setNeeded(false);

    model.change([&] {
        model.unreadable = {{PersistenceComponent::exclusions, {PersistenceReadFailure::MalformedEnvelope{}}}};
        model.error = QString::fromUtf16(persistencePausedMessage);
    });
    EXPECT_EQ(settings.section(), Section::storedData);
    shoot(*window, "settings-stored-data");
}

TEST(WindowsX11Test, OnboardingStepsAndAboutOnScreen)
{
    FakeOnboardingModel onboarding;
    onboarding.state = CalendarAuthorizationState::notDetermined;
    FakeSettingsModel settings;
    FakeConnectedAccountsModel accounts;
    accounts.preconfigured = {RemoteCalendarProviderKind::google, RemoteCalendarProviderKind::microsoft};
    accounts.clientIDs = {{RemoteCalendarProviderKind::google, u"built-in"_s},
                          {RemoteCalendarProviderKind::microsoft, u"built-in"_s}};
    ScriptedLaunchService service;
    LaunchAtLoginController launchAtLogin(service);
    WindowCoordinator windows({.onboarding = onboarding,
                               .settings = settings,
                               .launchAtLogin = launchAtLogin,
                               .bundleValue = bundle({{u"CFBundleShortVersionString"_s, u"0.1.0"_s},
                                                      {u"CFBundleVersion"_s, u"1"_s},
                                                      {u"OrvaneWebsiteURL"_s, u"https://orvane.example/"_s},
                                                      {u"OrvaneSupportURL"_s, u"https://orvane.example/help"_s}}),
                               .openUrl = {},
                               .accounts = &accounts});

    windows.openOnboarding();
    ASSERT_NE(windows.onboardingWindow(), nullptr) << windows.errorString().toStdString();
    QQuickWindow& window = *windows.onboardingWindow();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    OnboardingViewModel& steps = *windows.onboardingViewModel();
    shoot(window, "onboarding-welcome");
    steps.continueFromWelcome();
    shoot(window, "onboarding-access");

    onboarding.state = CalendarAuthorizationState::fullAccess;
    onboarding.groups = threeCalendars();
    Q_EMIT onboarding.changed();
    steps.checkAgain();
    steps.chooseCalendars();
    EXPECT_EQ(steps.step(), OnboardingViewModel::Step::calendars);
    shoot(window, "onboarding-calendars");

    // Without calendars the step offers the connect sheet.
    onboarding.groups.clear();
    Q_EMIT onboarding.changed();
    auto* sheet = window.findChild<QObject*>(u"connectSheet"_s);
    ASSERT_NE(sheet, nullptr);
    QMetaObject::invokeMethod(sheet, "open");
    shoot(window, "onboarding-connect");
    QMetaObject::invokeMethod(sheet, "close");

    steps.finishWithoutCalendars();
    EXPECT_EQ(steps.step(), OnboardingViewModel::Step::complete);
    shoot(window, "onboarding-complete");

    windows.openAbout();
    ASSERT_NE(windows.aboutWindow(), nullptr);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(windows.aboutWindow()));
    shoot(*windows.aboutWindow(), "about");
}

} // namespace

int main(int argc, char** argv)
{
    return runTestsOnX11(argc, argv, session);
}
