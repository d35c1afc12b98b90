// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/linux/LauncherActivation.h"

#include "alert/linux/X11Ewmh.h"

#include <QGuiApplication>
#include <QWindow>

using namespace Qt::StringLiterals;

namespace orvane {

void activateWithLauncherToken(QWindow& window, const QString& token)
{
    if (QGuiApplication::platformName() == u"wayland"_s) {
        // Qt's Wayland platform hands this variable to xdg-activation with the next activation request.
        qputenv("XDG_ACTIVATION_TOKEN", token.toUtf8());
    }
    window.requestActivate();
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (QGuiApplication::platformName() == u"xcb"_s && x11 && x11->connection()) {
        X11Ewmh(x11->connection()).activateForLaunch(xcb_window_t(window.winId()), token.toUtf8());
    }
}

} // namespace orvane
