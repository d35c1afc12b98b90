// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Shapes

// The scene behind the alert: the deepest colour lit by two soft accent glows. Pure decoration.
Rectangle {
    id: backdrop

    required property AlertTheme theme

    color: theme.deepest
    Accessible.ignored: true

    component Glow: Shape {
        id: glow

        required property real centerX
        required property real centerY
        required property real radius
        required property real strength
        required property color tint

        anchors.fill: parent

        ShapePath {
            strokeWidth: -1
            fillGradient: RadialGradient {
                centerX: glow.centerX
                centerY: glow.centerY
                centerRadius: glow.radius
                focalX: glow.centerX
                focalY: glow.centerY
                GradientStop { position: 0; color: Qt.rgba(glow.tint.r, glow.tint.g, glow.tint.b, glow.strength) }
                GradientStop { position: 1; color: Qt.rgba(glow.tint.r, glow.tint.g, glow.tint.b, 0) }
            }
            startX: 0
            startY: 0
            PathLine { x: glow.width; y: 0 }
            PathLine { x: glow.width; y: glow.height }
            PathLine { x: 0; y: glow.height }
            PathLine { x: 0; y: 0 }
        }
    }

    Glow {
        centerX: 0
        centerY: 0
        radius: 650
        strength: 0.2
        tint: backdrop.theme.accent
    }

    Glow {
        centerX: width
        centerY: height
        radius: 600
        strength: 0.14
        tint: backdrop.theme.accent
    }

    // A faint sheen from the top, so that the dark reads as a surface rather than a void.
    Rectangle {
        anchors.fill: parent
        opacity: 0.025
        gradient: Gradient {
            GradientStop { position: 0; color: backdrop.theme.primaryText }
            GradientStop { position: 1; color: "transparent" }
        }
    }

    // A soft light behind the headline.
    Item {
        width: 520
        height: 290
        x: (backdrop.width - width) / 2
        y: (backdrop.height - height) / 2 - 230

        Shape {
            width: 520
            height: 520
            transform: Scale { yScale: 290 / 520 }

            ShapePath {
                strokeWidth: -1
                fillGradient: RadialGradient {
                    centerX: 260
                    centerY: 260
                    centerRadius: 260
                    focalX: 260
                    focalY: 260
                    GradientStop { position: 0; color: backdrop.theme.alpha(backdrop.theme.accent, 0.07) }
                    GradientStop { position: 1; color: backdrop.theme.alpha(backdrop.theme.accent, 0) }
                }
                startX: 0
                startY: 0
                PathLine { x: 520; y: 0 }
                PathLine { x: 520; y: 520 }
                PathLine { x: 0; y: 520 }
                PathLine { x: 0; y: 0 }
            }
        }
    }
}
