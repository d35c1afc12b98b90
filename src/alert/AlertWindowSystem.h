// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/FullScreenAlertAction.h"

#include <QRect>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace orvane {

/// A display as the alert sees it: a stable identifier and where it lies on the desktop.
struct AlertScreenDescriptor {
    std::uint32_t displayID = 0;
    /// In global (desktop) coordinates.
    QRect frame;

    friend bool operator==(const AlertScreenDescriptor&, const AlertScreenDescriptor&) = default;
};

/// Another application's window that was active before the alert took focus, so that it can be given back.
struct AlertForeignWindow {
    /// The window system's own handle (an X11 window id).
    std::uint64_t handle = 0;

    friend bool operator==(const AlertForeignWindow&, const AlertForeignWindow&) = default;
};

/// One borderless window covering a display. The panel with controls hosts the alert view; a backdrop panel (used
/// when the alert covers every display) shows the scene without controls.
class AlertPanel {
public:
    virtual ~AlertPanel() = default;

    /// Moves and resizes the panel to cover `screen`.
    virtual void setScreen(const AlertScreenDescriptor& screen) = 0;
    /// Whether the panel may take keyboard focus. It never takes it on its own while this is false.
    virtual void setAllowsKeyboardFocus(bool allows) = 0;
    virtual bool allowsKeyboardFocus() const = 0;
    /// Shows the panel above everything without taking focus.
    virtual void orderFrontRegardless() = 0;
    /// Hides the panel; it can be shown again.
    virtual void orderOut() = 0;
    /// Asks for keyboard focus and raises the panel.
    virtual void makeKeyAndOrderFront() = 0;
    /// Whether the panel has keyboard focus now.
    virtual bool isKeyWindow() const = 0;
    /// Tells assistive technology that the focused window changed to this panel.
    virtual void announceFocusedWindowChanged() = 0;
};

/// What the panel shows and where its answers go.
struct AlertPanelContent {
    /// Empty for a backdrop panel.
    std::vector<MeetingOccurrence> meetings;
    /// Called with the user's choice in the alert view.
    std::function<void(FullScreenAlertAction)> onAction;
    /// Called when Escape is pressed while the panel has keyboard focus.
    std::function<void()> onEscape;
    /// Called with the display a panel made for "where the user works" (display 0) was put on.
    std::function<void(std::uint32_t displayID)> onPlaced;
};

/// The window system as far as the full-screen alert needs it: displays, the active application, panels. All calls
/// are quick and made on the main thread.
class AlertWindowSystem {
public:
    virtual ~AlertWindowSystem() = default;

    /// The displays, in the window system's order; the first is the fallback.
    virtual std::vector<AlertScreenDescriptor> screens() const = 0;
    /// The display holding the window with keyboard focus (the application the user is working in), else the one
    /// under the pointer; absent when neither can be told.
    virtual std::optional<std::uint32_t> activeDisplayID() const = 0;
    /// Whether a panel made for display 0 goes where the user works, chosen by the window system itself (a Wayland
    /// compositor knows; its clients do not), and reports that display through `onPlaced`.
    virtual bool placesPanelsWhereTheUserWorks() const { return false; }
    /// The active window when it belongs to another application.
    virtual std::optional<AlertForeignWindow> frontmostForeignWindow() const = 0;
    /// Gives focus back to a window of another application; nothing happens when it is gone.
    virtual void activate(const AlertForeignWindow& window) = 0;
    /// Whether one of Orvane's windows has focus.
    virtual bool isApplicationActive() const = 0;
    /// Creates a hidden panel on `screen`.
    virtual std::unique_ptr<AlertPanel> createPanel(const AlertScreenDescriptor& screen, AlertPanelContent content) = 0;
    /// Speaks a message to assistive technology users.
    virtual void announce(const QString& message) = 0;

    /// Called when Orvane's application becomes active (true) or inactive (false).
    void setOnApplicationActiveChange(std::function<void(bool)> handler)
    {
        m_onApplicationActiveChange = std::move(handler);
    }
    /// Called when displays are added, removed or rearranged.
    void setOnScreensChange(std::function<void()> handler) { m_onScreensChange = std::move(handler); }

protected:
    void applicationActiveDidChange(bool active)
    {
        if (m_onApplicationActiveChange) {
            m_onApplicationActiveChange(active);
        }
    }
    void screensDidChange()
    {
        if (m_onScreensChange) {
            m_onScreensChange();
        }
    }

private:
    std::function<void(bool)> m_onApplicationActiveChange;
    std::function<void()> m_onScreensChange;
};

} // namespace orvane
