// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/FullScreenAlertController.h"

#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/SecureEventInputActivationGate.h"
#include "scheduling/AlertTimerScheduling.h"
#include "scheduling/Clock.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace orvane {

const QString FullScreenAlertController::keyboardUnavailableAnnouncement =
    u"Meeting reminder shown. Keyboard controls are temporarily unavailable."_s;

namespace {

/// Runs `member` on the controller only while it still exists; callbacks handed to panels, timers and the gate can
/// outlive it.
template <class Function>
auto guarded(const std::shared_ptr<FullScreenAlertController*>& self, Function function)
{
    return [weak = std::weak_ptr(self), function = std::move(function)](auto&&... arguments) {
        if (const auto controller = weak.lock()) {
            function(**controller, std::forward<decltype(arguments)>(arguments)...);
        }
    };
}

} // namespace

FullScreenAlertController::FullScreenAlertController(AlertPresentationSessionMonitoring& monitor,
                                                     AlertWindowSystem& windowSystem, Clock& clock,
                                                     AlertTimerScheduling& timers, SecureEventInputActivationGate& gate)
    : m_monitor(monitor)
    , m_windowSystem(windowSystem)
    , m_clock(clock)
    , m_timers(timers)
    , m_gate(gate)
    , m_self(std::make_shared<FullScreenAlertController*>(this))
{
    m_monitor.setOnPresentationAvailabilityChange(guarded(m_self, [](FullScreenAlertController& self, bool available) {
        self.presentationAvailabilityDidChange(available);
    }));
    m_windowSystem.setOnApplicationActiveChange(
        guarded(m_self, [](FullScreenAlertController& self, bool active) { self.applicationActiveDidChange(active); }));
    m_windowSystem.setOnScreensChange(
        guarded(m_self, [](FullScreenAlertController& self) { self.screensDidChange(); }));
}

FullScreenAlertController::~FullScreenAlertController()
{
    m_monitor.setOnPresentationAvailabilityChange({});
    m_windowSystem.setOnApplicationActiveChange({});
    m_windowSystem.setOnScreensChange({});
    closePresentation(false);
}

bool FullScreenAlertController::present(std::vector<MeetingOccurrence> meetings, std::optional<Date> safetyEnd,
                                        ActionHandler handler)
{
    if (meetings.empty()) {
        return false;
    }
    // Displays powered down and a locker that only holds the keyboard send no events: asked about now.
    m_monitor.recheck();
    if (!m_monitor.isPresentationAvailable() || m_windowSystem.screens().empty()) {
        return false;
    }

    // The display of the application the user is in, read before Orvane takes focus and so becomes that application.
    const std::optional<std::uint32_t> activeDisplay = m_windowSystem.activeDisplayID();

    if (m_handler) {
        // A replacement keeps what the first alert learnt, so that closing the last one returns the user to where
        // they were before any alert.
        const auto target = m_targetDisplayID;
        const auto previous = m_previousWindow;
        const bool didActivate = m_didActivateForPresentation;
        const auto focusNotBefore = m_focusNotBefore;
        closePresentation(false);
        m_targetDisplayID = target;
        m_previousWindow = previous;
        m_didActivateForPresentation = didActivate;
        m_focusNotBefore = focusNotBefore;
    }

    // The display of the remembered or active application; without either, a window system that knows where the
    // user works places the panel itself (display 0) and says where.
    const bool placedByWindowSystem =
        !m_targetDisplayID && !activeDisplay && m_windowSystem.placesPanelsWhereTheUserWorks();
    const auto screen = placedByWindowSystem ? std::optional(AlertScreenDescriptor{})
                                             : chooseScreen(m_targetDisplayID, activeDisplay);
    if (!placedByWindowSystem) {
        m_targetDisplayID = screen->displayID;
    }
    m_meetings = std::move(meetings);
    m_handler = std::move(handler);

    const Date now = m_clock.now();
    if (safetyEnd && *safetyEnd <= now) {
        m_presentationSafetyEnd = safetyEnd;
        expireIfDue(now);
        return false;
    }

    m_panel = m_windowSystem.createPanel(
        *screen, AlertPanelContent{
                     .meetings = m_meetings,
                     .onAction = guarded(m_self, [](FullScreenAlertController& self,
                                                    const FullScreenAlertAction& action) { self.deliver(action); }),
                     .onEscape = guarded(m_self, [](FullScreenAlertController& self) { self.escape(); }),
                     .onPlaced = guarded(m_self, [](FullScreenAlertController& self,
                                                    std::uint32_t displayID) { self.panelWasPlaced(displayID); }),
                 });
    if (!placedByWindowSystem) {
        arrangeBackdrops(*screen);
    }

    if (safetyEnd) {
        m_presentationSafetyEnd = safetyEnd;
        m_safetyTimer = m_timers.schedule(
            *safetyEnd, guarded(m_self, [](FullScreenAlertController& self) { self.expireIfDue(self.m_clock.now()); }));
    }

    orderFrontRegardless();
    if (!requestFocus(true)) {
        m_windowSystem.announce(keyboardUnavailableAnnouncement);
    }
    return true;
}

