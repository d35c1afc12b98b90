// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/wayland/WaylandConnection.h"

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"
#include "alert/linux/wayland/LayerShellProtocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"
#include "xdg-shell-client-protocol.h"

#include <QSocketNotifier>
#include <QtDebug>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/input-event-codes.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

namespace orvane {

namespace {

template <class T>
T* bind(wl_registry* registry, std::uint32_t name, const wl_interface& interface, std::uint32_t offered,
        std::uint32_t wanted)
{
    return static_cast<T*>(wl_registry_bind(registry, name, &interface, std::min(offered, wanted)));
}

const xdg_wm_base_listener wmBaseListener = {
    .ping = [](void*, xdg_wm_base* base, uint32_t serial) { xdg_wm_base_pong(base, serial); },
};

} // namespace

/// The keymap and modifier state of the seat's keyboard.
struct WaylandConnection::KeyboardState {
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    xkb_keymap* keymap = nullptr;
    xkb_state* state = nullptr;

    ~KeyboardState()
    {
        if (state) {
            xkb_state_unref(state);
        }
        if (keymap) {
            xkb_keymap_unref(keymap);
        }
        xkb_context_unref(context);
    }

    void setKeymap(const char* text)
    {
        xkb_keymap* next = xkb_keymap_new_from_string(context, text, XKB_KEYMAP_FORMAT_TEXT_V1,
                                                      XKB_KEYMAP_COMPILE_NO_FLAGS);
        if (!next) {
            return;
        }
        if (state) {
            xkb_state_unref(state);
        }
        if (keymap) {
            xkb_keymap_unref(keymap);
        }
        keymap = next;
        state = xkb_state_new(keymap);
    }

    Qt::KeyboardModifiers modifiers() const
    {
        Qt::KeyboardModifiers result;
        if (!state) {
            return result;
        }
        const std::pair<const char*, Qt::KeyboardModifier> names[] = {{XKB_MOD_NAME_SHIFT, Qt::ShiftModifier},
                                                                       {XKB_MOD_NAME_CTRL, Qt::ControlModifier},
                                                                       {XKB_MOD_NAME_ALT, Qt::AltModifier},
                                                                       {XKB_MOD_NAME_LOGO, Qt::MetaModifier}};
        for (const auto& [name, modifier] : names) {
            if (xkb_state_mod_name_is_active(state, name, XKB_STATE_MODS_EFFECTIVE) > 0) {
                result |= modifier;
            }
        }
        return result;
    }
};

/// One wl_output with its xdg_output, and what they said so far.
struct WaylandConnection::OutputListener {
    WaylandConnection* connection = nullptr;
    Output output;
    zxdg_output_v1* xdgOutput = nullptr;
    /// From wl_output, used when there is no xdg-output.
    QPoint position;
    QSize modeSize;
    int scale = 1;
    bool hasLogicalGeometry = false;

    ~OutputListener()
    {
        if (xdgOutput) {
            zxdg_output_v1_destroy(xdgOutput);
        }
        if (output.output) {
            if (wl_output_get_version(output.output) >= WL_OUTPUT_RELEASE_SINCE_VERSION) {
                wl_output_release(output.output);
            } else {
                wl_output_destroy(output.output);
            }
        }
    }

