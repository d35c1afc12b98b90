// SPDX-License-Identifier: GPL-3.0-or-later
// The settings window on a real X server managed by openbox: one screenshot per section, window frame included, in
// artifacts/.
//
// This executable has a main of its own: Qt must find DISPLAY and the xcb platform before its application object
// exists, so the X server and openbox start first.
#include "SettingsFixtures.h"
#include "support/X11TestSession.h"
#include "ui/LaunchAtLoginController.h"

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
    QQmlEngine engine;
    QQmlComponent component(&engine, QUrl(u"qrc:/orvane/ui/SettingsWindow.qml"_s), QQmlComponent::PreferSynchronous);
    std::unique_ptr<QObject> object(
        component.createWithInitialProperties({{u"viewModel"_s, QVariant::fromValue(&settings)}}));
    auto* window = qobject_cast<QQuickWindow*>(object.get());
    ASSERT_NE(window, nullptr) << component.errorString().toStdString();
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window));

    const auto shoot = [&](const char* name) {
        QTest::qWait(400); // the window manager's frame and the first frame of the new page
        const QRect frame = window->frameGeometry();
        const std::string crop = std::to_string(frame.width()) + "x" + std::to_string(frame.height()) + "+" +
                                 std::to_string(frame.x()) + "+" + std::to_string(frame.y());
        const std::string path = std::string(ORVANE_SETTINGS_X11_ARTIFACTS_DIR) + "/settings-" + name + ".png";
        session->screenshot(path); // makes the directory
        session->run({"import", "-window", "root", "-crop", crop, "+repage", path});
    };
    const std::pair<Section, const char*> sections[] = {
        {Section::general, "general"},
        {Section::calendars, "calendars"},
        {Section::accounts, "accounts"},
        {Section::exclusions, "exclusions"},
    };
    for (const auto& [section, name] : sections) {
        settings.open(section);
        EXPECT_EQ(settings.section(), section);
        shoot(name);
    }

    model.change([&] {
        model.unreadable = {{PersistenceComponent::exclusions, {PersistenceReadFailure::MalformedEnvelope{}}}};
        model.error = QString::fromUtf16(persistencePausedMessage);
    });
    EXPECT_EQ(settings.section(), Section::storedData);
    shoot("stored-data");
}

} // namespace

int main(int argc, char** argv)
{
    return runTestsOnX11(argc, argv, session);
}
