// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "scheduling/AlertTimerScheduling.h"

#include <QObject>

#include <memory>

class QSocketNotifier;

namespace orvane {

/// Wall-clock timers on Linux: each timer is a timerfd on CLOCK_REALTIME armed at an absolute instant, watched by
/// a QSocketNotifier. A timer whose instant passed while the machine slept fires on resume, and a change of the
/// system clock is noticed at once (the kernel cancels absolute timers when the clock is set) and reported by
/// systemClockChanged(); the timers themselves keep their wall-clock instants.
class TimerfdAlertTimerScheduler : public QObject, public AlertTimerScheduling {
    Q_OBJECT

public:
    explicit TimerfdAlertTimerScheduler(QObject* parent = nullptr);
    ~TimerfdAlertTimerScheduler() override;

    std::unique_ptr<AlertTimerToken> schedule(Date date, std::function<void()> handler) override;

Q_SIGNALS:
    /// The system clock was set (by the user, NTP stepping it, or a time-zone-unaware tool): times computed from the
    /// old clock are stale.
    void systemClockChanged();

private:
    class Timer;

    /// A timer that never fires, kept only so that a clock change is noticed even when no alert timer is armed.
    std::unique_ptr<Timer> m_clockWatch;
};

} // namespace orvane
