// SPDX-License-Identifier: GPL-3.0-or-later
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"

#include "scheduling/Clock.h"

#include <QPointer>
#include <QSocketNotifier>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sys/timerfd.h>
#include <unistd.h>

namespace orvane {

namespace {

timespec toTimespec(double unixTime)
{
    const double seconds = std::floor(unixTime);
    long nanoseconds = std::lround((unixTime - seconds) * 1e9);
    auto whole = static_cast<time_t>(seconds);
    if (nanoseconds >= 1'000'000'000) {
        ++whole;
        nanoseconds -= 1'000'000'000;
    }
    return {whole, nanoseconds};
}

} // namespace

/// One armed timerfd. Owned by its token (or by the scheduler for the clock watch).
class TimerfdAlertTimerScheduler::Timer : public AlertTimerToken {
public:
    Timer(QPointer<TimerfdAlertTimerScheduler> owner, double unixTime, std::function<void()> handler)
        : m_owner(std::move(owner))
        , m_unixTime(unixTime)
        , m_handler(std::move(handler))
        , m_fd(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC))
    {
        if (m_fd < 0) {
            qFatal("timerfd_create failed: %s", strerror(errno));
        }
        arm();
        m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { onReadable(); });
    }

    ~Timer() override { cancel(); }

    void cancel() override
    {
        if (m_fd < 0) {
            return;
        }
        m_notifier.reset();
        ::close(m_fd);
        m_fd = -1;
        m_handler = nullptr;
    }

private:
    void arm()
    {
        const itimerspec expiry{{0, 0}, toTimespec(m_unixTime)};
        if (timerfd_settime(m_fd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &expiry, nullptr) != 0) {
            qFatal("timerfd_settime failed: %s", strerror(errno));
        }
    }

    void onReadable()
    {
        std::uint64_t expirations = 0;
        const ssize_t result = ::read(m_fd, &expirations, sizeof expirations);
        if (result < 0 && errno == ECANCELED) {
            // The clock was set. The instant we wait for is still the same wall-clock instant: arm it again (it
            // fires at once if the new clock is past it) and tell the owner so that it can recompute.
            arm();
            if (m_owner) {
                Q_EMIT m_owner->systemClockChanged();
            }
            return;
        }
        if (result != sizeof expirations) {
            return; // EAGAIN: a spurious wake-up.
        }
        auto handler = std::move(m_handler);
        cancel();
        // The handler may destroy this timer (by dropping its token); nothing here touches `this` afterwards.
        if (handler) {
            handler();
        }
    }

    QPointer<TimerfdAlertTimerScheduler> m_owner;
    double m_unixTime;
    std::function<void()> m_handler;
    int m_fd;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

TimerfdAlertTimerScheduler::TimerfdAlertTimerScheduler(QObject* parent)
    : QObject(parent)
    // Far enough to never fire, near enough for every time_t.
    , m_clockWatch(std::make_unique<Timer>(QPointer(this), 4'102'444'800.0 /* 2100-01-01 */, nullptr))
{
}

TimerfdAlertTimerScheduler::~TimerfdAlertTimerScheduler() = default;

std::unique_ptr<AlertTimerToken> TimerfdAlertTimerScheduler::schedule(Date date, std::function<void()> handler)
{
    const double earliest = SystemClock().now().unixTime() + minimumDelay;
    // Only the clock watch reports clock changes, so that one change is reported once.
    return std::make_unique<Timer>(QPointer<TimerfdAlertTimerScheduler>(), std::max(date.unixTime(), earliest),
                                   std::move(handler));
}

} // namespace orvane
