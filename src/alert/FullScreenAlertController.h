// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"
#include "alert/FullScreenAlertAction.h"
#include "domain/Date.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace orvane {

class AlertPresentationSessionMonitoring;
class AlertTimerScheduling;
class AlertTimerToken;
class Clock;
class SecureEventInputActivationGate;

/// Puts due meetings in front of the user: a panel covering one display (and, if asked, backdrops over the others),
/// above every other window, that takes keyboard focus only when it is safe and gives it back afterwards. Each
/// presentation ends with exactly one FullScreenAlertAction. Main thread only.
class FullScreenAlertController {
public:
    using ActionHandler = std::function<void(FullScreenAlertAction)>;

    /// Spoken when the alert shows but cannot take the keyboard yet.
    static const QString keyboardUnavailableAnnouncement;
    /// How long after the display comes back (or Orvane is reactivated) before the alert may take focus, so that a
    /// keystroke meant for something else does not answer it.
    static constexpr double focusDelayAfterReturn = 1.0;

    /// All collaborators must outlive the controller.
    FullScreenAlertController(AlertPresentationSessionMonitoring& monitor, AlertWindowSystem& windowSystem,
                              Clock& clock, AlertTimerScheduling& timers, SecureEventInputActivationGate& gate);
    ~FullScreenAlertController();

    FullScreenAlertController(const FullScreenAlertController&) = delete;
    FullScreenAlertController& operator=(const FullScreenAlertController&) = delete;

    /// Shows `meetings` and returns true when an alert is now on screen. Returns false, changing nothing, when there
    /// is nothing to show or the display cannot take an alert now. An alert already showing is replaced and its
    /// handler never called. A safety end not later than now yields `expired` at once, without a panel.
    bool present(std::vector<MeetingOccurrence> meetings, std::optional<Date> safetyEnd, ActionHandler handler);
    /// Whether an unanswered alert is on screen (or hidden while the display is unavailable).
    bool isPresenting() const;
    /// Closes the alert without an answer (its meetings were settled elsewhere): the handler is not called, and focus
    /// goes back to where the alert took it from.
    void closeWithoutAction();

    /// Whether backdrops cover every display other than the alert's own.
    void setShowsOnAllDisplays(bool shows);
    bool showsOnAllDisplays() const { return m_showsOnAllDisplays; }

    /// The meetings of the alert showing now; empty when idle.
    const std::vector<MeetingOccurrence>& meetings() const { return m_meetings; }
    /// The display the alert belongs to.
    std::optional<std::uint32_t> targetDisplayID() const { return m_targetDisplayID; }

private:
    void closePresentation(bool restorePreviousWindow);
    bool requestFocus(bool activate);
    void takeFocus(AlertPanel* panel, bool activate);
    void presentationAvailabilityDidChange(bool available);
    void applicationActiveDidChange(bool active);
    void screensDidChange();
    void panelWasPlaced(std::uint32_t displayID);
    void deliver(FullScreenAlertAction action);
    void escape();
    bool expireIfDue(Date now);
    std::optional<AlertScreenDescriptor> chooseScreen(std::optional<std::uint32_t> preferred,
                                                      std::optional<std::uint32_t> active) const;
    void arrangeBackdrops(const AlertScreenDescriptor& alertScreen);
    void orderFrontRegardless();
    void refocusAfterReturn(bool activate);
    std::vector<MeetingIdentity> identities() const;

    AlertPresentationSessionMonitoring& m_monitor;
    AlertWindowSystem& m_windowSystem;
    Clock& m_clock;
    AlertTimerScheduling& m_timers;
    SecureEventInputActivationGate& m_gate;

    std::unique_ptr<AlertPanel> m_panel;
    std::vector<std::unique_ptr<AlertPanel>> m_backdrops;
    std::unique_ptr<AlertTimerToken> m_safetyTimer;
    std::vector<MeetingOccurrence> m_meetings;
    ActionHandler m_handler;
    std::optional<std::uint32_t> m_targetDisplayID;
    std::optional<AlertForeignWindow> m_previousWindow;
    bool m_didActivateForPresentation = false;
    std::optional<Date> m_focusNotBefore;
    std::optional<Date> m_presentationSafetyEnd;
    bool m_showsOnAllDisplays = false;
    /// Lets callbacks that outlive a presentation (or the controller) find out that they are stale.
    std::shared_ptr<FullScreenAlertController*> m_self;
};

} // namespace orvane
