// SPDX-License-Identifier: GPL-3.0-or-later
// How late the alert timer fires. An alert that is due at 09:55:00 should be on screen then, not a scheduler tick
// later: the goal is a p99 lateness within 2 ms. The program arms 200 one-shot timers at random instants of the next
// minute, runs the event loop until all have fired and prints the lateness of each against the system clock (the
// clock the timers are armed on). It takes a minute of wall-clock time by design, so it is a program of its own and
// not part of the test suite; --window=20 shortens it.

#include "scheduling/Clock.h"
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;

constexpr int kTimerCount = 200;
constexpr unsigned kSeed = 2024;
/// The earliest instant used: arming all timers takes a moment, which must not count as lateness.
constexpr double kEarliestOffset = 0.5;
/// How long to wait beyond the window before declaring a timer lost.
constexpr double kGrace = 30;

/// The nearest-rank percentile of sorted values.
double percentile(const std::vector<double>& sorted, double fraction)
{
    const auto rank = static_cast<std::size_t>(std::ceil(fraction * double(sorted.size())));
    return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Measures how late one-shot alert timers fire."_s);
    parser.addHelpOption();
    const QCommandLineOption windowOption(u"window"_s, u"Spread the timers over this many seconds (default 60)."_s,
                                          u"seconds"_s, u"60"_s);
    parser.addOption(windowOption);
    // scripts/bench.sh hands Google Benchmark's flags to every benchmark program; they mean nothing here.
    if (!parser.parse(QCoreApplication::arguments())) {
        for (const QString& name : parser.unknownOptionNames()) {
            if (!name.startsWith(u"benchmark_")) {
                std::fprintf(stderr, "%s\n", qPrintable(parser.errorText()));
                return 2;
            }
        }
    }
    if (parser.isSet(u"help"_s)) {
        parser.showHelp();
    }
    bool valid = false;
    const double window = parser.value(windowOption).toDouble(&valid);
    if (!valid || window <= kEarliestOffset) {
        std::fprintf(stderr, "--window must be a number of seconds above %.1f\n", kEarliestOffset);
        return 2;
    }

    std::printf("Arming %d timers at random instants within the next %.0f s (seed %u); this takes that long.\n",
                kTimerCount, window, kSeed);
    std::fflush(stdout);

    std::mt19937 random(kSeed);
    std::uniform_real_distribution<double> offset(kEarliestOffset, window);
    const SystemClock clock;
    TimerfdAlertTimerScheduler scheduler;
    std::vector<double> lateness;
    lateness.reserve(kTimerCount);
    std::vector<std::unique_ptr<AlertTimerToken>> tokens;
    const Date start = clock.now();
    for (int index = 0; index < kTimerCount; ++index) {
        const Date target = start + offset(random);
        tokens.push_back(scheduler.schedule(target, [&, target] {
            lateness.push_back((clock.now() - target) * 1000);
            if (lateness.size() == kTimerCount) {
                QCoreApplication::quit();
            }
        }));
    }
    QTimer::singleShot(std::chrono::milliseconds(std::llround((window + kGrace) * 1000)), &application,
                       &QCoreApplication::quit);
    application.exec();

    if (lateness.size() != kTimerCount) {
        std::printf("FAILED: only %zu of %d timers fired within %.0f s\n", lateness.size(), kTimerCount,
                    window + kGrace);
        return 1;
    }
    std::sort(lateness.begin(), lateness.end());
    std::printf("Lateness (fire time minus target, system clock), ms:\n");
    std::printf("  min     %8.3f\n", lateness.front());
    std::printf("  median  %8.3f\n", percentile(lateness, 0.5));
    std::printf("  p99     %8.3f\n", percentile(lateness, 0.99));
    std::printf("  max     %8.3f\n", lateness.back());
    if (lateness.front() < 0) {
        // An alert shown before its time is a fault, not a slow timer.
        std::printf("FAILED: %td timers fired before their instant\n",
                    std::count_if(lateness.begin(), lateness.end(), [](double value) { return value < 0; }));
        return 1;
    }
    std::printf("Goal p99 <= 2 ms: %s\n", percentile(lateness, 0.99) <= 2.0 ? "met" : "MISSED");
    return 0;
}
