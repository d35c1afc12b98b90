// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/wayland/WaylandSceneSurface.h"

#include "alert/linux/wayland/LayerShellProtocol.h"
#include "xdg-shell-client-protocol.h"

#include <QCoreApplication>
#include <QEnterEvent>
#include <QFocusEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QQuickItem>
#include <QQuickRenderControl>
#include <QQuickRenderTarget>
#include <QQuickWindow>
#include <QtDebug>

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon-keysyms.h>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// The namespace KWin and wlroots see: a neutral one, not "notification", which KWin keeps below full-screen windows.
constexpr char layerNamespace[] = "orvane-alert";
/// The size when the compositor leaves the choice to the client (it does not with all four edges anchored, nor for a
/// full-screen window once it has placed it).
constexpr QSize fallbackSize(1280, 800);

/// The Qt key for an xkbcommon key symbol (Qt::Key_unknown for those the scene has no use for).
int qtKey(std::uint32_t keysym)
{
    switch (keysym) {
    case XKB_KEY_Escape:
        return Qt::Key_Escape;
    case XKB_KEY_Return:
        return Qt::Key_Return;
    case XKB_KEY_KP_Enter:
        return Qt::Key_Enter;
    case XKB_KEY_Tab:
        return Qt::Key_Tab;
    case XKB_KEY_ISO_Left_Tab:
        return Qt::Key_Backtab;
    case XKB_KEY_space:
        return Qt::Key_Space;
    case XKB_KEY_Left:
        return Qt::Key_Left;
    case XKB_KEY_Right:
        return Qt::Key_Right;
    case XKB_KEY_Up:
        return Qt::Key_Up;
    case XKB_KEY_Down:
        return Qt::Key_Down;
    case XKB_KEY_Home:
        return Qt::Key_Home;
    case XKB_KEY_End:
        return Qt::Key_End;
    default:
        break;
    }
    // Letters and digits are their own upper-case Latin-1 codes in both.
    if ((keysym >= XKB_KEY_0 && keysym <= XKB_KEY_9) || (keysym >= XKB_KEY_A && keysym <= XKB_KEY_Z)) {
        return int(keysym);
    }
    if (keysym >= XKB_KEY_a && keysym <= XKB_KEY_z) {
        return int(keysym - XKB_KEY_a + XKB_KEY_A);
    }
    return Qt::Key_unknown;
}

} // namespace

/// One shared-memory buffer the size of the surface.
struct WaylandSceneSurface::Buffer {
    wl_buffer* buffer = nullptr;
    uchar* data = nullptr;
    std::size_t size = 0;
    int stride = 0;
    bool busy = false;
    WaylandSceneSurface* owner = nullptr;

    Buffer(wl_shm* shm, QSize pixels, WaylandSceneSurface* surface)
        : stride(pixels.width() * 4)
        , owner(surface)
    {
        size = std::size_t(stride) * std::size_t(pixels.height());
        const int fd = memfd_create("orvane-alert", MFD_CLOEXEC);
        if (fd < 0 || ftruncate(fd, off_t(size)) != 0) {
            if (fd >= 0) {
                close(fd);
            }
            return;
        }
        void* mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (mapped == MAP_FAILED) {
            close(fd);
            return;
        }
        data = static_cast<uchar*>(mapped);
        wl_shm_pool* pool = wl_shm_create_pool(shm, fd, int32_t(size));
        // Premultiplied ARGB in native (little-endian) order: the layout of QImage::Format_ARGB32_Premultiplied.
        buffer = wl_shm_pool_create_buffer(pool, 0, pixels.width(), pixels.height(), stride, WL_SHM_FORMAT_ARGB8888);
        wl_shm_pool_destroy(pool);
        close(fd);
        static const wl_buffer_listener listener = {
            .release =
                [](void* data, wl_buffer*) {
                    auto* self = static_cast<Buffer*>(data);
                    self->busy = false;
                    // A frame that found every buffer in use can go out now.
                    self->owner->queueFrame();
                },
        };
        wl_buffer_add_listener(buffer, &listener, this);
    }
    ~Buffer()
    {
        if (buffer) {
            wl_buffer_destroy(buffer);
        }
        if (data) {
            munmap(data, size);
        }
    }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
};

