// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertTexts.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using orvane::AlertTexts;
using orvane::Date;

namespace {

constexpr double start = 700'000'000;
constexpr double end = start + 30 * 60;

struct CountdownCase {
    /// Seconds from the start to "now": negative before the start.
    double offset;
    QString text;
    QString spoken;
};

void PrintTo(const CountdownCase& value, std::ostream* out)
{
    *out << "start" << (value.offset < 0 ? "" : "+") << value.offset << "s";
}

class CountdownTest : public ::testing::TestWithParam<CountdownCase> {};

TEST_P(CountdownTest, showsAndSpeaksTheTimeLeft)
{
    const CountdownCase& row = GetParam();
    const Date now{start + row.offset};
    EXPECT_EQ(AlertTexts::countdownText(now, Date{start}, Date{end}), row.text);
    EXPECT_EQ(AlertTexts::countdownAccessibilityLabel(now, Date{start}, Date{end}), row.spoken);
}

INSTANTIATE_TEST_SUITE_P(
    AlertTexts, CountdownTest,
    ::testing::Values(
        // Before the start, rounded up to a whole second: never "0" while the meeting has not begun.
        CountdownCase{-0.2, u"Starts in 1 sec"_s, u"Starts in 1 second"_s},
        CountdownCase{-58.5, u"Starts in 59 sec"_s, u"Starts in 59 seconds"_s},
        CountdownCase{-59.2, u"Starts in 1:00"_s, u"Starts in 1 minute"_s},
        CountdownCase{-65, u"Starts in 1:05"_s, u"Starts in 1 minute 5 seconds"_s},
        CountdownCase{-3599, u"Starts in 59:59"_s, u"Starts in 59 minutes 59 seconds"_s},
        CountdownCase{-3600, u"Starts in 1 hr"_s, u"Starts in 1 hour"_s},
        CountdownCase{-3660, u"Starts in 1 hr 1 min"_s, u"Starts in 1 hour 1 minute"_s},
        CountdownCase{-7199, u"Starts in 1 hr 59 min"_s, u"Starts in 1 hour 59 minutes"_s},
        CountdownCase{-7200, u"Starts in 2 hrs"_s, u"Starts in 2 hours"_s},
        CountdownCase{-7320, u"Starts in 2 hrs 2 min"_s, u"Starts in 2 hours 2 minutes"_s},
        // From the start, truncated to whole minutes.
        CountdownCase{0, u"In progress \u00B7 started just now"_s, u"In progress, started just now"_s},
        CountdownCase{30, u"In progress \u00B7 started just now"_s, u"In progress, started just now"_s},
        CountdownCase{59.9, u"In progress \u00B7 started just now"_s, u"In progress, started just now"_s},
        CountdownCase{60, u"In progress \u00B7 started 1 min ago"_s, u"In progress, started 1 minute ago"_s},
        CountdownCase{125, u"In progress \u00B7 started 2 min ago"_s, u"In progress, started 2 minutes ago"_s},
        CountdownCase{end - start - 0.5, u"In progress \u00B7 started 29 min ago"_s,
                      u"In progress, started 29 minutes ago"_s},
        CountdownCase{end - start, u"Meeting ended"_s, u"Meeting ended"_s},
        CountdownCase{end - start + 3600, u"Meeting ended"_s, u"Meeting ended"_s}));

TEST(AlertTextsTest, aMeetingWithoutDurationEndsAtItsStart)
{
    EXPECT_EQ(AlertTexts::countdownText(Date{start}, Date{start}, Date{start}), u"Meeting ended"_s);
    EXPECT_EQ(AlertTexts::countdownText(Date{start - 1}, Date{start}, Date{start}), u"Starts in 1 sec"_s);
}

TEST(AlertTextsTest, headlineFollowsTheNumberOfMeetings)
{
    EXPECT_EQ(AlertTexts::headline(1), u"Your meeting is almost here"_s);
    EXPECT_EQ(AlertTexts::headline(2), u"Your meetings are almost here"_s);
    EXPECT_EQ(AlertTexts::headline(12), u"Your meetings are almost here"_s);
}

TEST(AlertTextsTest, timeRangeUsesTheLocalesShortTimes)
{
    // 700'000'000 s after 2001-01-01 is 2023-03-08 20:26:40 UTC; the tests run in UTC.
    const QLocale us(QLocale::English, QLocale::UnitedStates);
    const QLocale german(QLocale::German, QLocale::Germany);
    EXPECT_EQ(AlertTexts::timeRange(Date{start}, Date{end}, us), u"8:26 \u2013 8:56 PM"_s);
    EXPECT_EQ(AlertTexts::timeRange(Date{start - 10 * 3600}, Date{start - 9.5 * 3600}, us), u"10:26 \u2013 10:56 AM"_s);
    EXPECT_EQ(AlertTexts::timeRange(Date{start - 9 * 3600}, Date{start - 8 * 3600}, us), u"11:26 AM \u2013 12:26 PM"_s);
    EXPECT_EQ(AlertTexts::timeRange(Date{start}, Date{end}, german), u"20:26 \u2013 20:56"_s);
    EXPECT_EQ(AlertTexts::timeRange(Date{start}, Date{end}, QLocale::c()), u"20:26 \u2013 20:56"_s)
        << "no seconds, even where the short format has them";
}

} // namespace
