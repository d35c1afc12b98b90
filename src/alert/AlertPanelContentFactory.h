// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertWindowSystem.h"

#include <functional>

class QQmlEngine;
class QQuickWindow;

namespace orvane {

class Clock;

/// Fills an alert panel's window: the alert view with its view model for the panel with controls, the backdrop
/// alone for the panels that cover the other displays. The engine and the clock must outlive every panel; the
/// view model lives as long as the panel's window.
std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(QQmlEngine& engine,
                                                                                          const Clock& clock);

} // namespace orvane
