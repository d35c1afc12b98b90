// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/SecureEventInputActivationGate.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeTimerScheduler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace orvane;

namespace {

enum class Flag { session, system, screens };

struct AvailabilityCase {
    std::string name;
    std::vector<std::pair<Flag, bool>> steps;
    std::vector<bool> expectedReports;
};

class AlertPresentationAvailabilityTest : public testing::TestWithParam<AvailabilityCase> {};

TEST_P(AlertPresentationAvailabilityTest, ReportsOnlyChangesOfTheCombinedFlag)
{
    AlertPresentationAvailability availability;
    std::vector<bool> reports;
    availability.setOnPresentationAvailabilityChange([&](bool available) {
        reports.push_back(available);
        EXPECT_EQ(availability.isPresentationAvailable(), available);
    });
    for (const auto& [flag, value] : GetParam().steps) {
        switch (flag) {
        case Flag::session:
            availability.setSessionActive(value);
            break;
        case Flag::system:
            availability.setSystemAwake(value);
            break;
        case Flag::screens:
            availability.setScreensAwake(value);
            break;
        }
    }
    EXPECT_EQ(reports, GetParam().expectedReports);
}

INSTANTIATE_TEST_SUITE_P(
    Sequences, AlertPresentationAvailabilityTest,
    testing::Values(AvailabilityCase{"SettingCurrentValuesReportsNothing",
                                     {{Flag::session, true}, {Flag::system, true}, {Flag::screens, true}},
                                     {}},
                    AvailabilityCase{"EachFlagAloneTurnsItOffAndOn",
                                     {{Flag::session, false},
                                      {Flag::session, true},
                                      {Flag::system, false},
                                      {Flag::system, true},
                                      {Flag::screens, false},
                                      {Flag::screens, true}},
                                     {false, true, false, true, false, true}},
                    AvailabilityCase{"RepeatedOffReportsOnce", {{Flag::system, false}, {Flag::system, false}}, {false}},
                    AvailabilityCase{
                        "LockWhileScreensAsleepThenUnlockThenWake",
                        {{Flag::screens, false}, {Flag::session, false}, {Flag::session, true}, {Flag::screens, true}},
                        {false, true}},
                    AvailabilityCase{"AllOffThenBackInAnotherOrder",
                                     {{Flag::session, false},
                                      {Flag::system, false},
                                      {Flag::screens, false},
                                      {Flag::system, true},
                                      {Flag::session, true},
                                      {Flag::screens, true}},
                                     {false, true}}),
    [](const auto& info) { return info.param.name; });

class SecureEventInputActivationGateTest : public testing::Test {
protected:
    Date start() const { return Date{700'000'000}; }
    double elapsed() const { return clock.now() - start(); }

    FakeClock clock{Date{700'000'000}};
    FakeTimerScheduler timers{clock};
    bool secureInput = false;
    std::vector<std::string> ran;
    SecureEventInputActivationGate gate{clock, timers, [this] {
                                            return secureInput;
                                        }};
};

TEST_F(SecureEventInputActivationGateTest, RunsAtOnceWhenNothingHoldsItBack)
{
    EXPECT_TRUE(gate.submit(std::nullopt, [this] { ran.push_back("a"); }));
    EXPECT_EQ(ran, std::vector<std::string>{"a"});
    EXPECT_FALSE(gate.hasPendingAction());
    EXPECT_TRUE(timers.armed().empty());
    EXPECT_FALSE(gate.evaluate());
}

TEST_F(SecureEventInputActivationGateTest, BacksOffWhileTheKeyboardIsHeldAndResetsOnceItRuns)
{
    secureInput = true;
    EXPECT_FALSE(gate.submit(start() - 5, [this] { ran.push_back("a"); }));
    std::vector<double> retryOffsets;
    for (int retry = 0; retry < 8; ++retry) {
        ASSERT_EQ(timers.armed().size(), 1u);
        retryOffsets.push_back(*timers.nextDate() - clock.now());
        timers.advanceTo(*timers.nextDate());
    }
    EXPECT_EQ(retryOffsets, (std::vector<double>{0.25, 0.5, 1, 2, 4, 5, 5, 5}));
    EXPECT_TRUE(ran.empty());

    secureInput = false;
    const Date nextRetry = *timers.nextDate();
    timers.advanceTo(nextRetry + 1);
    EXPECT_EQ(ran, std::vector<std::string>{"a"});
    EXPECT_EQ(timers.scheduledCount(), 9);
    EXPECT_TRUE(timers.armed().empty());
    EXPECT_EQ(gate.nextRetryDelay(), SecureEventInputActivationGate::initialRetryDelay);

    // A later action held back again starts from the shortest wait.
    secureInput = true;
    EXPECT_FALSE(gate.submit(std::nullopt, [this] { ran.push_back("b"); }));
    EXPECT_EQ(*timers.nextDate(), clock.now() + 0.25);
}

TEST_F(SecureEventInputActivationGateTest, WaitsForNotBeforeEvenWithTheKeyboardFree)
{
    EXPECT_FALSE(gate.submit(start() + 10, [this] { ran.push_back("a"); }));
    timers.advanceTo(start() + 9.999);
    EXPECT_TRUE(ran.empty());
    timers.advanceTo(start() + 10);
    EXPECT_EQ(ran, std::vector<std::string>{"a"});
    EXPECT_EQ(elapsed(), 10);

    // Held keyboard at the not-before time: the first wait starts from there.
    secureInput = true;
    EXPECT_FALSE(gate.submit(start() + 20, [this] { ran.push_back("b"); }));
    timers.advanceTo(start() + 20);
    EXPECT_EQ(*timers.nextDate(), start() + 20.25);
}

TEST_F(SecureEventInputActivationGateTest, CancelledOrReplacedActionsNeverRun)
{
    secureInput = true;
    gate.submit(std::nullopt, [this] { ran.push_back("cancelled"); });
    timers.advanceTo(start() + 1); // two retries
    gate.cancel();
    EXPECT_TRUE(timers.armed().empty());
    EXPECT_FALSE(gate.hasPendingAction());
    EXPECT_EQ(gate.nextRetryDelay(), SecureEventInputActivationGate::initialRetryDelay);

    gate.submit(std::nullopt, [this] { ran.push_back("replaced"); });
    gate.submit(std::nullopt, [this] { ran.push_back("latest"); });
    EXPECT_EQ(timers.armed().size(), 1u);
    secureInput = false;
    timers.advanceTo(start() + 100);
    EXPECT_EQ(ran, std::vector<std::string>{"latest"});
}

TEST(SecureEventInputActivationGateLifetimeTest, DestroyingTheGateCancelsItsRetry)
{
    FakeClock clock;
    FakeTimerScheduler timers{clock};
    bool ran = false;
    {
        SecureEventInputActivationGate gate{clock, timers, [] {
                                                return true;
                                            }};
        gate.submit(std::nullopt, [&] { ran = true; });
        EXPECT_EQ(timers.armed().size(), 1u);
    }
    EXPECT_TRUE(timers.armed().empty());
    timers.advanceTo(clock.now() + 100);
    EXPECT_FALSE(ran);
}

} // namespace
