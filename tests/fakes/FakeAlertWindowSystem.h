// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

/// A window system whose displays, active window and focus the test sets, and whose panels record what was done to
/// them. A panel gets keyboard focus when asked only while it allows it and `grantsFocus` is on.
class FakeAlertWindowSystem final : public orvane::AlertWindowSystem {
public:
    struct PanelState {
        orvane::AlertScreenDescriptor screen;
        orvane::AlertPanelContent content;
        bool visible = false;
        bool allowsFocus = false;
        bool key = false;
        bool destroyed = false;
        int focusAnnouncements = 0;
        bool hasControls() const { return !content.meetings.empty(); }
    };

    std::vector<orvane::AlertScreenDescriptor> displays{{1, {0, 0, 1440, 900}}};
    std::optional<std::uint32_t> activeDisplay;
    std::optional<orvane::AlertForeignWindow> foreignWindow{orvane::AlertForeignWindow{0x400001}};
    bool applicationActive = false;
    bool grantsFocus = true;
    std::vector<orvane::AlertForeignWindow> activated;
    std::vector<QString> announcements;
    std::vector<std::shared_ptr<PanelState>> panels;

    std::vector<orvane::AlertScreenDescriptor> screens() const override { return displays; }
    std::optional<std::uint32_t> activeDisplayID() const override { return activeDisplay; }
    std::optional<orvane::AlertForeignWindow> frontmostForeignWindow() const override
    {
        return applicationActive ? std::nullopt : foreignWindow;
    }
    void activate(const orvane::AlertForeignWindow& window) override { activated.push_back(window); }
    bool isApplicationActive() const override { return applicationActive; }
    void announce(const QString& message) override { announcements.push_back(message); }

    std::unique_ptr<orvane::AlertPanel> createPanel(const orvane::AlertScreenDescriptor& screen,
                                                    orvane::AlertPanelContent content) override
    {
        auto state = std::make_shared<PanelState>();
        state->screen = screen;
        state->content = std::move(content);
        panels.push_back(state);
        return std::make_unique<Panel>(*this, state);
    }

    /// The panels that exist now.
    std::vector<std::shared_ptr<PanelState>> livePanels() const
    {
        std::vector<std::shared_ptr<PanelState>> live;
        std::copy_if(panels.begin(), panels.end(), std::back_inserter(live),
                     [](const auto& panel) { return !panel->destroyed; });
        return live;
    }
    /// The live panel with the alert's controls.
    std::shared_ptr<PanelState> alertPanel() const
    {
        for (const auto& panel : livePanels()) {
            if (panel->hasControls()) {
                return panel;
            }
        }
        return nullptr;
    }

    void setApplicationActive(bool active)
    {
        applicationActive = active;
        applicationActiveDidChange(active);
    }
    void setDisplays(std::vector<orvane::AlertScreenDescriptor> newDisplays)
    {
        displays = std::move(newDisplays);
        screensDidChange();
    }
    /// The user presses Escape: only a panel with keyboard focus receives it.
    void pressEscape()
    {
        for (const auto& panel : livePanels()) {
            if (panel->key && panel->content.onEscape) {
                auto onEscape = panel->content.onEscape;
                onEscape();
                return;
            }
        }
    }

private:
    class Panel final : public orvane::AlertPanel {
    public:
        Panel(FakeAlertWindowSystem& system, std::shared_ptr<PanelState> state)
            : m_system(system)
            , m_state(std::move(state))
        {
        }
        ~Panel() override
        {
            m_state->destroyed = true;
            m_state->visible = false;
            m_state->key = false;
        }
        void setScreen(const orvane::AlertScreenDescriptor& screen) override { m_state->screen = screen; }
        void setAllowsKeyboardFocus(bool allows) override
        {
            m_state->allowsFocus = allows;
            if (!allows) {
                m_state->key = false;
            }
        }
        bool allowsKeyboardFocus() const override { return m_state->allowsFocus; }
        void orderFrontRegardless() override { m_state->visible = true; }
        void orderOut() override
        {
            m_state->visible = false;
            m_state->key = false;
        }
        void makeKeyAndOrderFront() override
        {
            m_state->visible = true;
            if (m_state->allowsFocus && m_system.grantsFocus) {
                m_state->key = true;
                m_system.applicationActive = true;
            }
        }
        bool isKeyWindow() const override { return m_state->key; }
        void announceFocusedWindowChanged() override { ++m_state->focusAnnouncements; }

    private:
        FakeAlertWindowSystem& m_system;
        std::shared_ptr<PanelState> m_state;
    };
};
