// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <QObject>

#include <functional>
#include <memory>

class QQuickWindow;

namespace orvane {

class WaylandConnection;

/// The full-screen alert on a Wayland compositor with wlr-layer-shell (KWin, sway and the other wlroots compositors,
/// COSMIC): every panel is an overlay layer surface (WaylandSceneSurface), the only layer drawn above a full-screen
/// window, covering one output, with the same Qt Quick scene as everywhere else.
///
/// Where it goes: the panel with the meetings is made without an output, so that the compositor puts it where the
/// user works (KWin: the active output; sway: the focused one) and says where through the surface's enter event;
/// a Wayland client cannot otherwise tell which output holds the focused window. Backdrops go on the other outputs.
///
/// The keyboard: a layer surface gets it only while its interactivity is "exclusive", which the panel sets while it
/// may take focus, and then no other window can take it away. When the panel gives it up (or goes away) the
/// compositor gives the keyboard back to the window that had it, which is what "activate the previous window" does
/// elsewhere. Orvane's own focus changes are therefore not reported as the application becoming active or inactive.
/// Main thread only.
class WaylandAlertWindowSystem final : public QObject, public AlertWindowSystem {
    Q_OBJECT

public:
    using ContentFactory = std::function<void(QQuickWindow& window, const AlertPanelContent& content)>;

    /// `connection` must outlive this object and have the layer shell.
    WaylandAlertWindowSystem(WaylandConnection& connection, ContentFactory contentFactory, QObject* parent = nullptr);
    ~WaylandAlertWindowSystem() override;

    std::vector<AlertScreenDescriptor> screens() const override;
    std::optional<std::uint32_t> activeDisplayID() const override { return std::nullopt; }
    bool placesPanelsWhereTheUserWorks() const override { return true; }
    std::optional<AlertForeignWindow> frontmostForeignWindow() const override { return std::nullopt; }
    void activate(const AlertForeignWindow&) override {}
    bool isApplicationActive() const override;
    std::unique_ptr<AlertPanel> createPanel(const AlertScreenDescriptor& screen, AlertPanelContent content) override;
    void announce(const QString& message) override;

    /// The identifier of an output: a hash of its connector name, stable across runs, never 0.
    static std::uint32_t displayID(const QString& outputName);

private:
    class Panel;

    WaylandConnection& m_connection;
    ContentFactory m_contentFactory;
    std::vector<Panel*> m_panels;
};

} // namespace orvane
