// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>

namespace orvane {

/// Whether a full-screen alert can be seen right now: the user's session is the one on screen and unlocked, the
/// machine is not going to sleep and the screens are not blanked or locked.
class AlertPresentationSessionMonitoring {
public:
    virtual ~AlertPresentationSessionMonitoring() = default;

    /// The session is on the console and not locked.
    virtual bool isSessionActive() const = 0;
    /// The system is not about to sleep.
    virtual bool isSystemAwake() const = 0;
    /// The screens are not asleep (no screen saver or lock screen covers them).
    virtual bool areScreensAwake() const = 0;

    /// All three of the above.
    bool isPresentationAvailable() const { return isSessionActive() && isSystemAwake() && areScreensAwake(); }

    /// Called with the new value each time isPresentationAvailable() changes, and only then.
    virtual void setOnPresentationAvailabilityChange(std::function<void(bool available)> callback) = 0;

    /// Looks again, just before an alert is shown, at what cannot be watched (the displays' power level, a screen
    /// locker that only holds the keyboard). It may change the flags, and report that as usual.
    virtual void recheck() {}
};

/// The three flags and the rule that turns their changes into availability changes. The platform monitor feeds it
/// from its sources; tests use it as the monitor itself.
class AlertPresentationAvailability final : public AlertPresentationSessionMonitoring {
public:
    bool isSessionActive() const override { return m_sessionActive; }
    bool isSystemAwake() const override { return m_systemAwake; }
    bool areScreensAwake() const override { return m_screensAwake; }
    void setOnPresentationAvailabilityChange(std::function<void(bool available)> callback) override
    {
        m_onChange = std::move(callback);
    }

    void setSessionActive(bool active) { change(m_sessionActive, active); }
    void setSystemAwake(bool awake) { change(m_systemAwake, awake); }
    void setScreensAwake(bool awake) { change(m_screensAwake, awake); }

private:
    void change(bool& flag, bool value)
    {
        const bool before = isPresentationAvailable();
        flag = value;
        const bool after = isPresentationAvailable();
        if (before != after && m_onChange) {
            // A copy, so that the callback may replace itself.
            const auto onChange = m_onChange;
            onChange(after);
        }
    }

    bool m_sessionActive = true;
    bool m_systemAwake = true;
    bool m_screensAwake = true;
    std::function<void(bool)> m_onChange;
};

} // namespace orvane
