// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <functional>

class QQuickWindow;

namespace orvane {

class AlertPrivacy;
class Clock;

/// Fills an alert panel's window: the alert view with its view model for the panel with controls, the backdrop
/// alone for the panels that cover the other displays. The QML engine is made on the first alert, not at start-up:
/// Orvane waits in the tray far more than it alerts. The clock must outlive every panel; a view model lives as long
/// as its panel's window. With `privacy` (which must outlive every panel too) the cards keep their meetings' details to
/// themselves whenever it says so.
std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(
    const Clock& clock, const AlertPrivacy* privacy = nullptr);

} // namespace orvane
