// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/linux/KeyboardIdleWatch.h"

struct ext_idle_notification_v1;
struct org_kde_kwin_idle_timeout;

namespace orvane {

class WaylandConnection;

/// The seat's idleness from the compositor's idle notifications (ext-idle-notify-v1, or KDE's org_kde_kwin_idle,
/// which KWin 5.27 and sway 1.7 have).
class WaylandKeyboardIdleWatch final : public KeyboardIdleWatch {
    Q_OBJECT

public:
    /// `connection` must outlive the watch.
    explicit WaylandKeyboardIdleWatch(WaylandConnection& connection, QObject* parent = nullptr);
    ~WaylandKeyboardIdleWatch() override;

protected:
    bool canWatch() const override;
    bool isWatching() const override { return m_notification || m_kdeTimeout; }
    void startWatching() override;
    void stopWatching() override;

private:
    WaylandConnection& m_connection;
    ext_idle_notification_v1* m_notification = nullptr;
    org_kde_kwin_idle_timeout* m_kdeTimeout = nullptr;
};

} // namespace orvane