bool FullScreenAlertController::isPresenting() const
{
    return m_handler && m_panel;
}

void FullScreenAlertController::closeWithoutAction()
{
    if (m_handler || m_panel) {
        closePresentation(true);
    }
}

void FullScreenAlertController::setShowsOnAllDisplays(bool shows)
{
    if (shows == m_showsOnAllDisplays) {
        return;
    }
    m_showsOnAllDisplays = shows;
    if (m_panel && m_targetDisplayID) {
        if (const auto screen = chooseScreen(m_targetDisplayID, std::nullopt)) {
            arrangeBackdrops(*screen);
            if (m_monitor.isPresentationAvailable()) {
                orderFrontRegardless();
            }
        }
    }
}

void FullScreenAlertController::closePresentation(bool restorePreviousWindow)
{
    const auto previous = m_previousWindow;
    const bool didActivate = m_didActivateForPresentation;

    m_gate.cancel();
    m_handler = nullptr;
    m_meetings.clear();
    m_safetyTimer.reset();
    if (m_panel) {
        m_panel->orderOut();
        m_panel.reset();
    }
    for (const auto& backdrop : m_backdrops) {
        backdrop->orderOut();
    }
    m_backdrops.clear();
    m_targetDisplayID.reset();
    m_previousWindow.reset();
    m_didActivateForPresentation = false;
    m_focusNotBefore.reset();
    m_presentationSafetyEnd.reset();

    // Only give focus back when the alert took it; if the user had already moved elsewhere, leave them there.
    if (restorePreviousWindow && didActivate && previous) {
        m_windowSystem.activate(*previous);
    }
}

bool FullScreenAlertController::requestFocus(bool activate)
{
    m_gate.cancel();
    AlertPanel* panel = m_panel.get();
    return m_gate.submit(m_focusNotBefore, guarded(m_self, [panel, activate](FullScreenAlertController& self) {
                             self.takeFocus(panel, activate);
                         }));
}

void FullScreenAlertController::takeFocus(AlertPanel* panel, bool activate)
{
    // The gate's action is cancelled whenever the panel is dropped, so a stale pointer never gets this far; the
    // comparison guards against a panel replaced without a cancel.
    if (!m_panel || m_panel.get() != panel || !m_monitor.isPresentationAvailable()) {
        return;
    }
    if (!activate && !m_windowSystem.isApplicationActive()) {
        return;
    }
    m_focusNotBefore.reset();
    m_panel->setAllowsKeyboardFocus(true);
    if (activate && !m_didActivateForPresentation) {
        if (auto foreign = m_windowSystem.frontmostForeignWindow()) {
            m_previousWindow = foreign;
        }
        m_didActivateForPresentation = true;
    }
    m_panel->makeKeyAndOrderFront();
    orderFrontRegardless();
    if (m_panel->isKeyWindow()) {
        m_panel->announceFocusedWindowChanged();
    }
}

void FullScreenAlertController::presentationAvailabilityDidChange(bool available)
{
    m_gate.cancel();
    if (!available) {
        // The alert stays pending and comes back with the display.
        m_focusNotBefore.reset();
        if (m_panel) {
            m_panel->setAllowsKeyboardFocus(false);
            m_panel->orderOut();
            for (const auto& backdrop : m_backdrops) {
                backdrop->orderOut();
            }
        }
        return;
    }
    refocusAfterReturn(true);
}

void FullScreenAlertController::applicationActiveDidChange(bool active)
{
    if (!active) {
        if (m_panel) {
            // The user chose to work elsewhere: closing the alert must not pull them back.
            m_gate.cancel();
            m_focusNotBefore.reset();
            m_panel->setAllowsKeyboardFocus(false);
            m_previousWindow.reset();
            m_didActivateForPresentation = false;
        }
        return;
    }
    if (m_monitor.isPresentationAvailable()) {
        refocusAfterReturn(false);
    }
}

