// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertPresentationSessionMonitoring.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstdint>
#include <functional>

class QDBusMessage;
class QDBusServiceWatcher;

namespace orvane {

class X11DisplayState;

/// Presentation availability on a Linux desktop, from D-Bus and, on X11, from the X server:
///
/// - systemd-logind (system bus): this process's session and its `Active` property, `LockedHint` and `Lock` /
///   `Unlock` signals decide whether the session is active; `PrepareForSleep` whether the system is awake.
/// - `org.freedesktop.ScreenSaver` and `org.gnome.ScreenSaver` (session bus): `ActiveChanged(true)` means the
///   screens are blanked or locked.
/// - the X server (X11DisplayState, when given): its screen saver, which also covers displays powered down, and the
///   displays' power level just before an alert.
///
/// A logind `Lock` is a request to whatever locks the screen, not a state, and lockers unlock without any `Unlock`
/// (GNOME Shell and kscreenlocker drop `LockedHint`; i3lock simply exits). So after a `Lock` the session counts as
/// locked while something confirms it: `LockedHint`, an active screen saver, or on X11 a client holding the keyboard
/// (a locker grabs it for as long as it runs). It is unlocked again when that evidence ends. A request that nothing
/// confirms within lockConfirmationWindow lapses, so that a `Lock` without a locker cannot keep alerts away for
/// ever; on X11 the keyboard is asked about once more just before each alert while such a request stands, for a
/// locker that started late.
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
    /// How long a `Lock` request holds alerts back without evidence of a locker.
    static constexpr std::chrono::milliseconds lockConfirmationWindow{5'000};

    /// `display`, when given, must outlive the monitor.
    LogindAlertPresentationSessionMonitor(QDBusConnection systemBus, QDBusConnection sessionBus,
                                          X11DisplayState* display = nullptr, QObject* parent = nullptr);
    ~LogindAlertPresentationSessionMonitor() override;

    bool isSessionActive() const override { return m_availability.isSessionActive(); }
    bool isSystemAwake() const override { return m_availability.isSystemAwake(); }
    bool areScreensAwake() const override { return m_availability.areScreensAwake(); }
    void setOnPresentationAvailabilityChange(std::function<void(bool available)> callback) override
    {
        m_availability.setOnPresentationAvailabilityChange(std::move(callback));
    }
    void recheck() override;

    /// The session counts as locked (a confirmed or fresh lock request, or `LockedHint`).
    bool isSessionLocked() const { return m_sessionLocked; }
    /// For tests: how long an unconfirmed `Lock` request lasts.
    void setLockConfirmationWindow(std::chrono::milliseconds window) { m_lockConfirmation.setInterval(window); }

Q_SIGNALS:
    /// Alerts can be shown again (after the controller has heard of it).
    void presentationDidBecomeAvailable();
    /// The machine came back from sleep.
    void systemDidWake();
    /// The session became active again (unlocked, or switched back to).
    void sessionDidBecomeActive();
    /// The machine is about to sleep.
    void systemWillSleep();
    /// isSessionLocked() changed.
    void sessionLockChanged(bool locked);

private Q_SLOTS:
    void handlePrepareForSleep(const QDBusMessage& message);
    void handleSessionPropertiesChanged(const QDBusMessage& message);
    void handleSessionLock(const QDBusMessage& message);
    void handleSessionUnlock(const QDBusMessage& message);
    void handleScreenSaverActiveChanged(const QDBusMessage& message);

private:
    enum class ScreenSaver { freedesktop, gnome };
    /// Where a logind `Lock` request stands.
    enum class LockRequest {
        none,
        /// Received; waiting for evidence of a locker.
        awaitingEvidence,
        /// A locker is evidently running; the lock ends with that evidence.
        confirmed,
        /// Nothing confirmed it in time; asked about again before each alert until `Unlock`.
        lapsed,
    };

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
    /// Something a locker would show: `LockedHint`, a screen saver, or a keyboard grab seen during a lock.
    bool hasLockEvidence() const;
    void lockConfirmationEnded();
    /// Asks the X server whether a locker holds the keyboard; when one does, the lock is confirmed by it.
    bool confirmLockByKeyboardGrab();
    void topLevelWindowWentAway();

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
    LockRequest m_lockRequest = LockRequest::none;
    QTimer m_lockConfirmation;
    /// A client held the keyboard when a lock request was checked; cleared once it no longer does.
    bool m_lockKeyboardGrabbed = false;
    bool m_sessionLocked = false;
    bool m_sessionLockedHint = false;
    bool m_preparingForSleep = false;

    QString m_freedesktopScreenSaverOwner;
    QString m_gnomeScreenSaverOwner;
    bool m_freedesktopScreenSaverActive = false;
    bool m_gnomeScreenSaverActive = false;

    X11DisplayState* m_display;
    bool m_displaysPoweredDown = false;
};

} // namespace orvane
