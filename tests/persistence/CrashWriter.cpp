// SPDX-License-Identifier: GPL-3.0-or-later
// The program the crash-safety test starts and kills: it opens the three stores on the settings file named by its
// first argument and writes step after step, reporting each step on standard output once all its writes are durable.
// With a second argument it stops, normally, after that step.
#include "CrashWriterSteps.h"
#include "persistence/SettingsDefaultsDatabase.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>
#include <limits>

using namespace orvane;

int main(int argc, char** argv)
{
    // As in Orvane itself, so that the lock files Qt leaves carry an application name.
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2) {
        std::fprintf(stderr, "usage: %s <settings file> [<last step>]\n", argv[0]);
        return 2;
    }
    const qint64 lastStep = arguments.size() > 2 ? arguments[2].toLongLong() : std::numeric_limits<qint64>::max();

    SettingsDefaultsDatabase database(arguments[1]);
    SettingsStore settings(database);
    ExclusionStore exclusions(database);
    DeliveryStore delivery(database);
    for (const auto* state : {&settings.readState(), &exclusions.readState(), &delivery.readState()}) {
        if (const auto failure = state->failure()) {
            std::fprintf(stderr, "a record is unreadable: %s\n", qPrintable(failure->message()));
            return 3;
        }
    }

    qint64 step = crashwriter::stepOf(settings.settings());
    std::printf("started %lld\n", static_cast<long long>(step));
    std::fflush(stdout);
    try {
        while (step < lastStep) {
            ++step;
            crashwriter::writeStep(step, settings, exclusions, delivery);
            std::printf("%lld\n", static_cast<long long>(step));
            std::fflush(stdout);
        }
    } catch (const PersistenceStoreError& error) {
        std::fprintf(stderr, "step %lld failed: %s\n", static_cast<long long>(step), qPrintable(error.description()));
        return 4;
    }
    return 0;
}