WaylandSceneSurface::WaylandSceneSurface(WaylandConnection& connection, Role role, wl_output* output, QObject* parent)
    : QObject(parent)
    , m_connection(connection)
    , m_role(role)
    , m_output(output)
    , m_control(std::make_unique<QQuickRenderControl>())
    , m_window(std::make_unique<QQuickWindow>(m_control.get()))
{
    m_window->setColor(Qt::transparent);
    // The software scene graph draws into the frame image itself; only a hardware one needs a graphics device.
    if (m_window->rendererInterface()->graphicsApi() != QSGRendererInterface::Software && !m_control->initialize()) {
        qWarning("Orvane: the alert scene could not be prepared for rendering");
    }
    // The scene asks for a frame when it changed (sceneChanged also needs a new sync).
    connect(m_control.get(), &QQuickRenderControl::renderRequested, this, &WaylandSceneSurface::scheduleFrame);
    connect(m_control.get(), &QQuickRenderControl::sceneChanged, this, &WaylandSceneSurface::scheduleFrame);
    connect(&m_connection, &WaylandConnection::disconnected, this, [this] {
        // Every proxy died with the connection: forget them without touching them.
        m_surface = nullptr;
        m_layer = nullptr;
        m_xdgSurface = nullptr;
        m_toplevel = nullptr;
        m_frameCallback = nullptr;
        for (auto& buffer : m_buffers) {
            if (buffer) {
                buffer->buffer = nullptr;
            }
        }
        m_shown = false;
    });
}

WaylandSceneSurface::~WaylandSceneSurface()
{
    destroyRole();
    for (auto& buffer : m_buffers) {
        buffer.reset();
    }
    m_connection.flush();
    // The scene goes before the render control that draws it.
    m_window.reset();
    m_control.reset();
}

void WaylandSceneSurface::show()
{
    if (m_shown || !m_connection.isConnected()) {
        return;
    }
    m_shown = true;
    createRole();
}

void WaylandSceneSurface::hide()
{
    if (!m_shown) {
        return;
    }
    m_shown = false;
    // A layer surface or window shown again must go through its first configure once more; making it anew is the
    // simplest way there.
    destroyRole();
    m_connection.flush();
}

void WaylandSceneSurface::setKeyboardInteractive(bool interactive)
{
    m_keyboardInteractive = interactive;
    if (m_layer) {
        sendKeyboardInteractivity();
        wl_surface_commit(m_surface);
        m_connection.flush();
    }
}

void WaylandSceneSurface::sendKeyboardInteractivity()
{
    zwlr_layer_surface_v1_set_keyboard_interactivity(m_layer, m_keyboardInteractive
                                                                  ? ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_EXCLUSIVE
                                                                  : ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE);
}

void WaylandSceneSurface::createRole()
{
    m_surface = wl_compositor_create_surface(m_connection.compositor());
    static const wl_surface_listener surfaceListener = {
        .enter =
            [](void* data, wl_surface*, wl_output* output) {
                auto* self = static_cast<WaylandSceneSurface*>(data);
                self->m_enteredOutput = output;
                // Full screen only once placed, and on that output: Mutter puts a window that asks before it is
                // mapped on the first monitor, rather than on the one the user works on, where it places new windows.
                if (self->m_toplevel && !self->m_fullScreenRequested) {
                    self->m_fullScreenRequested = true;
                    xdg_toplevel_set_fullscreen(self->m_toplevel, self->m_output ? self->m_output : output);
                    self->m_connection.flush();
                }
                Q_EMIT self->placed();
            },
        .leave = [](void*, wl_surface*, wl_output*) {},
    };
    wl_surface_add_listener(m_surface, &surfaceListener, this);
    m_connection.setInputTarget(m_surface, this);
    m_configured = false;

    if (m_role == Role::overlayLayer) {
        m_layer = zwlr_layer_shell_v1_get_layer_surface(m_connection.layerShell(), m_surface, m_output,
                                                        ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, layerNamespace);
        static const zwlr_layer_surface_v1_listener layerListener = {
            .configure =
                [](void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t width, uint32_t height) {
                    zwlr_layer_surface_v1_ack_configure(layer, serial);
                    static_cast<WaylandSceneSurface*>(data)->configure(QSize(int(width), int(height)));
                },
            // The output went away: the controller learns it from the outputs and makes a panel elsewhere.
            .closed = [](void*, zwlr_layer_surface_v1*) {},
        };
        zwlr_layer_surface_v1_add_listener(m_layer, &layerListener, this);
        zwlr_layer_surface_v1_set_anchor(m_layer, ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM |
                                                      ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT |
                                                      ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT);
        zwlr_layer_surface_v1_set_size(m_layer, 0, 0);
        // Over panels and bars too, like a lock screen.
        zwlr_layer_surface_v1_set_exclusive_zone(m_layer, -1);
        sendKeyboardInteractivity();
    } else {
        createToplevel();
    }
    wl_surface_commit(m_surface);
    m_connection.flush();
}

