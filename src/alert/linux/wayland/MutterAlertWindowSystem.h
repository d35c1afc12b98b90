// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <QObject>

#include <functional>
#include <memory>
#include <vector>

class QQuickWindow;

namespace orvane {

class WaylandConnection;

/// The full-screen alert on GNOME, whose compositor (Mutter) has no layer above full-screen windows for clients. Two
/// windows of the same scene play the panel's part:
/// - while the panel may not take the keyboard, an X11 panel through XWayland (QtAlertWindowSystem): Mutter draws
///   such override-redirect windows above a full-screen application, but never gives them keys;
/// - once it may, a native full-screen window on Orvane's own Wayland connection, which Mutter activates, draws above
///   everything (the top bar included) and gives the keyboard. Mutter chooses its monitor (a client cannot tell which
///   one holds the focused window); the panel reports where it landed and the X11 panel moves there. The X11 panel
///   goes once the native window has the keyboard, and comes back when it loses it.
/// Displays, the active window and announcements are the X11 side's. Main thread only.
class MutterAlertWindowSystem final : public QObject, public AlertWindowSystem {
    Q_OBJECT

public:
    using ContentFactory = std::function<void(QQuickWindow& window, const AlertPanelContent& content)>;

    /// `connection` must outlive this object and have xdg-shell; `xwayland` draws the X11 panels.
    MutterAlertWindowSystem(WaylandConnection& connection, std::unique_ptr<AlertWindowSystem> xwayland,
                            ContentFactory contentFactory, QObject* parent = nullptr);
    ~MutterAlertWindowSystem() override;

    std::vector<AlertScreenDescriptor> screens() const override { return m_xwayland->screens(); }
    std::optional<std::uint32_t> activeDisplayID() const override { return m_xwayland->activeDisplayID(); }
    std::optional<AlertForeignWindow> frontmostForeignWindow() const override { return std::nullopt; }
    void activate(const AlertForeignWindow&) override {}
    bool isApplicationActive() const override;
    std::unique_ptr<AlertPanel> createPanel(const AlertScreenDescriptor& screen, AlertPanelContent content) override;
    void announce(const QString& message) override { m_xwayland->announce(message); }

private:
    class Panel;

    WaylandConnection& m_connection;
    std::unique_ptr<AlertWindowSystem> m_xwayland;
    ContentFactory m_contentFactory;
    std::vector<Panel*> m_panels;
};

} // namespace orvane
