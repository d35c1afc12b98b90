// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

class QWindow;

namespace orvane {

/// Activates a shown `window` with the token a launcher gave for this activation, the only way a desktop lets a
/// program that is not in front raise a window over the user's work. On Wayland the token is an xdg-activation
/// token that Qt hands to the compositor; on X11 (and XWayland) it is a startup-notification id, whose launch time
/// the window manager checks.
void activateWithLauncherToken(QWindow& window, const QString& token);

} // namespace orvane
