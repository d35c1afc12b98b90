// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/wayland/WaylandAlertWindowSystem.h"

#include "alert/linux/StableDisplayID.h"
#include "alert/linux/wayland/WaylandConnection.h"
#include "alert/linux/wayland/WaylandSceneSurface.h"

#include <QQuickWindow>
#include <QtDebug>

#include <algorithm>

namespace orvane {

class WaylandAlertWindowSystem::Panel final : public AlertPanel {
public:
    Panel(WaylandAlertWindowSystem& system, wl_output* output, const AlertPanelContent& content)
        : m_system(system)
        , m_surface(new WaylandSceneSurface(system.m_connection, WaylandSceneSurface::Role::overlayLayer, output, &system))
    {
        system.m_panels.push_back(this);
        m_surface->setOnEscape([this, escape = content.onEscape] {
            if (escape && m_allowsKeyboardFocus) {
                escape();
            }
        });
        if (content.onPlaced) {
            QObject::connect(m_surface, &WaylandSceneSurface::placed, m_surface,
                             [this, onPlaced = content.onPlaced] {
                                 if (const auto* output = m_system.m_connection.output(m_surface->output())) {
                                     onPlaced(WaylandAlertWindowSystem::displayID(output->name));
                                 }
                             });
        }
        if (system.m_contentFactory) {
            system.m_contentFactory(m_surface->window(), content);
        }
    }
    ~Panel() override
    {
        std::erase(m_system.m_panels, this);
        // The panel usually ends from inside one of its scene's key or click handlers: the surface leaves the screen
        // now, and its scene is deleted once that handler has returned.
        m_surface->hide();
        m_surface->setOnEscape({});
        m_surface->disconnect();
        m_surface->deleteLater();
    }

    void setScreen(const AlertScreenDescriptor&) override
    {
        // A layer surface stays on the output it was made for; the controller makes a new panel when that goes.
    }
    void setAllowsKeyboardFocus(bool allows) override
    {
        m_allowsKeyboardFocus = allows;
        m_surface->setKeyboardInteractive(allows);
    }
    bool allowsKeyboardFocus() const override { return m_allowsKeyboardFocus; }
    void orderFrontRegardless() override { m_surface->show(); }
    void orderOut() override { m_surface->hide(); }
    void makeKeyAndOrderFront() override
    {
        m_surface->show();
        m_surface->setKeyboardInteractive(m_allowsKeyboardFocus);
    }
    bool isKeyWindow() const override { return m_surface->hasKeyboardFocus(); }
    void announceFocusedWindowChanged() override {}

    bool hasKeyboardFocus() const { return m_surface->hasKeyboardFocus(); }

private:
    WaylandAlertWindowSystem& m_system;
    WaylandSceneSurface* m_surface;
    bool m_allowsKeyboardFocus = false;
};

WaylandAlertWindowSystem::WaylandAlertWindowSystem(WaylandConnection& connection, ContentFactory contentFactory,
                                                   QObject* parent)
    : QObject(parent)
    , m_connection(connection)
    , m_contentFactory(std::move(contentFactory))
{
    connect(&m_connection, &WaylandConnection::outputsChanged, this, [this] { screensDidChange(); });
}

WaylandAlertWindowSystem::~WaylandAlertWindowSystem() = default;

std::uint32_t WaylandAlertWindowSystem::displayID(const QString& outputName)
{
    return stableDisplayID(outputName.toUtf8());
}

std::vector<AlertScreenDescriptor> WaylandAlertWindowSystem::screens() const
{
    std::vector<AlertScreenDescriptor> result;
    for (const auto& output : m_connection.outputs()) {
        result.push_back({displayID(output.name), output.geometry});
    }
    return result;
}

bool WaylandAlertWindowSystem::isApplicationActive() const
{
    return std::any_of(m_panels.begin(), m_panels.end(), [](const Panel* panel) { return panel->hasKeyboardFocus(); });
}

std::unique_ptr<AlertPanel> WaylandAlertWindowSystem::createPanel(const AlertScreenDescriptor& screen,
                                                                  AlertPanelContent content)
{
    wl_output* output = nullptr;
    for (const auto& candidate : m_connection.outputs()) {
        if (screen.displayID != 0 && displayID(candidate.name) == screen.displayID) {
            output = candidate.output;
        }
    }
    return std::make_unique<Panel>(*this, output, content);
}

void WaylandAlertWindowSystem::announce(const QString& message)
{
    // The scene is drawn off screen: no accessibility tree reaches the desktop from it.
    qInfo().noquote() << "Orvane:" << message;
}

} // namespace orvane
