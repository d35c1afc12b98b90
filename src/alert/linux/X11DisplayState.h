// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QObject>

#include <cstdint>
#include <memory>

struct xcb_connection_t;
class QSocketNotifier;

namespace orvane {

class X11KeyboardGrabProbe;

/// What the X server knows about the screens and a screen locker that no D-Bus service may say: whether its screen
/// saver is on (blanking, or a saver showing), whether the displays are powered down, and whether a client holds the
/// keyboard, as a locker such as i3lock does for as long as it runs.
///
/// The screen saver is followed through MIT-SCREEN-SAVER notify events. DPMS has no events (Debian 12's libXext and
/// xcb-dpms offer no way to select them), but a server that powers the displays down forces its screen saver on,
/// so the saver's events cover that too; the power level itself is asked for only when it matters, just before an
/// alert. A keyboard grab has no events either: while asked to, the state reports top-level windows that go away
/// (a locker ending takes its window with it), after which the grab is worth asking about again. Nothing is polled.
///
/// It has an X connection of its own, read from the event loop, so that it works whatever Qt's platform is.
class X11DisplayState final : public QObject {
    Q_OBJECT

public:
    /// Connects to `displayName` (as in $DISPLAY; empty means $DISPLAY). Without a server it reports nothing.
    explicit X11DisplayState(const QByteArray& displayName = {}, QObject* parent = nullptr);
    ~X11DisplayState() override;

    bool isConnected() const { return m_connection != nullptr; }
    /// The X screen saver is active (including while the displays are powered down).
    bool isScreenSaverActive() const { return m_screenSaverActive; }
    /// The displays are in a DPMS power-saving level now. Asks the server; false without DPMS.
    bool areDisplaysPoweredDown();
    /// Another client holds the keyboard now. Asks the server.
    bool isKeyboardGrabbed();
    /// Whether topLevelWindowWentAway() is reported; off unless someone waits for a grab to end.
    void setWatchesTopLevelWindows(bool watches);

Q_SIGNALS:
    void screenSaverActiveChanged(bool active);
    /// A window directly below the root was unmapped or destroyed.
    void topLevelWindowWentAway();

private:
    void readEvents();
    /// Handles what xcb has already read, such as events that arrived with a reply.
    void handleQueuedEvents();
    void handle(const void* event);

    xcb_connection_t* m_connection = nullptr;
    std::uint32_t m_root = 0;
    /// The first event code of MIT-SCREEN-SAVER; 0 when the server lacks it.
    std::uint8_t m_screenSaverEvent = 0;
    bool m_hasDpms = false;
    bool m_screenSaverActive = false;
    bool m_watchesTopLevelWindows = false;
    std::unique_ptr<X11KeyboardGrabProbe> m_grabProbe;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace orvane
