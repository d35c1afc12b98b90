// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <set>

namespace orvane {

/// Whether the screen is being shared or recorded, from the PipeWire graph: on Wayland every capture of the screen
/// goes through a screen-cast node that the desktop's portal backend makes (GNOME's "meta-screen-cast-src",
/// wlroots' "xdpw-stream-…", Hyprland's "xdph-streaming-…", KDE's "xdg-desktop-portal-kde…"). Such a node does not
/// say which output it shows, so any live one counts for the whole desktop.
///
/// It follows the registry's events on PipeWire's own loop, whose file descriptor Qt's event loop watches: nothing
/// polls, and between changes of the graph nothing runs. Main thread only.
class PipeWireScreenCastMonitor final : public QObject {
    Q_OBJECT

public:
    /// Connects to the user's PipeWire daemon (`$PIPEWIRE_REMOTE`, else "pipewire-0" in `$XDG_RUNTIME_DIR`).
    explicit PipeWireScreenCastMonitor(QObject* parent = nullptr);
    ~PipeWireScreenCastMonitor() override;

    /// Whether the daemon answered: without it screen sharing cannot be seen.
    bool isConnected() const { return m_pipeWire != nullptr; }
    bool isScreenShared() const { return !m_screenCasts.empty(); }

    /// Whether a node with this name and media class is a screen cast.
    static bool isScreenCastNode(const QString& nodeName, const QString& mediaClass);

Q_SIGNALS:
    void screenSharedChanged(bool shared);
    /// The daemon went away (or came back through a new monitor).
    void connectionChanged(bool connected);

private:
    struct PipeWire;

    void nodeAdded(std::uint32_t id, const QString& nodeName, const QString& mediaClass);
    void globalRemoved(std::uint32_t id);
    void disconnected();

    std::unique_ptr<PipeWire> m_pipeWire;
    std::set<std::uint32_t> m_screenCasts;
};

} // namespace orvane
