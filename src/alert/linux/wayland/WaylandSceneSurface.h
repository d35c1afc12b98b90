// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/linux/wayland/WaylandConnection.h"

#include <QEvent>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QSize>

#include <array>
#include <functional>
#include <memory>

class QQuickRenderControl;
class QQuickWindow;
struct wl_buffer;
struct wl_callback;
struct wl_output;
struct wl_surface;
struct xdg_surface;
struct xdg_toplevel;
struct zwlr_layer_surface_v1;

namespace orvane {

/// One of Orvane's own Wayland surfaces showing a Qt Quick scene. Qt 6.4 cannot give a window a layer-shell role,
/// and a process chooses its Qt platform once, so the scene is not a Qt window on screen: Qt Quick's software
/// renderer draws it through QQuickRenderControl into an image, which is copied into shared-memory buffers of a
/// surface this object makes on Orvane's own connection. Keys (through xkbcommon) and pointer events from that
/// surface are handed to the scene as Qt events. A frame is drawn only when the scene changed, and no sooner than
/// the compositor asks for one.
///
/// Two roles: an overlay layer surface (wlr-layer-shell: above full-screen windows on KWin and wlroots compositors)
/// covering one output, or a full-screen window (xdg-shell), which is what GNOME offers; either on the given output
/// or, when none is given, on the one the compositor chooses. Main thread only.
class WaylandSceneSurface final : public QObject, public WaylandInputTarget {
    Q_OBJECT

public:
    enum class Role { overlayLayer, fullScreenWindow };

    /// `output` may be null: the compositor chooses (the output the user works on). Nothing shows before show().
    /// The connection must have the role's shell.
    WaylandSceneSurface(WaylandConnection& connection, Role role, wl_output* output, QObject* parent = nullptr);
    ~WaylandSceneSurface() override;

    /// The scene's window: fill its content item. It never shows itself; its size follows the surface's.
    QQuickWindow& window() const { return *m_window; }

    /// Maps the surface (again).
    void show();
    /// Unmaps it; show() brings it back.
    void hide();
    /// Overlay only: whether the compositor may give it the keyboard (it takes it at once while allowed). A window
    /// gets the keyboard when the compositor activates it.
    void setKeyboardInteractive(bool interactive);
    bool hasKeyboardFocus() const { return m_keyboardFocus; }
    /// The output the surface is on, once the compositor has placed it.
    wl_output* output() const { return m_enteredOutput; }
    /// Called for Escape, which the scene then never sees, and when the desktop asks to close the window.
    void setOnEscape(std::function<void()> onEscape) { m_onEscape = std::move(onEscape); }

Q_SIGNALS:
    /// The compositor put the surface on an output (once per output it enters): see output().
    void placed();
    /// The surface got (true) or lost the keyboard, also when it is hidden while it has it.
    void keyboardFocusChanged(bool focused);

private:
    struct Buffer;

    void keyboardEntered() override;
    void keyboardLeft() override;
    void key(std::uint32_t keysym, const QString& text, Qt::KeyboardModifiers modifiers, bool pressed) override;
    void pointerEntered(QPointF position) override;
    void pointerLeft() override;
    void pointerMoved(QPointF position) override;
    void pointerButton(Qt::MouseButton button, bool pressed) override;

    void createRole();
    void createToplevel();
    void destroyRole();
    void sendKeyboardInteractivity();
    void configure(QSize size);
    /// The scene changed: a frame is due.
    void scheduleFrame();
    /// Draws the due frame from the event loop, once.
    void queueFrame();
    void renderFrame();
    Buffer* freeBuffer();
    void sendMouse(QEvent::Type type, Qt::MouseButton button);
    void escape();

    WaylandConnection& m_connection;
    Role m_role;
    wl_output* m_output;
    wl_surface* m_surface = nullptr;
    zwlr_layer_surface_v1* m_layer = nullptr;
    xdg_surface* m_xdgSurface = nullptr;
    xdg_toplevel* m_toplevel = nullptr;
    /// The window's size as the compositor last said (0 x 0: the client's choice).
    QSize m_toplevelSize;
    bool m_fullScreenRequested = false;
    wl_callback* m_frameCallback = nullptr;
    std::unique_ptr<QQuickRenderControl> m_control;
    std::unique_ptr<QQuickWindow> m_window;
    /// The software renderer repaints only what changed: it keeps drawing into this one image, which is copied whole
    /// into a buffer the compositor is not reading.
    QImage m_frame;
    std::array<std::unique_ptr<Buffer>, 2> m_buffers;
    QSize m_size;
    bool m_shown = false;
    bool m_configured = false;
    bool m_dirty = false;
    bool m_frameQueued = false;
    bool m_keyboardInteractive = false;
    bool m_keyboardFocus = false;
    wl_output* m_enteredOutput = nullptr;
    QPointF m_pointer;
    Qt::MouseButtons m_buttons;
    std::function<void()> m_onEscape;
};

} // namespace orvane