void WaylandSceneSurface::createToplevel()
{
    m_xdgSurface = xdg_wm_base_get_xdg_surface(m_connection.wmBase(), m_surface);
    static const xdg_surface_listener xdgSurfaceListener = {
        .configure =
            [](void* data, xdg_surface* surface, uint32_t serial) {
                xdg_surface_ack_configure(surface, serial);
                auto* self = static_cast<WaylandSceneSurface*>(data);
                self->configure(self->m_toplevelSize);
            },
    };
    xdg_surface_add_listener(m_xdgSurface, &xdgSurfaceListener, this);
    m_toplevel = xdg_surface_get_toplevel(m_xdgSurface);
    static const xdg_toplevel_listener toplevelListener = {
        .configure =
            [](void* data, xdg_toplevel*, int32_t width, int32_t height, wl_array*) {
                static_cast<WaylandSceneSurface*>(data)->m_toplevelSize = QSize(width, height);
            },
        // Closing the alert's window (a key binding of the desktop) answers it as Escape does.
        .close = [](void* data, xdg_toplevel*) { static_cast<WaylandSceneSurface*>(data)->escape(); },
    };
    xdg_toplevel_add_listener(m_toplevel, &toplevelListener, this);
    xdg_toplevel_set_title(m_toplevel, "Meeting reminder");
    xdg_toplevel_set_app_id(m_toplevel, "com.velmont.Orvane");
    m_fullScreenRequested = false;
}

void WaylandSceneSurface::destroyRole()
{
    if (m_surface) {
        m_connection.setInputTarget(m_surface, nullptr);
    }
    if (m_keyboardFocus) {
        keyboardLeft();
    }
    if (m_frameCallback) {
        wl_callback_destroy(m_frameCallback);
        m_frameCallback = nullptr;
    }
    if (m_layer) {
        zwlr_layer_surface_v1_destroy(m_layer);
        m_layer = nullptr;
    }
    if (m_toplevel) {
        xdg_toplevel_destroy(m_toplevel);
        m_toplevel = nullptr;
    }
    if (m_xdgSurface) {
        xdg_surface_destroy(m_xdgSurface);
        m_xdgSurface = nullptr;
    }
    if (m_surface) {
        wl_surface_destroy(m_surface);
        m_surface = nullptr;
    }
    m_configured = false;
    m_enteredOutput = nullptr;
}

void WaylandSceneSurface::configure(QSize size)
{
    if (!size.isValid() || size.isEmpty()) {
        size = fallbackSize;
    }
    if (size != m_size || m_frame.size() != size) {
        m_size = size;
        m_frame = QImage(size, QImage::Format_ARGB32_Premultiplied);
        m_frame.fill(Qt::transparent);
        for (auto& buffer : m_buffers) {
            buffer.reset();
        }
        m_window->setGeometry(QRect(QPoint(0, 0), size));
        // A window that is never shown gets no resize event: its content item follows by hand.
        m_window->contentItem()->setSize(size);
        m_window->setRenderTarget(QQuickRenderTarget::fromPaintDevice(&m_frame));
    }
    m_configured = true;
    m_dirty = true;
    // The first frame maps the surface: draw it without waiting for the event loop.
    renderFrame();
}

void WaylandSceneSurface::scheduleFrame()
{
    m_dirty = true;
    queueFrame();
}

void WaylandSceneSurface::queueFrame()
{
    if (m_dirty && !m_frameQueued) {
        m_frameQueued = true;
        QMetaObject::invokeMethod(this, &WaylandSceneSurface::renderFrame, Qt::QueuedConnection);
    }
}

