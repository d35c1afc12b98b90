// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "fakes/FakeClock.h"
#include "scheduling/AlertTimerScheduling.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

/// Timers that fire only when the test lets time pass (runDue, advanceTo).
class FakeTimerScheduler final : public orvane::AlertTimerScheduling {
public:
    explicit FakeTimerScheduler(FakeClock& clock)
        : m_clock(clock)
    {
    }

    std::unique_ptr<orvane::AlertTimerToken> schedule(orvane::Date date, std::function<void()> handler) override
    {
        auto timer = std::make_shared<Timer>();
        timer->date = std::max(date, m_clock.now() + minimumDelay);
        timer->handler = std::move(handler);
        m_timers.push_back(timer);
        ++m_scheduledCount;
        return std::make_unique<Token>(timer);
    }

    /// The dates of the timers still armed, earliest first.
    std::vector<orvane::Date> armed() const
    {
        std::vector<orvane::Date> dates;
        for (const auto& timer : m_timers) {
            if (timer->handler) {
                dates.push_back(timer->date);
            }
        }
        std::sort(dates.begin(), dates.end());
        return dates;
    }

    std::optional<orvane::Date> nextDate() const
    {
        const auto dates = armed();
        return dates.empty() ? std::nullopt : std::optional(dates.front());
    }

    /// Fires, in date order, every armed timer due at the clock's current time (including timers armed by
    /// handlers that are due too). Returns how many fired.
    int runDue()
    {
        int fired = 0;
        while (auto timer = earliestDue()) {
            auto handler = std::move(timer->handler);
            timer->handler = nullptr;
            handler();
            ++fired;
        }
        std::erase_if(m_timers, [](const auto& timer) { return !timer->handler; });
        return fired;
    }

    /// Moves the clock to `date`, stopping at every timer on the way as a running machine would.
    void advanceTo(orvane::Date date)
    {
        while (auto next = nextDate()) {
            if (*next > date) {
                break;
            }
            m_clock.set(std::max(m_clock.now(), *next));
            runDue();
        }
        m_clock.set(date);
        runDue();
    }

    int scheduledCount() const { return m_scheduledCount; }

private:
    struct Timer {
        orvane::Date date;
        std::function<void()> handler;
    };

    class Token final : public orvane::AlertTimerToken {
    public:
        explicit Token(std::weak_ptr<Timer> timer)
            : m_timer(std::move(timer))
        {
        }
        ~Token() override { cancel(); }
        void cancel() override
        {
            if (auto timer = m_timer.lock()) {
                timer->handler = nullptr;
            }
        }

    private:
        std::weak_ptr<Timer> m_timer;
    };

    std::shared_ptr<Timer> earliestDue() const
    {
        std::shared_ptr<Timer> earliest;
        for (const auto& timer : m_timers) {
            if (timer->handler && timer->date <= m_clock.now() && (!earliest || timer->date < earliest->date)) {
                earliest = timer;
            }
        }
        return earliest;
    }

    FakeClock& m_clock;
    std::vector<std::shared_ptr<Timer>> m_timers;
    int m_scheduledCount = 0;
};
