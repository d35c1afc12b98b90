// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/wayland/MutterAlertWindowSystem.h"

#include "alert/linux/wayland/WaylandConnection.h"
#include "alert/linux/wayland/WaylandSceneSurface.h"

#include <QQuickWindow>

#include <algorithm>

namespace orvane {

class MutterAlertWindowSystem::Panel final : public AlertPanel {
public:
    Panel(MutterAlertWindowSystem& system, const AlertScreenDescriptor& screen, AlertPanelContent content)
        : m_system(system)
        , m_content(std::move(content))
    {
        system.m_panels.push_back(this);
        AlertPanelContent xwaylandContent = m_content;
        xwaylandContent.onPlaced = nullptr;
        m_xwayland = system.m_xwayland->createPanel(screen, std::move(xwaylandContent));
    }
    ~Panel() override
    {
        std::erase(m_system.m_panels, this);
        hideWindow();
    }

    void setScreen(const AlertScreenDescriptor& screen) override { m_xwayland->setScreen(screen); }
    void setAllowsKeyboardFocus(bool allows) override
    {
        m_allowsKeyboardFocus = allows;
        if (!allows && m_window) {
            // Back to the panel that never takes keys.
            hideWindow();
            if (m_shown) {
                m_xwayland->orderFrontRegardless();
            }
        }
    }
    bool allowsKeyboardFocus() const override { return m_allowsKeyboardFocus; }
    void orderFrontRegardless() override
    {
        m_shown = true;
        if (!isKeyWindow()) {
            m_xwayland->orderFrontRegardless();
        }
    }
    void orderOut() override
    {
        m_shown = false;
        hideWindow();
        m_xwayland->orderOut();
    }
    void makeKeyAndOrderFront() override
    {
        // A backdrop has nothing to answer; it stays an X11 panel.
        if (!m_allowsKeyboardFocus || m_content.meetings.empty()) {
            return;
        }
        m_shown = true;
        if (!m_window) {
            showWindow();
        }
    }
    bool isKeyWindow() const override { return m_window && m_window->hasKeyboardFocus(); }
    void announceFocusedWindowChanged() override {}

private:
    void showWindow()
    {
        m_window = new WaylandSceneSurface(m_system.m_connection, WaylandSceneSurface::Role::fullScreenWindow,
                                           nullptr, &m_system);
        // The window exists only while the panel may have the keyboard.
        m_window->setOnEscape(m_content.onEscape);
        QObject::connect(m_window, &WaylandSceneSurface::placed, m_window, [this] { windowWasPlaced(); });
        QObject::connect(m_window, &WaylandSceneSurface::keyboardFocusChanged, m_window, [this](bool focused) {
            if (focused) {
                m_xwayland->orderOut();
            } else {
                // The user went to another window: the alert stays in sight without the keyboard.
                m_system.applicationActiveDidChange(false);
            }
        });
        if (m_system.m_contentFactory) {
            m_system.m_contentFactory(m_window->window(), m_content);
        }
        m_window->show();
    }

    void hideWindow()
    {
        if (!m_window) {
            return;
        }
        // Disconnected first: losing the keyboard to its own hiding is not the user leaving. The panel usually ends
        // from inside one of its scene's key or click handlers: the window leaves the screen now, and its scene is
        // deleted once that handler has returned.
        m_window->setOnEscape({});
        m_window->disconnect();
        m_window->hide();
        m_window->deleteLater();
        m_window = nullptr;
    }

    /// Mutter chose the monitor: the X11 panel follows, and the controller learns the display.
    void windowWasPlaced()
    {
        const auto* output = m_system.m_connection.output(m_window->output());
        if (!output) {
            return;
        }
        const auto screens = m_system.m_xwayland->screens();
        const auto found = std::find_if(screens.begin(), screens.end(), [output](const AlertScreenDescriptor& screen) {
            return screen.frame == output->geometry;
        });
        if (found == screens.end()) {
            return;
        }
        m_xwayland->setScreen(*found);
        if (m_content.onPlaced) {
            m_content.onPlaced(found->displayID);
        }
    }

    MutterAlertWindowSystem& m_system;
    AlertPanelContent m_content;
    std::unique_ptr<AlertPanel> m_xwayland;
    WaylandSceneSurface* m_window = nullptr;
    bool m_allowsKeyboardFocus = false;
    bool m_shown = false;
};

MutterAlertWindowSystem::MutterAlertWindowSystem(WaylandConnection& connection,
                                                 std::unique_ptr<AlertWindowSystem> xwayland,
                                                 ContentFactory contentFactory, QObject* parent)
    : QObject(parent)
    , m_connection(connection)
    , m_xwayland(std::move(xwayland))
    , m_contentFactory(std::move(contentFactory))
{
    m_xwayland->setOnScreensChange([this] { screensDidChange(); });
}

MutterAlertWindowSystem::~MutterAlertWindowSystem() = default;

bool MutterAlertWindowSystem::isApplicationActive() const
{
    return m_xwayland->isApplicationActive() ||
           std::any_of(m_panels.begin(), m_panels.end(), [](const Panel* panel) { return panel->isKeyWindow(); });
}

std::unique_ptr<AlertPanel> MutterAlertWindowSystem::createPanel(const AlertScreenDescriptor& screen,
                                                                 AlertPanelContent content)
{
    return std::make_unique<Panel>(*this, screen, std::move(content));
}

} // namespace orvane
