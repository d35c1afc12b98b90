// SPDX-License-Identifier: GPL-3.0-or-later
// Real timers on the real clock. Every wait is many times longer than the delay it covers, so that a loaded machine
// makes the run slower, never red; speed is measured by bench/scheduling/TimerAccuracyBenchmark.cpp.
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"

#include "scheduling/Clock.h"

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace orvane {
namespace {

Date now()
{
    return SystemClock().now();
}

/// Runs the event loop until `done` holds or `timeout` has passed; returns whether it holds.
bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = 10s)
{
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done()) {
            loop.quit();
        }
    });
    poll.start(1ms);
    QTimer::singleShot(timeout, &loop, &QEventLoop::quit);
    if (!done()) {
        loop.exec();
    }
    return done();
}

void runFor(std::chrono::milliseconds duration)
{
    runUntil([] { return false; }, duration);
}

class TimerfdAlertTimerSchedulerTest : public testing::Test {
protected:
    TimerfdAlertTimerScheduler scheduler;
};

TEST_F(TimerfdAlertTimerSchedulerTest, FiresOnceAtTheInstantAndNotBefore)
{
    // Delays with sub-millisecond parts, since the instant is handed to the kernel to the nanosecond.
    for (const double delay : {0.02, 0.1234567, 0.4}) {
        const Date target = now() + delay;
        std::vector<Date> fired;
        const auto token = scheduler.schedule(target, [&] { fired.push_back(now()); });

        ASSERT_TRUE(runUntil([&] { return !fired.empty(); })) << delay;
        EXPECT_GE(fired.front(), target) << delay;
        EXPECT_LT(fired.front() - target, 2.0) << delay;
        runFor(300ms);
        EXPECT_EQ(fired.size(), 1u) << delay;
    }
}

TEST_F(TimerfdAlertTimerSchedulerTest, PastDateFiresSoonButNeverInsideSchedule)
{
    // Long past (the machine slept through it), just past, and exactly now.
    for (const double offset : {-86'400.0, -0.5, 0.0}) {
        const Date armed = now();
        std::optional<Date> firedAt;
        const auto token = scheduler.schedule(armed + offset, [&] { firedAt = now(); });
        // Running the handler inside schedule() would re-enter the caller while it is still storing the token.
        EXPECT_FALSE(firedAt.has_value()) << offset;

        ASSERT_TRUE(runUntil([&] { return firedAt.has_value(); })) << offset;
        EXPECT_GE(*firedAt - armed, AlertTimerScheduling::minimumDelay) << offset;
        EXPECT_LT(*firedAt - armed, 2.0) << offset;
    }
}

TEST_F(TimerfdAlertTimerSchedulerTest, StoppedTimersNeverFire)
{
    struct Stop {
        const char* name;
        int cancels;
        bool destroys;
    };
    const Stop stops[] = {
        {"cancel", 1, false},
        {"cancelTwice", 2, false},
        {"destroyAfterCancel", 1, true},
        {"destroy", 0, true},
    };
    for (const auto& [name, cancels, destroys] : stops) {
        int fired = 0;
        auto token = scheduler.schedule(now() + 0.05, [&] { ++fired; });
        for (int cancel = 0; cancel < cancels; ++cancel) {
            token->cancel();
        }
        if (destroys) {
            token.reset();
        }
        runFor(400ms);
        EXPECT_EQ(fired, 0) << name;
    }
}

TEST_F(TimerfdAlertTimerSchedulerTest, CancellingAfterFiringIsHarmless)
{
    int fired = 0;
    auto token = scheduler.schedule(now() + 0.01, [&] { ++fired; });
    ASSERT_TRUE(runUntil([&] { return fired == 1; }));
    token->cancel();
    token->cancel();
    token.reset();
    EXPECT_EQ(fired, 1);
}

TEST_F(TimerfdAlertTimerSchedulerTest, HandlerMayDropOrReplaceItsOwnToken)
{
    // The scheduler's timer handler refreshes, and a refresh cancels the timer that is running and arms the next.
    std::unique_ptr<AlertTimerToken> token;
    std::vector<std::string> fired;
    token = scheduler.schedule(now() + 0.01, [&] {
        fired.emplace_back("first");
        token->cancel();
        token = scheduler.schedule(now() + 0.01, [&] {
            fired.emplace_back("second");
            token.reset();
        });
    });

    ASSERT_TRUE(runUntil([&] { return fired.size() == 2; }));
    EXPECT_EQ(fired, (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(token, nullptr);
}

TEST_F(TimerfdAlertTimerSchedulerTest, SeveralTimersFireInDateOrder)
{
    const Date start = now();
    // Armed out of order, 150 ms apart: far more than the timer's jitter.
    const std::vector<double> offsets{0.45, 0.15, 0.75, 0.30, 0.60};
    std::vector<double> fired;
    std::vector<std::unique_ptr<AlertTimerToken>> tokens;
    for (const double offset : offsets) {
        tokens.push_back(scheduler.schedule(start + offset, [&fired, offset] { fired.push_back(offset); }));
    }

    ASSERT_TRUE(runUntil([&] { return fired.size() == offsets.size(); }));
    EXPECT_EQ(fired, (std::vector<double>{0.15, 0.30, 0.45, 0.60, 0.75}));
}

TEST(TimerfdAlertTimerSchedulerTeardown, TokenMayOutliveItsScheduler)
{
    int fired = 0;
    std::unique_ptr<AlertTimerToken> token;
    {
        TimerfdAlertTimerScheduler scheduler;
        token = scheduler.schedule(now() + 0.05, [&] { ++fired; });
    }
    token->cancel();
    token.reset();
    runFor(300ms);
    EXPECT_EQ(fired, 0);
}

} // namespace
} // namespace orvane
