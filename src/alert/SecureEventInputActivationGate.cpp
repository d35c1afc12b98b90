// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/SecureEventInputActivationGate.h"

#include "scheduling/AlertTimerScheduling.h"
#include "scheduling/Clock.h"

#include <algorithm>

namespace orvane {

SecureEventInputActivationGate::SecureEventInputActivationGate(const Clock& clock, AlertTimerScheduling& timers,
                                                               std::function<bool()> isSecureEventInputEnabled)
    : m_clock(clock)
    , m_timers(timers)
    , m_isSecureEventInputEnabled(std::move(isSecureEventInputEnabled))
{
}

SecureEventInputActivationGate::~SecureEventInputActivationGate() = default;

void SecureEventInputActivationGate::cancel()
{
    dropRetry();
    m_activationNotBefore.reset();
    m_pendingAction = nullptr;
    m_nextRetryDelay = initialRetryDelay;
}

bool SecureEventInputActivationGate::submit(std::optional<Date> notBefore, std::function<void()> action)
{
    cancel();
    m_activationNotBefore = notBefore;
    m_pendingAction = std::move(action);
    return evaluate();
}

bool SecureEventInputActivationGate::evaluate()
{
    if (!m_pendingAction) {
        return false;
    }
    const Date now = m_clock.now();
    if (m_activationNotBefore && *m_activationNotBefore > now) {
        scheduleRetry(*m_activationNotBefore);
        return false;
    }
    if (m_isSecureEventInputEnabled()) {
        const Date retryDate = now + m_nextRetryDelay;
        m_nextRetryDelay = std::min(m_nextRetryDelay * 2, maximumRetryDelay);
        scheduleRetry(retryDate);
        return false;
    }
    dropRetry();
    m_activationNotBefore.reset();
    // Taken out first: the action may submit the next one.
    auto action = std::move(m_pendingAction);
    m_pendingAction = nullptr;
    m_nextRetryDelay = initialRetryDelay;
    action();
    return true;
}

void SecureEventInputActivationGate::scheduleRetry(Date date)
{
    dropRetry();
    m_retryToken = m_timers.schedule(date, [this] {
        m_retryToken.reset();
        evaluate();
    });
}

void SecureEventInputActivationGate::dropRetry()
{
    if (m_retryToken) {
        m_retryToken->cancel();
        m_retryToken.reset();
    }
}

} // namespace orvane
