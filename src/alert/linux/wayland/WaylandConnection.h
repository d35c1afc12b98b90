// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QPointF>
#include <QRect>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct wl_compositor;
struct wl_display;
struct wl_keyboard;
struct wl_output;
struct wl_pointer;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct wl_surface;
struct xdg_wm_base;
struct zwlr_layer_shell_v1;
struct zxdg_output_manager_v1;
struct ext_idle_notifier_v1;
struct org_kde_kwin_idle;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;

class QSocketNotifier;

namespace orvane {

/// Where keyboard and pointer input goes for one of Orvane's own surfaces.
class WaylandInputTarget {
public:
    virtual ~WaylandInputTarget() = default;

    virtual void keyboardEntered() = 0;
    virtual void keyboardLeft() = 0;
    /// A key went down (`pressed`) or up. `keysym` is the xkbcommon key symbol, `text` what it types.
    virtual void key(std::uint32_t keysym, const QString& text, Qt::KeyboardModifiers modifiers, bool pressed) = 0;
    virtual void pointerEntered(QPointF position) = 0;
    virtual void pointerLeft() = 0;
    virtual void pointerMoved(QPointF position) = 0;
    virtual void pointerButton(Qt::MouseButton button, bool pressed) = 0;
};

/// Orvane's own connection to the Wayland compositor, beside whatever Qt's platform uses: it lets Orvane make surfaces
/// that Qt 6.4 cannot (an overlay layer surface), whatever platform the rest of the program runs on.
///
/// It binds the globals the alert uses, follows the outputs (with their names and logical geometry from xdg-output)
/// and the seat, and routes keyboard and pointer input to the surface it is meant for. The connection is read from
/// Qt's event loop; nothing blocks and nothing polls. Main thread only.
class WaylandConnection final : public QObject {
    Q_OBJECT

public:
    /// One output as the compositor describes it.
    struct Output {
        std::uint32_t globalName = 0;
        wl_output* output = nullptr;
        /// The connector name ("HDMI-A-1", "HEADLESS-2").
        QString name;
        /// Logical pixels, in the compositor's global space.
        QRect geometry;
        bool complete = false;
    };

    /// What one output has said so far (internal to the connection).
    struct OutputListener;

    /// Connects to `displayName` (empty: $WAYLAND_DISPLAY). Check isConnected().
    explicit WaylandConnection(const QByteArray& displayName = {}, QObject* parent = nullptr);
    ~WaylandConnection() override;
    WaylandConnection(const WaylandConnection&) = delete;
    WaylandConnection& operator=(const WaylandConnection&) = delete;

    bool isConnected() const { return m_display != nullptr; }
    wl_compositor* compositor() const { return m_compositor; }
    wl_shm* shm() const { return m_shm; }
    zwlr_layer_shell_v1* layerShell() const { return m_layerShell; }
    xdg_wm_base* wmBase() const { return m_wmBase; }
    /// Whether the compositor is Mutter (GNOME Shell), which offers no layer shell.
    bool isMutter() const { return m_isMutter; }
    ext_idle_notifier_v1* idleNotifier() const { return m_idleNotifier; }
    org_kde_kwin_idle* kdeIdle() const { return m_kdeIdle; }
    wl_seat* seat() const { return m_seat; }

    /// The outputs whose description is complete, in the order the compositor announced them.
    std::vector<Output> outputs() const;
    /// The output with this wl_output, if it is known.
    const Output* output(const wl_output* output) const;

    /// Routes input on `surface` to `target` (null: stop). The target must outlive its registration.
    void setInputTarget(wl_surface* surface, WaylandInputTarget* target);

    /// Sends what is queued. Requests are not sent before this (or the next read).
    void flush();

Q_SIGNALS:
    /// Outputs were added, removed or changed.
    void outputsChanged();
    /// The compositor went away; nothing more can be done on this connection.
    void disconnected();

private:
    static void handleGlobal(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                             std::uint32_t version);
    static void handleGlobalRemove(void* data, wl_registry* registry, std::uint32_t name);
    /// Waits for the compositor to handle everything sent, dispatching what arrives: start-up only.
    bool roundtrip();
    void addOutput(std::uint32_t name, std::uint32_t version);
    void watchOutputNames(OutputListener& listener);
    void setSeatCapabilities(std::uint32_t capabilities);
    void dispatch();
    void fail();
    WaylandInputTarget* targetOf(wl_surface* surface) const;

    struct KeyboardState;

    wl_display* m_display = nullptr;
    wl_registry* m_registry = nullptr;
    wl_compositor* m_compositor = nullptr;
    wl_shm* m_shm = nullptr;
    wl_seat* m_seat = nullptr;
    wl_keyboard* m_keyboard = nullptr;
    wl_pointer* m_pointer = nullptr;
    zwlr_layer_shell_v1* m_layerShell = nullptr;
    xdg_wm_base* m_wmBase = nullptr;
    bool m_isMutter = false;
    zxdg_output_manager_v1* m_outputManager = nullptr;
    ext_idle_notifier_v1* m_idleNotifier = nullptr;
    org_kde_kwin_idle* m_kdeIdle = nullptr;
    std::vector<std::unique_ptr<OutputListener>> m_outputs;
    std::vector<std::pair<wl_surface*, WaylandInputTarget*>> m_targets;
    wl_surface* m_keyboardFocus = nullptr;
    wl_surface* m_pointerFocus = nullptr;
    std::unique_ptr<KeyboardState> m_keys;
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace orvane
