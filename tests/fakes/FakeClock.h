// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "scheduling/Clock.h"

/// A clock that moves only when the test moves it.
class FakeClock final : public orvane::Clock {
public:
    explicit FakeClock(orvane::Date start = orvane::Date{700'000'000})
        : m_now(start)
    {
    }

    orvane::Date now() const override { return m_now; }
    void set(orvane::Date date) { m_now = date; }
    void advance(double seconds) { m_now = m_now + seconds; }

private:
    orvane::Date m_now;
};