    void done()
    {
        if (!hasLogicalGeometry && modeSize.isValid()) {
            output.geometry = QRect(position, modeSize / std::max(scale, 1));
        }
        output.complete = output.geometry.isValid();
        Q_EMIT connection->outputsChanged();
    }
};

namespace {

const wl_output_listener outputListener = {
    .geometry = [](void* data, wl_output*, int32_t x, int32_t y, int32_t, int32_t, int32_t, const char*, const char*,
                   int32_t) { static_cast<WaylandConnection::OutputListener*>(data)->position = QPoint(x, y); },
    .mode =
        [](void* data, wl_output*, uint32_t flags, int32_t width, int32_t height, int32_t) {
            if (flags & WL_OUTPUT_MODE_CURRENT) {
                static_cast<WaylandConnection::OutputListener*>(data)->modeSize = QSize(width, height);
            }
        },
    .done = [](void* data, wl_output*) { static_cast<WaylandConnection::OutputListener*>(data)->done(); },
    .scale = [](void* data, wl_output*, int32_t factor) {
        static_cast<WaylandConnection::OutputListener*>(data)->scale = factor;
    },
    .name = [](void* data, wl_output*, const char* name) {
        static_cast<WaylandConnection::OutputListener*>(data)->output.name = QString::fromUtf8(name);
    },
    .description = [](void*, wl_output*, const char*) {},
};

const zxdg_output_v1_listener xdgOutputListener = {
    .logical_position =
        [](void* data, zxdg_output_v1*, int32_t x, int32_t y) {
            auto* listener = static_cast<WaylandConnection::OutputListener*>(data);
            listener->output.geometry.moveTopLeft(QPoint(x, y));
            listener->hasLogicalGeometry = true;
        },
    .logical_size =
        [](void* data, zxdg_output_v1*, int32_t width, int32_t height) {
            auto* listener = static_cast<WaylandConnection::OutputListener*>(data);
            listener->output.geometry.setSize(QSize(width, height));
            listener->hasLogicalGeometry = true;
        },
    // Since version 3 the wl_output's own done event ends a description.
    .done =
        [](void* data, zxdg_output_v1* output) {
            if (zxdg_output_v1_get_version(output) < 3) {
                static_cast<WaylandConnection::OutputListener*>(data)->done();
            }
        },
    .name = [](void* data, zxdg_output_v1*, const char* name) {
        static_cast<WaylandConnection::OutputListener*>(data)->output.name = QString::fromUtf8(name);
    },
    .description = [](void*, zxdg_output_v1*, const char*) {},
};

} // namespace

WaylandConnection::WaylandConnection(const QByteArray& displayName, QObject* parent)
    : QObject(parent)
    , m_keys(std::make_unique<KeyboardState>())
{
    m_display = wl_display_connect(displayName.isEmpty() ? nullptr : displayName.constData());
    if (!m_display) {
        return;
    }
    static const wl_registry_listener registryListener = {.global = &WaylandConnection::handleGlobal,
                                                          .global_remove = &WaylandConnection::handleGlobalRemove};
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &registryListener, this);
    // The globals, then what binding them brought (each output's description, the seat's devices).
    if (!roundtrip() || !roundtrip() || !m_compositor || !m_shm) {
        fail();
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(wl_display_get_fd(m_display), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &WaylandConnection::dispatch);
}

WaylandConnection::~WaylandConnection()
{
    if (!m_display) {
        return;
    }
    m_notifier.reset();
    m_outputs.clear();
    if (m_keyboard) {
        wl_keyboard_destroy(m_keyboard);
    }
    if (m_pointer) {
        wl_pointer_destroy(m_pointer);
    }
    for (auto* object : {reinterpret_cast<wl_proxy*>(m_seat), reinterpret_cast<wl_proxy*>(m_shm),
                         reinterpret_cast<wl_proxy*>(m_compositor), reinterpret_cast<wl_proxy*>(m_layerShell),
                         reinterpret_cast<wl_proxy*>(m_wmBase),
                         reinterpret_cast<wl_proxy*>(m_outputManager),
                         reinterpret_cast<wl_proxy*>(m_idleNotifier), reinterpret_cast<wl_proxy*>(m_kdeIdle),
                         reinterpret_cast<wl_proxy*>(m_registry)}) {
        if (object) {
            wl_proxy_destroy(object);
        }
    }
    wl_display_flush(m_display);
    wl_display_disconnect(m_display);
}

void WaylandConnection::handleGlobal(void* data, wl_registry* registry, std::uint32_t name, const char* interface,
                                     std::uint32_t version)
{
    auto* self = static_cast<WaylandConnection*>(data);
    const auto is = [interface](const wl_interface& candidate) { return std::strcmp(interface, candidate.name) == 0; };
    if (is(wl_compositor_interface)) {
        self->m_compositor = bind<wl_compositor>(registry, name, wl_compositor_interface, version, 4);
    } else if (is(wl_shm_interface)) {
        self->m_shm = bind<wl_shm>(registry, name, wl_shm_interface, version, 1);
    } else if (is(wl_seat_interface) && !self->m_seat) {
        // The first seat: desktops have one.
        self->m_seat = bind<wl_seat>(registry, name, wl_seat_interface, version, 5);
        static const wl_seat_listener seatListener = {
            .capabilities = [](void* data, wl_seat*,
                               uint32_t capabilities) { static_cast<WaylandConnection*>(data)->setSeatCapabilities(
                                                            capabilities); },
            .name = [](void*, wl_seat*, const char*) {},
        };
        wl_seat_add_listener(self->m_seat, &seatListener, self);
    } else if (is(wl_output_interface)) {
        self->addOutput(name, version);
    } else if (is(zxdg_output_manager_v1_interface)) {
        self->m_outputManager = bind<zxdg_output_manager_v1>(registry, name, zxdg_output_manager_v1_interface, version,
                                                             3);
        for (const auto& listener : self->m_outputs) {
            self->watchOutputNames(*listener);
        }
    } else if (is(zwlr_layer_shell_v1_interface)) {
        self->m_layerShell = bind<zwlr_layer_shell_v1>(registry, name, zwlr_layer_shell_v1_interface, version, 3);
    } else if (is(xdg_wm_base_interface)) {
        self->m_wmBase = bind<xdg_wm_base>(registry, name, xdg_wm_base_interface, version, 2);
        xdg_wm_base_add_listener(self->m_wmBase, &wmBaseListener, self);
    } else if (std::strcmp(interface, "gtk_shell1") == 0) {
        // GTK's private shell protocol, which only Mutter implements.
        self->m_isMutter = true;
    } else if (is(ext_idle_notifier_v1_interface)) {
        self->m_idleNotifier = bind<ext_idle_notifier_v1>(registry, name, ext_idle_notifier_v1_interface, version, 1);
    } else if (is(org_kde_kwin_idle_interface)) {
        self->m_kdeIdle = bind<org_kde_kwin_idle>(registry, name, org_kde_kwin_idle_interface, version, 1);
    }
}

void WaylandConnection::handleGlobalRemove(void* data, wl_registry*, std::uint32_t name)
{
    auto* self = static_cast<WaylandConnection*>(data);
    const auto removed = std::remove_if(self->m_outputs.begin(), self->m_outputs.end(),
                                        [name](const auto& listener) { return listener->output.globalName == name; });
    if (removed != self->m_outputs.end()) {
        self->m_outputs.erase(removed, self->m_outputs.end());
        Q_EMIT self->outputsChanged();
    }
}

void WaylandConnection::addOutput(std::uint32_t name, std::uint32_t version)
{
    auto listener = std::make_unique<OutputListener>();
    listener->connection = this;
    listener->output.globalName = name;
    listener->output.output = bind<wl_output>(m_registry, name, wl_output_interface, version, 4);
    wl_output_add_listener(listener->output.output, &outputListener, listener.get());
    m_outputs.push_back(std::move(listener));
    if (m_outputManager) {
        watchOutputNames(*m_outputs.back());
    }
}

void WaylandConnection::watchOutputNames(OutputListener& listener)
{
    if (listener.xdgOutput) {
        return;
    }
    listener.xdgOutput = zxdg_output_manager_v1_get_xdg_output(m_outputManager, listener.output.output);
    zxdg_output_v1_add_listener(listener.xdgOutput, &xdgOutputListener, &listener);
}

std::vector<WaylandConnection::Output> WaylandConnection::outputs() const
{
    std::vector<Output> result;
    for (const auto& listener : m_outputs) {
        if (listener->output.complete) {
            result.push_back(listener->output);
        }
    }
    return result;
}

const WaylandConnection::Output* WaylandConnection::output(const wl_output* output) const
{
    for (const auto& listener : m_outputs) {
        if (listener->output.output == output) {
            return &listener->output;
        }
    }
    return nullptr;
}

void WaylandConnection::setInputTarget(wl_surface* surface, WaylandInputTarget* target)
{
    std::erase_if(m_targets, [surface](const auto& entry) { return entry.first == surface; });
    if (target) {
        m_targets.emplace_back(surface, target);
    } else {
        if (m_keyboardFocus == surface) {
            m_keyboardFocus = nullptr;
        }
        if (m_pointerFocus == surface) {
            m_pointerFocus = nullptr;
        }
    }
}

WaylandInputTarget* WaylandConnection::targetOf(wl_surface* surface) const
{
    const auto found =
        std::find_if(m_targets.begin(), m_targets.end(), [surface](const auto& entry) { return entry.first == surface; });
    return found != m_targets.end() ? found->second : nullptr;
}

void WaylandConnection::setSeatCapabilities(std::uint32_t capabilities)
{
    static const wl_keyboard_listener keyboardListener = {
        .keymap =
            [](void* data, wl_keyboard*, uint32_t format, int32_t fd, uint32_t size) {
                auto* self = static_cast<WaylandConnection*>(data);
                if (format == WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1) {
                    void* text = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
                    if (text != MAP_FAILED) {
                        self->m_keys->setKeymap(static_cast<const char*>(text));
                        munmap(text, size);
                    }
                }
                close(fd);
            },
        .enter =
            [](void* data, wl_keyboard*, uint32_t, wl_surface* surface, wl_array*) {
                auto* self = static_cast<WaylandConnection*>(data);
                self->m_keyboardFocus = surface;
                if (auto* target = self->targetOf(surface)) {
                    target->keyboardEntered();
                }
            },
        .leave =
            [](void* data, wl_keyboard*, uint32_t, wl_surface* surface) {
                auto* self = static_cast<WaylandConnection*>(data);
                if (self->m_keyboardFocus == surface) {
                    self->m_keyboardFocus = nullptr;
                }
                if (auto* target = self->targetOf(surface)) {
                    target->keyboardLeft();
                }
            },
        .key =
            [](void* data, wl_keyboard*, uint32_t, uint32_t, uint32_t key, uint32_t state) {
                auto* self = static_cast<WaylandConnection*>(data);
                auto* target = self->targetOf(self->m_keyboardFocus);
                if (!target || !self->m_keys->state) {
                    return;
                }
                // Evdev codes are eight below the X keycodes xkbcommon uses.
                const xkb_keycode_t code = key + 8;
                const xkb_keysym_t keysym = xkb_state_key_get_one_sym(self->m_keys->state, code);
                char text[16] = {};
                xkb_state_key_get_utf8(self->m_keys->state, code, text, sizeof text);
                target->key(keysym, QString::fromUtf8(text), self->m_keys->modifiers(),
                            state == WL_KEYBOARD_KEY_STATE_PRESSED);
            },
        .modifiers =
            [](void* data, wl_keyboard*, uint32_t, uint32_t depressed, uint32_t latched, uint32_t locked,
               uint32_t group) {
                auto* self = static_cast<WaylandConnection*>(data);
                if (self->m_keys->state) {
                    xkb_state_update_mask(self->m_keys->state, depressed, latched, locked, 0, 0, group);
                }
            },
        .repeat_info = [](void*, wl_keyboard*, int32_t, int32_t) {},
    };
    static const wl_pointer_listener pointerListener = {
        .enter =
            [](void* data, wl_pointer*, uint32_t, wl_surface* surface, wl_fixed_t x, wl_fixed_t y) {
                auto* self = static_cast<WaylandConnection*>(data);
                self->m_pointerFocus = surface;
                if (auto* target = self->targetOf(surface)) {
                    target->pointerEntered(QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y)));
                }
            },
        .leave =
            [](void* data, wl_pointer*, uint32_t, wl_surface* surface) {
                auto* self = static_cast<WaylandConnection*>(data);
                if (self->m_pointerFocus == surface) {
                    self->m_pointerFocus = nullptr;
                }
                if (auto* target = self->targetOf(surface)) {
                    target->pointerLeft();
                }
            },
        .motion =
            [](void* data, wl_pointer*, uint32_t, wl_fixed_t x, wl_fixed_t y) {
                auto* self = static_cast<WaylandConnection*>(data);
                if (auto* target = self->targetOf(self->m_pointerFocus)) {
                    target->pointerMoved(QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y)));
                }
            },
        .button =
            [](void* data, wl_pointer*, uint32_t, uint32_t, uint32_t button, uint32_t state) {
                auto* self = static_cast<WaylandConnection*>(data);
                auto* target = self->targetOf(self->m_pointerFocus);
                const Qt::MouseButton qtButton = button == BTN_LEFT    ? Qt::LeftButton
                                                 : button == BTN_RIGHT ? Qt::RightButton
                                                 : button == BTN_MIDDLE ? Qt::MiddleButton
                                                                        : Qt::NoButton;
                if (target && qtButton != Qt::NoButton) {
                    target->pointerButton(qtButton, state == WL_POINTER_BUTTON_STATE_PRESSED);
                }
            },
        .axis = [](void*, wl_pointer*, uint32_t, uint32_t, wl_fixed_t) {},
        .frame = [](void*, wl_pointer*) {},
        .axis_source = [](void*, wl_pointer*, uint32_t) {},
        .axis_stop = [](void*, wl_pointer*, uint32_t, uint32_t) {},
        .axis_discrete = [](void*, wl_pointer*, uint32_t, int32_t) {},
    };
    const bool hasKeyboard = capabilities & WL_SEAT_CAPABILITY_KEYBOARD;
    if (hasKeyboard && !m_keyboard) {
        m_keyboard = wl_seat_get_keyboard(m_seat);
        wl_keyboard_add_listener(m_keyboard, &keyboardListener, this);
    } else if (!hasKeyboard && m_keyboard) {
        wl_keyboard_destroy(m_keyboard);
        m_keyboard = nullptr;
        m_keyboardFocus = nullptr;
    }
    const bool hasPointer = capabilities & WL_SEAT_CAPABILITY_POINTER;
    if (hasPointer && !m_pointer) {
        m_pointer = wl_seat_get_pointer(m_seat);
        wl_pointer_add_listener(m_pointer, &pointerListener, this);
    } else if (!hasPointer && m_pointer) {
        wl_pointer_destroy(m_pointer);
        m_pointer = nullptr;
        m_pointerFocus = nullptr;
    }
}

void WaylandConnection::flush()
{
    if (m_display && wl_display_flush(m_display) < 0 && errno != EAGAIN) {
        fail();
    }
}

bool WaylandConnection::roundtrip()
{
    return m_display && wl_display_roundtrip(m_display) >= 0;
}

void WaylandConnection::dispatch()
{
    if (wl_display_dispatch(m_display) < 0) {
        fail();
        return;
    }
    flush();
}

void WaylandConnection::fail()
{
    if (!m_display) {
        return;
    }
    qWarning("Orvane: the connection to the Wayland compositor was lost");
    m_notifier.reset();
    // The proxies die with the display; the objects that made surfaces learn of it through disconnected().
    m_outputs.clear();
    m_targets.clear();
    wl_display_disconnect(m_display);
    m_display = nullptr;
    m_registry = nullptr;
    m_compositor = nullptr;
    m_shm = nullptr;
    m_seat = nullptr;
    m_keyboard = nullptr;
    m_pointer = nullptr;
    m_layerShell = nullptr;
    m_wmBase = nullptr;
    m_outputManager = nullptr;
    m_idleNotifier = nullptr;
    m_kdeIdle = nullptr;
    Q_EMIT disconnected();
}

} // namespace orvane
