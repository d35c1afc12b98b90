// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QElapsedTimer>
#include <QObject>

#include <chrono>
#include <functional>

struct ext_idle_notification_v1;
struct org_kde_kwin_idle_timeout;

namespace orvane {

class WaylandConnection;

/// On Wayland another program's keyboard grab (a password prompt) cannot be seen, so the alert takes the keyboard
/// only once the user has stopped typing for a moment: this watch answers whether the seat has been idle (no key, no
/// pointer input) for `idleThreshold`, from the compositor's idle notifications (ext-idle-notify-v1, or KDE's
/// org_kde_kwin_idle, which KWin 5.27 and sway 1.7 have).
///
/// It watches only while it is being asked, that is while an alert waits for the keyboard, and stops once the
/// answer is yes: between alerts the compositor sends nothing. While anything inhibits idleness (a video player, a
/// call in a browser) the compositor never reports the seat idle; after `fallbackDelay` of asking the watch answers
/// yes all the same, so that an alert never stays without keyboard for the whole of a call. A question that comes
/// more than a few seconds after the previous one starts a new wait.
class WaylandKeyboardIdleWatch final : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds idleThreshold{1'000};
    static constexpr std::chrono::milliseconds fallbackDelay{10'000};

    /// `connection` must outlive the watch. Without an idle protocol the watch answers yes at once.
    explicit WaylandKeyboardIdleWatch(WaylandConnection& connection, QObject* parent = nullptr);
    ~WaylandKeyboardIdleWatch() override;

    /// Whether the user has not typed (nor moved the pointer) for idleThreshold; starts watching when needed.
    bool isUserIdle();
    /// Whether the compositor offers an idle protocol at all.
    bool canWatch() const;

Q_SIGNALS:
    /// The user just became idle while the watch was asked: ask again now.
    void becameIdle();

private:
    void start();
    void stop();
    void setIdle(bool idle);

    WaylandConnection& m_connection;
    ext_idle_notification_v1* m_notification = nullptr;
    org_kde_kwin_idle_timeout* m_kdeTimeout = nullptr;
    bool m_idle = false;
    /// Since the current wait began, and since it was last asked.
    QElapsedTimer m_waiting;
    QElapsedTimer m_lastAsked;
};

} // namespace orvane
