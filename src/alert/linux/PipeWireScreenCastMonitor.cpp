// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/PipeWireScreenCastMonitor.h"

#include <QSocketNotifier>
#include <QtDebug>

#include <pipewire/pipewire.h>

#include <algorithm>
#include <array>
#include <cstring>

using namespace Qt::StringLiterals;

namespace orvane {

struct PipeWireScreenCastMonitor::PipeWire {
    PipeWireScreenCastMonitor* owner = nullptr;
    pw_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    spa_hook coreListener{};
    spa_hook registryListener{};
    std::unique_ptr<QSocketNotifier> notifier;

    ~PipeWire()
    {
        notifier.reset();
        if (registry) {
            spa_hook_remove(&registryListener);
            pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
        }
        if (core) {
            spa_hook_remove(&coreListener);
            pw_core_disconnect(core);
        }
        if (context) {
            pw_context_destroy(context);
        }
        if (loop) {
            pw_loop_destroy(loop);
        }
    }

    /// Handles whatever the daemon sent (and sends what is queued), without waiting.
    void dispatch()
    {
        pw_loop_enter(loop);
        pw_loop_iterate(loop, 0);
        pw_loop_leave(loop);
    }
};

namespace {

/// The names screen-cast nodes of the desktops' portal backends begin with.
constexpr std::array screenCastNamePrefixes = {"meta-screen-cast-src", "xdpw-stream", "xdph-streaming",
                                               "xdg-desktop-portal-kde", "xdg-desktop-portal-cosmic"};

} // namespace

PipeWireScreenCastMonitor::PipeWireScreenCastMonitor(QObject* parent)
    : QObject(parent)
    , m_pipeWire(std::make_unique<PipeWire>())
{
    pw_init(nullptr, nullptr);
    PipeWire& pw = *m_pipeWire;
    pw.owner = this;
    pw.loop = pw_loop_new(nullptr);
    pw.context = pw.loop ? pw_context_new(pw.loop, nullptr, 0) : nullptr;
    pw.core = pw.context ? pw_context_connect(pw.context, nullptr, 0) : nullptr;
    if (!pw.core) {
        qInfo("Orvane: PipeWire is not running; screen sharing cannot be detected");
        m_pipeWire.reset();
        return;
    }
    static const pw_core_events coreEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.error = [](void* data, std::uint32_t id, int, int, const char*) {
            // An error on the core itself is the connection ending (the daemon went away).
            if (id == PW_ID_CORE) {
                static_cast<PipeWire*>(data)->owner->disconnected();
            }
        };
        return events;
    }();
    pw_core_add_listener(pw.core, &pw.coreListener, &coreEvents, &pw);
    pw.registry = pw_core_get_registry(pw.core, PW_VERSION_REGISTRY, 0);
    static const pw_registry_events registryEvents = [] {
        pw_registry_events events{};
        events.version = PW_VERSION_REGISTRY_EVENTS;
        events.global = [](void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                           const spa_dict* props) {
            if (std::strcmp(type, PW_TYPE_INTERFACE_Node) != 0 || props == nullptr) {
                return;
            }
            static_cast<PipeWire*>(data)->owner->nodeAdded(
                id, QString::fromUtf8(spa_dict_lookup(props, PW_KEY_NODE_NAME)),
                QString::fromUtf8(spa_dict_lookup(props, PW_KEY_MEDIA_CLASS)));
        };
        events.global_remove = [](void* data, std::uint32_t id) {
            static_cast<PipeWire*>(data)->owner->globalRemoved(id);
        };
        return events;
    }();
    pw_registry_add_listener(pw.registry, &pw.registryListener, &registryEvents, &pw);
    pw.notifier = std::make_unique<QSocketNotifier>(pw_loop_get_fd(pw.loop), QSocketNotifier::Read);
    connect(pw.notifier.get(), &QSocketNotifier::activated, this, [this] { m_pipeWire->dispatch(); });
    pw.dispatch();
}

PipeWireScreenCastMonitor::~PipeWireScreenCastMonitor() = default;

bool PipeWireScreenCastMonitor::isScreenCastNode(const QString& nodeName, const QString& mediaClass)
{
    if (mediaClass != u"Video/Source"_s && mediaClass != u"Stream/Output/Video"_s) {
        return false;
    }
    return std::any_of(screenCastNamePrefixes.begin(), screenCastNamePrefixes.end(),
                       [&](const char* prefix) { return nodeName.startsWith(QLatin1StringView(prefix)); });
}

void PipeWireScreenCastMonitor::nodeAdded(std::uint32_t id, const QString& nodeName, const QString& mediaClass)
{
    if (!isScreenCastNode(nodeName, mediaClass)) {
        return;
    }
    const bool wasShared = isScreenShared();
    m_screenCasts.insert(id);
    if (!wasShared) {
        Q_EMIT screenSharedChanged(true);
    }
}

void PipeWireScreenCastMonitor::globalRemoved(std::uint32_t id)
{
    if (m_screenCasts.erase(id) != 0 && !isScreenShared()) {
        Q_EMIT screenSharedChanged(false);
    }
}

void PipeWireScreenCastMonitor::disconnected()
{
    // Later: this runs inside PipeWire's own dispatch, which must not see its objects go.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (!m_pipeWire) {
                return;
            }
            qInfo("Orvane: the connection to PipeWire ended; screen sharing cannot be detected");
            m_pipeWire.reset();
            const bool wasShared = isScreenShared();
            m_screenCasts.clear();
            if (wasShared) {
                Q_EMIT screenSharedChanged(false);
            }
            Q_EMIT connectionChanged(false);
        },
        Qt::QueuedConnection);
}

} // namespace orvane
