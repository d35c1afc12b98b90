// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick

// The alert's colours, shared by every part of the scene. Opaque RGB; translucency comes from alpha().
QtObject {
    readonly property color deepest: Qt.rgba(0.035, 0.047, 0.063, 1)
    readonly property color raised: Qt.rgba(0.075, 0.094, 0.118, 1)
    readonly property color primaryText: Qt.rgba(0.96, 0.95, 0.91, 1)
    readonly property color secondaryText: Qt.rgba(0.7, 0.72, 0.71, 1)
    readonly property color accent: Qt.rgba(0.16, 0.82, 0.73, 1)
    readonly property color warning: Qt.rgba(1.0, 0.4, 0.33, 1)

    // Stronger outlines when the user asked for more contrast.
    property bool increasedContrast: false

    function alpha(color, opacity) {
        return Qt.rgba(color.r, color.g, color.b, opacity)
    }
}