WaylandSceneSurface::Buffer* WaylandSceneSurface::freeBuffer()
{
    for (auto& buffer : m_buffers) {
        if (!buffer) {
            buffer = std::make_unique<Buffer>(m_connection.shm(), m_size, this);
        }
        if (buffer->buffer && !buffer->busy) {
            return buffer.get();
        }
    }
    return nullptr;
}

void WaylandSceneSurface::renderFrame()
{
    m_frameQueued = false;
    // Not before the compositor has shown the last frame (its callback comes back here), nor into a buffer it reads.
    if (!m_dirty || !m_shown || !m_configured || !m_surface || m_frameCallback) {
        return;
    }
    Buffer* buffer = freeBuffer();
    if (!buffer) {
        return;
    }
    m_dirty = false;
    m_control->polishItems();
    m_control->beginFrame();
    m_control->sync();
    m_control->render();
    m_control->endFrame();
    std::memcpy(buffer->data, m_frame.constBits(), std::min(buffer->size, std::size_t(m_frame.sizeInBytes())));

    buffer->busy = true;
    wl_surface_attach(m_surface, buffer->buffer, 0, 0);
    wl_surface_damage_buffer(m_surface, 0, 0, m_size.width(), m_size.height());
    m_frameCallback = wl_surface_frame(m_surface);
    static const wl_callback_listener frameListener = {
        .done =
            [](void* data, wl_callback* callback, uint32_t) {
                auto* self = static_cast<WaylandSceneSurface*>(data);
                wl_callback_destroy(callback);
                self->m_frameCallback = nullptr;
                self->queueFrame();
            },
    };
    wl_callback_add_listener(m_frameCallback, &frameListener, this);
    wl_surface_commit(m_surface);
    m_connection.flush();
}

void WaylandSceneSurface::keyboardEntered()
{
    m_keyboardFocus = true;
    QFocusEvent focus(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QCoreApplication::sendEvent(m_window.get(), &focus);
    Q_EMIT keyboardFocusChanged(true);
}

void WaylandSceneSurface::keyboardLeft()
{
    m_keyboardFocus = false;
    QFocusEvent focus(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QCoreApplication::sendEvent(m_window.get(), &focus);
    Q_EMIT keyboardFocusChanged(false);
}

void WaylandSceneSurface::key(std::uint32_t keysym, const QString& text, Qt::KeyboardModifiers modifiers,
                              bool pressed)
{
    const int qtKeyCode = qtKey(keysym);
    if (qtKeyCode == Qt::Key_Escape && m_onEscape) {
        if (pressed) {
            escape();
        }
        return;
    }
    QKeyEvent event(pressed ? QEvent::KeyPress : QEvent::KeyRelease, qtKeyCode, modifiers, text);
    QCoreApplication::sendEvent(m_window.get(), &event);
}

void WaylandSceneSurface::escape()
{
    // A copy: answering usually ends the alert, and with it the handler.
    if (const auto onEscape = m_onEscape) {
        onEscape();
    }
}

void WaylandSceneSurface::sendMouse(QEvent::Type type, Qt::MouseButton button)
{
    QMouseEvent event(type, m_pointer, m_pointer, m_pointer, button, m_buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(m_window.get(), &event);
}

void WaylandSceneSurface::pointerEntered(QPointF position)
{
    m_pointer = position;
    QEnterEvent enter(position, position, position);
    QCoreApplication::sendEvent(m_window.get(), &enter);
    sendMouse(QEvent::MouseMove, Qt::NoButton);
}

void WaylandSceneSurface::pointerLeft()
{
    m_buttons = Qt::NoButton;
    QEvent leave(QEvent::Leave);
    QCoreApplication::sendEvent(m_window.get(), &leave);
}

void WaylandSceneSurface::pointerMoved(QPointF position)
{
    m_pointer = position;
    sendMouse(QEvent::MouseMove, Qt::NoButton);
}

void WaylandSceneSurface::pointerButton(Qt::MouseButton button, bool pressed)
{
    m_buttons.setFlag(button, pressed);
    sendMouse(pressed ? QEvent::MouseButtonPress : QEvent::MouseButtonRelease, button);
}

} // namespace orvane
