// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class QQuickWindow;
class QScreen;

namespace orvane {

class X11Ewmh;

/// The full-screen alert's window system on a Linux desktop: Qt's screens, and one frameless Qt Quick window per
/// panel. On X11 (the xcb platform, which Wayland sessions reach through XWayland) it reads and requests the active
/// window through EWMH on Qt's own X connection; on other platforms those parts answer "unknown" and do nothing.
///
/// How a panel stays above everything: it is an override-redirect window (Qt::X11BypassWindowManagerHint). Window
/// managers keep a focused full-screen window in a layer above "always on top" windows (openbox's fullscreen
/// layer, likewise in Mutter and KWin), so a managed panel that must not take focus while another program holds
/// the keyboard would sit under a full-screen video call or presentation. A window the manager does not manage
/// stays where the X server put it, above every managed window, exactly as screen lockers do; its manager-facing
/// properties (above, sticky, skip taskbar and pager, every desktop) are still set for tools and
/// compositors that read them, but no manager acts on them, so the panel shows on every desktop and never in a
/// taskbar or window switcher. Should anything be stacked over it while it shows, the X server reports the panel as
/// obscured (VisibilityNotify) and the panel raises itself again; nothing polls. Such a window gets keyboard focus
/// only from the program itself (SetInputFocus), which is what makeKeyAndOrderFront() does, and only while the
/// panel allows focus.
///
/// announce() has no announcement event to use in Qt 6.4: it posts an accessibility Alert event, and a NameChanged
/// event, for a hidden element whose role is "alert message" and whose name is the message, which assistive
/// technology voices as an alert. Main thread only.
class QtAlertWindowSystem final : public AlertWindowSystem {
public:
    /// Fills a panel's window with the alert view, or with the backdrop when `content.meetings` is empty. The
    /// window is dark and opaque before the factory runs.
    using ContentFactory = std::function<void(QQuickWindow& window, const AlertPanelContent& content)>;

    /// The title of every panel window, which window lists and assistive technology show.
    static const QString panelTitle;

    explicit QtAlertWindowSystem(ContentFactory contentFactory);
    ~QtAlertWindowSystem() override;
    QtAlertWindowSystem(const QtAlertWindowSystem&) = delete;
    QtAlertWindowSystem& operator=(const QtAlertWindowSystem&) = delete;

    std::vector<AlertScreenDescriptor> screens() const override;
    std::optional<std::uint32_t> activeDisplayID() const override;
    std::optional<AlertForeignWindow> frontmostForeignWindow() const override;
    void activate(const AlertForeignWindow& window) override;
    bool isApplicationActive() const override;
    std::unique_ptr<AlertPanel> createPanel(const AlertScreenDescriptor& screen, AlertPanelContent content) override;
    void announce(const QString& message) override;

    /// A stable identifier for `screen`: a hash of its connector name, manufacturer, model and serial number, the
    /// same for the same display across calls and runs, and never 0.
    static std::uint32_t displayID(const QScreen& screen);

private:
    class Panel;
    class VisibilityFilter;

    void watchScreen(QScreen* screen);

    ContentFactory m_contentFactory;
    /// Set when Qt runs on X11.
    std::unique_ptr<X11Ewmh> m_x11;
    std::unique_ptr<VisibilityFilter> m_visibilityFilter;
    /// The context of every signal connection, so that they all end with this object.
    QObject m_context;
    bool m_applicationActive = false;
    /// The element the last announcement was made on; replaced by the next.
    std::unique_ptr<QObject> m_announcement;
};

} // namespace orvane
