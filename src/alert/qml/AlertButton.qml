// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls.Basic

// A button of the alert in one of its looks: "primary" (join), "secondary" (snooze), "plain" (exclude) or
// "dismiss".
Button {
    id: control

    required property AlertTheme theme
    property string kind: "secondary"
    property string iconName: ""
    property string hint: ""

    readonly property bool isPrimaryKind: kind === "primary"
    readonly property var horizontalPaddings: ({ primary: 16, secondary: 15, plain: 13, dismiss: 18 })

    font.pixelSize: isPrimaryKind ? 15 : 14
    font.weight: kind === "primary" || kind === "dismiss" ? Font.Bold : Font.DemiBold
    leftPadding: horizontalPaddings[kind]
    rightPadding: horizontalPaddings[kind]
    topPadding: isPrimaryKind ? 11 : 10
    bottomPadding: isPrimaryKind ? 11 : 10
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    opacity: down ? (kind === "secondary" ? 0.7 : 0.76) : 1

    Accessible.name: text
    Accessible.description: hint

    contentItem: Row {
        spacing: 8

        AlertIcon {
            anchors.verticalCenter: parent.verticalCenter
            visible: control.iconName !== ""
            name: control.iconName
            color: control.isPrimaryKind ? control.theme.deepest : control.theme.primaryText
            opacity: control.kind === "plain" ? 0.8 : 1
            size: 17
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: control.text
            font: control.font
            color: control.isPrimaryKind ? control.theme.deepest : control.theme.primaryText
            opacity: control.kind === "plain" ? 0.8 : 1
            Accessible.ignored: true
        }
    }

    background: Rectangle {
        radius: control.isPrimaryKind ? 11 : 10
        color: {
            const theme = control.theme
            switch (control.kind) {
            case "primary":
                return control.hovered ? Qt.lighter(theme.accent, 1.08) : theme.accent
            case "secondary":
                return theme.alpha(theme.primaryText, control.hovered ? 0.07 : 0)
            case "plain":
                return theme.alpha(theme.primaryText, control.hovered ? 0.1 : 0.06)
            default:
                return theme.alpha(theme.primaryText, control.hovered ? 0.17 : 0.11)
            }
        }
        border.width: control.kind === "secondary" ? (control.theme.increasedContrast ? 2 : 1) : 0
        border.color: control.theme.alpha(control.theme.primaryText, control.theme.increasedContrast ? 0.8 : 0.45)

        // The keyboard focus ring, outside the button so that it never covers the label.
        Rectangle {
            anchors.fill: parent
            anchors.margins: -4
            radius: parent.radius + 4
            color: "transparent"
            border.width: 2
            border.color: control.theme.accent
            visible: control.visualFocus
        }
    }
}
