// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <functional>

class QQuickWindow;

namespace orvane {

class Clock;

/// Fills an alert panel's window: the alert view with its view model for the panel with controls, the backdrop
/// alone for the panels that cover the other displays. The QML engine is made on the first alert, not at start-up:
/// Orvane waits in the tray far more than it alerts. The clock must outlive every panel; a view model lives as long
/// as its panel's window.
std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(const Clock& clock);

} // namespace orvane
