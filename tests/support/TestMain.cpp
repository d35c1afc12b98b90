// SPDX-License-Identifier: GPL-3.0-or-later
// The main of every test executable: a Qt application object exists for the whole run, as in Orvane itself.
#include <QApplication>
#include <QLocale>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv)
{
    // Tests never need a real display unless they start one and say so.
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    // A fixed locale and zone, so that no result depends on the machine running the tests.
    setenv("TZ", "UTC", 0);
    // Qt wants a private runtime directory; machines without a login session have none.
    if (getenv("XDG_RUNTIME_DIR") == nullptr) {
        char runtime[] = "/tmp/orvane-test-runtime-XXXXXX";
        if (mkdtemp(runtime) != nullptr) {
            setenv("XDG_RUNTIME_DIR", runtime, 1);
        }
    }
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