void FullScreenAlertController::refocusAfterReturn(bool activate)
{
    const Date now = m_clock.now();
    if (activate) {
        m_focusNotBefore = now + focusDelayAfterReturn;
    }
    if (!m_handler || !m_panel || expireIfDue(now)) {
        return;
    }
    if (!activate) {
        m_focusNotBefore = now + focusDelayAfterReturn;
    }
    m_panel->setAllowsKeyboardFocus(false);
    orderFrontRegardless();
    if (!requestFocus(activate)) {
        m_windowSystem.announce(keyboardUnavailableAnnouncement);
    }
}

void FullScreenAlertController::screensDidChange()
{
    if (!m_panel) {
        return;
    }
    const auto screen = chooseScreen(m_targetDisplayID, m_windowSystem.activeDisplayID());
    if (!screen) {
        return;
    }
    m_panel->setScreen(*screen);
    arrangeBackdrops(*screen);
    // Never bring the alert back over a locked session or dark screens just because a display was plugged in.
    if (m_monitor.isPresentationAvailable()) {
        orderFrontRegardless();
    }
}

void FullScreenAlertController::panelWasPlaced(std::uint32_t displayID)
{
    if (!m_panel || m_targetDisplayID == displayID) {
        return;
    }
    m_targetDisplayID = displayID;
    if (const auto screen = chooseScreen(displayID, std::nullopt)) {
        arrangeBackdrops(*screen);
        if (m_monitor.isPresentationAvailable()) {
            orderFrontRegardless();
        }
    }
}

void FullScreenAlertController::deliver(FullScreenAlertAction action)
{
    auto handler = std::exchange(m_handler, nullptr);
    if (!handler) {
        return;
    }
    closePresentation(true);
    handler(std::move(action));
}

void FullScreenAlertController::escape()
{
    FullScreenAlertAction dismiss{FullScreenAlertAction::Dismiss{identities()}};
    deliver(std::move(dismiss));
}

bool FullScreenAlertController::expireIfDue(Date now)
{
    if (!m_handler || !m_presentationSafetyEnd || now < *m_presentationSafetyEnd) {
        return false;
    }
    std::vector<MeetingIdentity> ended;
    for (const auto& meeting : m_meetings) {
        if (meeting.endDate <= now) {
            ended.push_back(meeting.identity);
        }
    }
    if (ended.empty()) {
        ended = identities();
    }
    FullScreenAlertAction expired{FullScreenAlertAction::Expired{std::move(ended)}};
    deliver(std::move(expired));
    return true;
}

std::optional<AlertScreenDescriptor> FullScreenAlertController::chooseScreen(std::optional<std::uint32_t> preferred,
                                                                             std::optional<std::uint32_t> active) const
{
    const auto screens = m_windowSystem.screens();
    if (screens.empty()) {
        return std::nullopt;
    }
    for (const auto& candidate : {preferred, active}) {
        if (!candidate) {
            continue;
        }
        const auto found = std::find_if(screens.begin(), screens.end(), [&](const AlertScreenDescriptor& screen) {
            return screen.displayID == *candidate;
        });
        if (found != screens.end()) {
            return *found;
        }
    }
    return screens.front();
}

void FullScreenAlertController::arrangeBackdrops(const AlertScreenDescriptor& alertScreen)
{
    for (const auto& backdrop : m_backdrops) {
        backdrop->orderOut();
    }
    m_backdrops.clear();
    if (!m_showsOnAllDisplays) {
        return;
    }
    for (const auto& screen : m_windowSystem.screens()) {
        if (screen.displayID != alertScreen.displayID) {
            m_backdrops.push_back(m_windowSystem.createPanel(screen, AlertPanelContent{}));
        }
    }
}

void FullScreenAlertController::orderFrontRegardless()
{
    for (const auto& backdrop : m_backdrops) {
        backdrop->orderFrontRegardless();
    }
    if (m_panel) {
        m_panel->orderFrontRegardless();
    }
}

std::vector<MeetingIdentity> FullScreenAlertController::identities() const
{
    std::vector<MeetingIdentity> result;
    result.reserve(m_meetings.size());
    for (const auto& meeting : m_meetings) {
        result.push_back(meeting.identity);
    }
    return result;
}

} // namespace orvane
