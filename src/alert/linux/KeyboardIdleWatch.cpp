// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/KeyboardIdleWatch.h"

#include <QtDebug>

namespace orvane {

namespace {

/// The gate asks again at least every five seconds while it waits: a longer silence means that wait is over.
constexpr std::chrono::milliseconds askedRecently{7'000};

} // namespace

bool KeyboardIdleWatch::isUserIdle()
{
    if (!canWatch()) {
        return true;
    }
    const bool newWait = !m_lastAsked.isValid() || std::chrono::milliseconds(m_lastAsked.elapsed()) > askedRecently;
    m_lastAsked.start();
    if (newWait) {
        stop();
        m_waiting.start();
    }
    if (m_idle) {
        stop();
        m_lastAsked.invalidate();
        return true;
    }
    if (!seesEveryInput() && std::chrono::milliseconds(m_waiting.elapsed()) >= fallbackDelay) {
        qInfo("Orvane: the desktop reported no pause in input for %lld s (an idle inhibitor may be active); the alert "
              "takes the keyboard now",
              qlonglong(std::chrono::duration_cast<std::chrono::seconds>(fallbackDelay).count()));
        stop();
        m_lastAsked.invalidate();
        return true;
    }
    if (!isWatching()) {
        m_idle = false;
        startWatching();
    }
    return false;
}

void KeyboardIdleWatch::stop()
{
    stopWatching();
    m_idle = false;
}

void KeyboardIdleWatch::setIdle(bool idle)
{
    m_idle = idle;
    if (idle) {
        Q_EMIT becameIdle();
    }
}

} // namespace orvane
