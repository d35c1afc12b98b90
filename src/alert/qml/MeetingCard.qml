// SPDX-License-Identifier: GPL-3.0-or-later
import QtQml
import QtQuick
import QtQuick.Controls.Basic

// One meeting of the alert: countdown, title, time, place and what can be done about it.
Rectangle {
    id: card

    required property AlertTheme theme
    required property QtObject viewModel
    required property int meetingIndex
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

    readonly property var texts: viewModel.texts

    objectName: "card_" + meetingIndex
    implicitHeight: content.implicitHeight + 2 * content.padding
    radius: 24
    color: theme.raised
    border.width: theme.increasedContrast ? 3 : 2
    border.color: theme.alpha(theme.accent, theme.increasedContrast ? 0.7 : 0.22)

    Accessible.role: Accessible.Grouping
    Accessible.name: title

    Column {
        id: content

        readonly property real padding: 24

        x: padding
        y: padding
        width: card.width - 2 * padding
        spacing: 20

        Column {
            width: parent.width
            spacing: 10

            Row {
                spacing: 10

                Text {
                    objectName: "countdown_" + card.meetingIndex
                    text: card.countdownText
                    color: card.hasStarted ? card.theme.warning : card.theme.accent
                    font.pixelSize: 20
                    font.weight: Font.ExtraBold
                    Accessible.role: Accessible.StaticText
                    Accessible.name: card.countdownAccessibleLabel
                }
                AlertIcon {
                    anchors.verticalCenter: parent.verticalCenter
                    visible: card.isRecurring
                    name: "repeat"
                    color: card.theme.accent
                    size: 18
                    Accessible.role: Accessible.Graphic
                    Accessible.name: card.texts.recurringMeeting
                }
            }

            Text {
                objectName: "title_" + card.meetingIndex
                // Empty while the screen is shared: the card then says nothing about the meeting.
                visible: text !== ""
                width: parent.width
                text: card.title
                color: card.theme.primaryText
                font.pixelSize: 26
                font.weight: Font.Bold
                wrapMode: Text.Wrap
                maximumLineCount: 3
                elide: Text.ElideRight
                Accessible.role: Accessible.Heading
                Accessible.name: text
            }

            Column {
                width: parent.width
                spacing: 6

                Row {
                    spacing: 8
                    visible: card.timeRange !== ""

                    AlertIcon {
                        anchors.verticalCenter: parent.verticalCenter
                        name: "clock"
                        color: card.theme.secondaryText
                        size: 16
                    }
                    Text {
                        text: card.timeRange
                        color: card.theme.secondaryText
                        font.pixelSize: 15
                        font.weight: Font.Medium
                    }
                }
                Row {
                    width: parent.width
                    spacing: 8
                    visible: card.hasLocation

                    AlertIcon {
                        anchors.verticalCenter: parent.verticalCenter
                        name: "map-pin"
                        color: card.theme.secondaryText
                        size: 16
                    }
                    Text {
                        width: parent.width - 24
                        text: card.location
                        color: card.theme.secondaryText
                        font.pixelSize: 15
                        font.weight: Font.Medium
                        elide: Text.ElideRight
                    }
                }
            }
        }

        Flow {
            width: parent.width
            spacing: 10

            AlertButton {
                objectName: "joinButton_" + card.meetingIndex
                visible: card.hasLink
                theme: card.theme
                kind: "primary"
                iconName: "video"
                text: card.texts.join
                hint: card.texts.joinHint
                onClicked: card.viewModel.join(card.meetingIndex)
                // The first meeting's link is the alert's default action.
                Shortcut {
                    sequences: ["Return", "Enter"]
                    context: Qt.WindowShortcut
                    enabled: card.isPrimary && card.hasLink
                    onActivated: card.viewModel.join(card.meetingIndex)
                }
            }

            AlertButton {
                objectName: "excludeButton_" + card.meetingIndex
                visible: !card.isRecurring
                theme: card.theme
                kind: "plain"
                iconName: "bell-slash"
                text: card.texts.excludeThisMeeting
                hint: card.texts.excludeThisMeetingHint
                onClicked: card.viewModel.exclude(card.meetingIndex, "occurrence")
            }

            AlertButton {
                id: excludeMenuButton

                objectName: "excludeMenuButton_" + card.meetingIndex
                visible: card.isRecurring
                theme: card.theme
                kind: "plain"
                iconName: "bell-slash"
                text: card.texts.excludeThisMeeting + "  \u25BE"
                hint: card.texts.excludeMenuHint
                Accessible.name: card.excludeAccessibleName
                Accessible.role: Accessible.ButtonMenu
                onClicked: excludeMenu.open()

                Menu {
                    id: excludeMenu

                    objectName: "excludeMenu_" + card.meetingIndex
                    y: excludeMenuButton.height + 6
                    padding: 6

                    background: Rectangle {
                        implicitWidth: 220
                        radius: 12
                        color: card.theme.raised
                        border.width: 1
                        border.color: card.theme.alpha(card.theme.primaryText, 0.18)
                    }

                    Instantiator {
                        model: card.viewModel.exclusionOptions

                        delegate: MenuItem {
                            id: option

                            required property var modelData

                            objectName: "excludeOption_" + modelData.scope
                            text: modelData.title
                            onTriggered: card.viewModel.exclude(card.meetingIndex, modelData.scope)

                            contentItem: Text {
                                text: option.text
                                color: card.theme.primaryText
                                font.pixelSize: 14
                                font.weight: Font.DemiBold
                                verticalAlignment: Text.AlignVCenter
                            }
                            background: Rectangle {
                                radius: 8
                                color: option.highlighted ? card.theme.alpha(card.theme.accent, 0.18) : "transparent"
                            }
                        }

                        onObjectAdded: (index, object) => excludeMenu.insertItem(index, object)
                        onObjectRemoved: (index, object) => excludeMenu.removeItem(object)
                    }
                }
            }
        }
    }
}
