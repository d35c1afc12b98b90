// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <chrono>

namespace orvane {

/// On Wayland another program's keyboard grab (a password prompt) cannot be seen, so the alert takes the keyboard
/// only once the user has stopped typing for a moment: a watch answers whether the seat has been idle (no key, no
/// pointer input) for `idleThreshold`, from what the compositor reports (subclasses: a Wayland idle protocol, or
/// GNOME's idle monitor on D-Bus).
///
/// It watches only while it is being asked, that is while an alert waits for the keyboard, and stops once the
/// answer is yes: between alerts the compositor sends nothing. While anything inhibits idleness (a video player, a
/// call in a browser) a compositor may never report the seat idle; after `fallbackDelay` of asking the watch answers
/// yes all the same, so that an alert never stays without keyboard for the whole of a call (unless the watch sees
/// input itself, see seesEveryInput()). A question that comes
/// more than a few seconds after the previous one starts a new wait. Main thread only.
class KeyboardIdleWatch : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds idleThreshold{1'000};
    static constexpr std::chrono::milliseconds fallbackDelay{10'000};

    using QObject::QObject;

    /// Whether the user has not typed (nor moved the pointer) for idleThreshold; starts watching when needed.
    bool isUserIdle();

Q_SIGNALS:
    /// The user just became idle while the watch was asked: ask again now.
    void becameIdle();

protected:
    /// Whether the compositor can tell idleness at all; without that the watch answers yes at once.
    virtual bool canWatch() const = 0;
    /// Whether the subclass sees input itself, and so tells a user who keeps typing from a compositor that reports
    /// no idleness while an inhibitor exists: then the fallback never takes the keyboard from a typing user.
    virtual bool seesEveryInput() const { return false; }
    virtual bool isWatching() const = 0;
    /// Starts asking the compositor; it answers through setIdle.
    virtual void startWatching() = 0;
    virtual void stopWatching() = 0;
    void setIdle(bool idle);

private:
    void stop();

    bool m_idle = false;
    /// Since the current wait began, and since it was last asked.
    QElapsedTimer m_waiting;
    QElapsedTimer m_lastAsked;
};

} // namespace orvane
