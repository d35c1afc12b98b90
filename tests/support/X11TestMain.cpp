// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/X11TestSession.h"

#include <QApplication>
#include <QLocale>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int runTestsOnX11(int argc, char** argv, X11TestSession*& session)
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
        // Xvfb has no GPU: Mesa's software GL would stand in, and it leaves allocations behind in a driver that is
        // unloaded before LeakSanitizer can name it. Stacking, focus and screenshots do not depend on the renderer.
        setenv("QT_QUICK_BACKEND", "software", 0);
    }
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    session = nullptr;
    return result;
}
