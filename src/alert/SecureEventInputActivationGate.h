// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"

#include <functional>
#include <memory>
#include <optional>

namespace orvane {

class AlertTimerScheduling;
class AlertTimerToken;
class Clock;

/// Holds back the one action that takes keyboard focus (activating the alert) until it is safe: not before a
/// given time, and not while another program holds the keyboard for secure entry, such as a password prompt.
/// Keystrokes meant for that prompt must never land in the alert. While the keyboard stays held, the gate looks
/// again after 0.25 s, doubling the wait up to 5 s. Main thread only.
class SecureEventInputActivationGate {
public:
    static constexpr double initialRetryDelay = 0.25;
    static constexpr double maximumRetryDelay = 5.0;

    /// `isSecureEventInputEnabled` answers whether another client holds the keyboard right now.
    SecureEventInputActivationGate(const Clock& clock, AlertTimerScheduling& timers,
                                   std::function<bool()> isSecureEventInputEnabled);
    ~SecureEventInputActivationGate();
    SecureEventInputActivationGate(const SecureEventInputActivationGate&) = delete;
    SecureEventInputActivationGate& operator=(const SecureEventInputActivationGate&) = delete;

    /// Forgets the pending action (it never runs) and stops retrying.
    void cancel();
    /// Replaces any pending action with `action`, to run once it is `notBefore` or later and the keyboard is free.
    /// Returns whether it ran at once.
    bool submit(std::optional<Date> notBefore, std::function<void()> action);
    /// Runs the pending action if it may run now, otherwise arranges to look again. Returns whether it ran.
    bool evaluate();

    bool hasPendingAction() const { return static_cast<bool>(m_pendingAction); }
    /// How long the next wait for a held keyboard will be.
    double nextRetryDelay() const { return m_nextRetryDelay; }

private:
    void scheduleRetry(Date date);
    void dropRetry();

    const Clock& m_clock;
    AlertTimerScheduling& m_timers;
    std::function<bool()> m_isSecureEventInputEnabled;
    /// Owned here, so that destroying the gate cancels the retry and its handler never sees a dead gate.
    std::unique_ptr<AlertTimerToken> m_retryToken;
    std::optional<Date> m_activationNotBefore;
    std::function<void()> m_pendingAction;
    double m_nextRetryDelay = initialRetryDelay;
};

} // namespace orvane
