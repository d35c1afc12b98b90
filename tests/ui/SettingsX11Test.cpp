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
    bool listing = false;
    for (int index = 1; index < argc; ++index) {
        listing = listing || std::strncmp(argv[index], "--gtest_list_tests", 18) == 0;
    }
    setenv("TZ", "UTC", 1);
    if (getenv("XDG_RUNTIME_DIR") == nullptr) {
        char runtime[] = "/tmp/orvane-test-runtime-XXXXXX";
        if (mkdtemp(runtime) != nullptr) {
            setenv("XDG_RUNTIME_DIR", runtime, 1);
        }
    }
    // Declared before the application object, so that the X server outlives Qt's connection to it.
    X11TestSession x11;
    if (listing) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    } else {
        try {
            x11.start();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            return 1;
        }
        session = &x11;
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        // Xvfb has no GPU; Mesa's software GL would leave allocations behind that LeakSanitizer cannot name.
        setenv("QT_QUICK_BACKEND", "software", 0);
    }
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
