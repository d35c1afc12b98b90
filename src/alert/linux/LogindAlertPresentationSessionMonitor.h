// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertPresentationSessionMonitoring.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>

class QDBusMessage;
class QDBusServiceWatcher;

namespace orvane {

/// Presentation availability on a Linux desktop, from D-Bus:
///
/// - systemd-logind (system bus): this process's session and its `Active` property, `LockedHint` and `Lock` /
///   `Unlock` signals decide whether the session is active; `PrepareForSleep` whether the system is awake.
/// - `org.freedesktop.ScreenSaver` and `org.gnome.ScreenSaver` (session bus): `ActiveChanged(true)` means the
///   screens are blanked or locked.
///
/// A service that is not on the bus says nothing, so without any of them the presentation counts as available;
/// a service that appears later is picked up, and one that leaves takes its verdict with it (a crashed screen
/// saver must not hold back alerts forever). Every call is asynchronous: the main thread never waits for D-Bus.
///
/// The session is the one logind gives for this process's PID. A process started outside a session (by a user
/// service manager, say) has none; then it asks for the session named by `XDG_SESSION_ID`, else for logind's
/// "auto" session, which is the caller's own session or else the user's graphical one.
///
/// Signals are matched without a sender and checked against the current owner of the service name, which is
/// tracked from NameOwnerChanged: Qt would otherwise look the owner up with a blocking call.
class LogindAlertPresentationSessionMonitor final : public QObject, public AlertPresentationSessionMonitoring {
    Q_OBJECT

public:
    LogindAlertPresentationSessionMonitor(QDBusConnection systemBus, QDBusConnection sessionBus,
                                          QObject* parent = nullptr);
    ~LogindAlertPresentationSessionMonitor() override;

    bool isSessionActive() const override { return m_availability.isSessionActive(); }
    bool isSystemAwake() const override { return m_availability.isSystemAwake(); }
    bool areScreensAwake() const override { return m_availability.areScreensAwake(); }
    void setOnPresentationAvailabilityChange(std::function<void(bool available)> callback) override
    {
        m_availability.setOnPresentationAvailabilityChange(std::move(callback));
    }

Q_SIGNALS:
    /// Alerts can be shown again (after the controller has heard of it).
    void presentationDidBecomeAvailable();
    /// The machine came back from sleep.
    void systemDidWake();
    /// The session became active again (unlocked, or switched back to).
    void sessionDidBecomeActive();

private Q_SLOTS:
    void handlePrepareForSleep(const QDBusMessage& message);
    void handleSessionPropertiesChanged(const QDBusMessage& message);
    void handleSessionLock(const QDBusMessage& message);
    void handleSessionUnlock(const QDBusMessage& message);
    void handleScreenSaverActiveChanged(const QDBusMessage& message);

private:
    enum class ScreenSaver { freedesktop, gnome };

    void handleOwnerChanged(const QString& service, const QString& owner);
    void logindAppeared();
    void resolveSession();
    void resolveSessionFallback(std::uint64_t generation);
    void watchSession(const QString& path, std::uint64_t generation);
    void unwatchSession();
    void readSessionProperties();
    void readScreenSaverActive(ScreenSaver screenSaver);
    /// Sends `message` and hands its reply (or error) to `onReply`, unless this object is gone by then.
    void callAsync(const QDBusConnection& bus, const QDBusMessage& message,
                   std::function<void(const QDBusMessage& reply)> onReply);
    void queryOwner(const QDBusConnection& bus, const QString& service);
    void update();

    QDBusConnection m_systemBus;
    QDBusConnection m_sessionBus;
    QDBusServiceWatcher* m_systemWatcher;
    QDBusServiceWatcher* m_sessionWatcher;
    AlertPresentationAvailability m_availability;

    QString m_logindOwner;
    /// Counts logind appearances, so that replies meant for an earlier logind are dropped.
    std::uint64_t m_logindGeneration = 0;
    QString m_sessionPath;
    bool m_sessionActiveProperty = true;
    bool m_sessionLockRequested = false;
    bool m_sessionLockedHint = false;
    bool m_preparingForSleep = false;

    QString m_freedesktopScreenSaverOwner;
    QString m_gnomeScreenSaverOwner;
    bool m_freedesktopScreenSaverActive = false;
    bool m_gnomeScreenSaverActive = false;
};

} // namespace orvane
