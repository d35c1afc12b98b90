// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <chrono>

namespace orvane {

/// Learns, without waiting on D-Bus, when the desktop can show Orvane's status item.
///
/// Qt decides once per process, when the first tray icon is made, whether that icon is a StatusNotifierItem or an
/// XEmbed one, and an XEmbed icon is never shown by a StatusNotifierItem host that comes later. So the icon is made
/// only once a host is there: an org.kde.StatusNotifierWatcher that reports a registered host, whenever that appears
/// (GNOME's AppIndicator extension loads after the session's autostart; plasmashell restarts). On an X11 session
/// where none has appeared after `xembedGrace`, the desktop's tray is taken to be an XEmbed one (openbox with tint2,
/// older panels), which Qt then follows by itself. On any other session the desktop is known to have no tray as soon
/// as the session bus says there is no host (GNOME without the AppIndicator extension, weston), which can change.
class StatusItemHostWatch final : public QObject {
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds xembedGrace{10'000};

    StatusItemHostWatch(QDBusConnection bus, bool x11Session, QObject* parent = nullptr);

    bool isHostAvailable() const { return m_available; }
    /// No tray can show a status item now; one may still appear later.
    bool isHostMissing() const { return m_missing; }

Q_SIGNALS:
    /// Once: a status item made now will be shown.
    void hostAvailable();
    /// Once, and never after hostAvailable(): the desktop has no tray for now.
    void hostMissing();

private Q_SLOTS:
    void askWhetherHostIsRegistered();

private:
    void setAvailable();

    QDBusConnection m_bus;
    QTimer m_xembedGrace;
    bool m_x11Session = false;
    bool m_available = false;
    bool m_missing = false;
};

} // namespace orvane
