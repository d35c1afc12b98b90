// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Window

// The content of the full-screen meeting alert. It fills its parent (the alert window's content item) and shows
// what `viewModel` (an AlertViewModel) holds; every text comes from the view model.
Item {
    id: root

    required property QtObject viewModel

    readonly property var texts: viewModel.texts
    readonly property bool compact: height < 700
    readonly property real blockSpacing: compact ? 22 : 34
    readonly property real verticalPadding: compact ? 24 : 42
    readonly property real horizontalPadding: Math.max(24, Math.min(88, width * 0.065))
    readonly property real contentWidth: Math.max(0, width - 2 * horizontalPadding)
    readonly property real cardSpacing: 18

    anchors.fill: parent
    // Keys that reach the scene as events rather than through Qt's shortcut map (a scene drawn into a surface of
    // Orvane's own on Wayland) still have their default action: the first meeting's link.
    focus: true
    Keys.onReturnPressed: root.viewModel.join(0)
    Keys.onEnterPressed: root.viewModel.join(0)

    AlertTheme {
        id: alertTheme

        increasedContrast: root.viewModel.increasedContrast
    }

    // The countdown ticks only while the alert can be seen.
    Binding {
        target: root.viewModel
        property: "active"
        value: root.visible && root.Window.window !== null && root.Window.window.visible
    }

    Shortcut {
        sequences: [StandardKey.Cancel]
        context: Qt.WindowShortcut
        onActivated: root.viewModel.dismiss()
    }

    AlertBackdrop {
        anchors.fill: parent
        theme: alertTheme
    }

    Column {
        id: content

        // Everything but the cards keeps its natural height; the cards get what is left and scroll within it.
        readonly property real fixedHeight: badge.height + headline.height + remindBlock.height
                                            + dismissButton.height + 4 * spacing

        width: root.contentWidth
        x: root.horizontalPadding
        y: Math.max(root.verticalPadding, (root.height - height) / 2)
        spacing: root.blockSpacing

        Rectangle {
            id: badge

            anchors.horizontalCenter: parent.horizontalCenter
            width: badgeRow.implicitWidth + 32
            height: badgeRow.implicitHeight + 18
            radius: height / 2
            color: alertTheme.alpha(alertTheme.accent, 0.12)
            border.width: 1
            border.color: alertTheme.alpha(alertTheme.accent, 0.35)

            Row {
                id: badgeRow

                anchors.centerIn: parent
                spacing: 9

                AlertIcon {
                    anchors.verticalCenter: parent.verticalCenter
                    name: "bell"
                    color: alertTheme.accent
                    size: 16
                }
                Text {
                    anchors.verticalCenter: parent.verticalCenter
                    text: root.texts.badge
                    color: alertTheme.accent
                    font.pixelSize: 13
                    font.weight: Font.Bold
                    font.letterSpacing: 1.8
                }
            }
        }

        Text {
            id: headline

            objectName: "headline"
            width: parent.width
            text: root.viewModel.headline
            color: alertTheme.primaryText
            font.pixelSize: root.compact ? 38 : 54
            font.weight: Font.ExtraBold
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }

        Item {
            id: cardArea

            readonly property bool single: root.viewModel.meetingCount === 1
            readonly property real maximumWidth: single ? 540 : 1120
            readonly property int columns: single ? 1 : Math.max(1, Math.floor((width + root.cardSpacing)
                                                                              / (420 + root.cardSpacing)))

            objectName: "cardArea"
            anchors.horizontalCenter: parent.horizontalCenter
            width: Math.min(maximumWidth, parent.width)
            height: Math.min(grid.contentHeight - root.cardSpacing,
                             Math.max(160, root.height - 2 * root.verticalPadding - content.fixedHeight))

            GridView {
                id: grid

                // The tallest card seen so far sets the row height (shorter cards sit at the top of their cell);
                // until one is built, an estimate keeps the view from building a card per few pixels.
                property real tallestCard: 0

                objectName: "meetingGrid"
                width: parent.width + root.cardSpacing
                height: parent.height
                clip: true
                interactive: contentHeight - root.cardSpacing > height
                boundsBehavior: Flickable.StopAtBounds
                cellWidth: width / cardArea.columns
                cellHeight: (tallestCard > 0 ? tallestCard : 260) + root.cardSpacing
                model: root.viewModel.meetings
                keyNavigationEnabled: false

                delegate: Item {
                    id: cell

                    required property int index
                    required property string title
                    required property string countdownText
                    required property string countdownAccessibleLabel
                    required property bool hasStarted
                    required property string timeRange
                    required property string location
                    required property bool hasLocation
                    required property bool isRecurring
                    required property bool hasLink
                    required property bool isPrimary
                    required property string excludeAccessibleName

                    // Keyboard focus on one of this card's buttons scrolls the card into view.
                    readonly property bool holdsFocus: {
                        for (let item = Window.activeFocusItem; item; item = item.parent) {
                            if (item === cell)
                                return true
                        }
                        return false
                    }

                    width: grid.cellWidth
                    height: grid.cellHeight
                    onHoldsFocusChanged: if (holdsFocus) grid.positionViewAtIndex(index, GridView.Contain)

                    MeetingCard {
                        width: cell.width - root.cardSpacing
                        height: implicitHeight
                        theme: alertTheme
                        viewModel: root.viewModel
                        meetingIndex: cell.index
                        title: cell.title
                        countdownText: cell.countdownText
                        countdownAccessibleLabel: cell.countdownAccessibleLabel
                        hasStarted: cell.hasStarted
                        timeRange: cell.timeRange
                        location: cell.location
                        hasLocation: cell.hasLocation
                        isRecurring: cell.isRecurring
                        hasLink: cell.hasLink
                        isPrimary: cell.isPrimary
                        excludeAccessibleName: cell.excludeAccessibleName

                        onImplicitHeightChanged: grid.tallestCard = Math.max(grid.tallestCard, implicitHeight)
                        Component.onCompleted: grid.tallestCard = Math.max(grid.tallestCard, implicitHeight)
                    }
                }
            }

            // A soft edge where more cards wait below.
            Rectangle {
                anchors.left: parent.left
                anchors.right: parent.right
                anchors.bottom: parent.bottom
                height: 40
                visible: grid.interactive && !grid.atYEnd
                gradient: Gradient {
                    GradientStop { position: 0; color: alertTheme.alpha(alertTheme.deepest, 0) }
                    GradientStop { position: 1; color: alertTheme.deepest }
                }
                Accessible.ignored: true
            }
        }

        Column {
            id: remindBlock

            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 12

            Text {
                anchors.horizontalCenter: parent.horizontalCenter
                text: root.texts.remindMeAgain
                color: alertTheme.secondaryText
                font.pixelSize: 12
                font.weight: Font.Bold
                font.letterSpacing: 1.4
            }

            Row {
                anchors.horizontalCenter: parent.horizontalCenter
                spacing: 10

                AlertButton {
                    objectName: "snoozeOneMinute"
                    theme: alertTheme
                    text: root.texts.oneMinute
                    hint: root.texts.oneMinuteHint
                    onClicked: root.viewModel.snooze("oneMinute")
                }
                AlertButton {
                    objectName: "snoozeFiveMinutes"
                    theme: alertTheme
                    text: root.texts.fiveMinutes
                    hint: root.texts.fiveMinutesHint
                    onClicked: root.viewModel.snooze("fiveMinutes")
                }
                AlertButton {
                    objectName: "snoozeUntilStart"
                    theme: alertTheme
                    text: root.texts.untilStart
                    hint: root.texts.untilStartHint
                    onClicked: root.viewModel.snooze("untilStart")
                }
            }
        }

        AlertButton {
            id: dismissButton

            objectName: "dismissButton"
            anchors.horizontalCenter: parent.horizontalCenter
            theme: alertTheme
            kind: "dismiss"
            text: root.texts.dismiss
            hint: root.texts.dismissHint
            onClicked: root.viewModel.dismiss()
        }
    }
}
