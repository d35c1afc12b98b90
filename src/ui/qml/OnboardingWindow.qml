// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The first-run window. Every text and decision comes from `viewModel` (an OnboardingViewModel); this file only lays
// out the current step.
Window {
    id: window

    required property QtObject viewModel
    readonly property var texts: viewModel.texts

    title: texts.windowTitle
    width: 620
    height: 620
    minimumWidth: 520
    minimumHeight: 520
    color: palette.window

    component FeatureRow: RowLayout {
        property alias symbol: rowIcon.name
        property alias heading: rowTitle.text
        property alias text: rowText.text

        spacing: 14
        Layout.fillWidth: true

        SymbolIcon {
            id: rowIcon
            size: 28
            Layout.alignment: Qt.AlignTop
        }
        ColumnLayout {
            spacing: 2
            Layout.fillWidth: true
            Label {
                id: rowTitle
                font.bold: true
                Layout.fillWidth: true
                wrapMode: Text.Wrap
            }
            Label {
                id: rowText
                Layout.fillWidth: true
                wrapMode: Text.Wrap
            }
        }
    }

    component Note: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        leftPadding: 12
        opacity: 0.8
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 18

        // Header: symbol, product name, step counter.
        RowLayout {
            spacing: 12
            Layout.fillWidth: true
            SymbolIcon {
                name: "clock-alert"
                size: 36
            }
            ColumnLayout {
                spacing: 0
                Label {
                    objectName: "productName"
                    text: window.texts.productName
                    font.pixelSize: 22
                    font.bold: true
                }
                Label {
                    objectName: "stepTitle"
                    text: window.viewModel.stepTitle
                }
            }
            Item {
                Layout.fillWidth: true
            }
            Label {
                objectName: "stepCounter"
                text: window.viewModel.stepCounter
                visible: text !== ""
                opacity: 0.7
            }
        }

        Label {
            objectName: "errorText"
            text: window.viewModel.errorText
            visible: text !== ""
            color: "#c0392b"
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }

        StackLayout {
            objectName: "steps"
            currentIndex: window.viewModel.step
            Layout.fillWidth: true
            Layout.fillHeight: true

            // Welcome.
            ColumnLayout {
                spacing: 16
                Label {
                    text: window.texts.introduction
                    wrapMode: Text.Wrap
                    Layout.fillWidth: true
                }
                FeatureRow {
                    symbol: "calendar"
                    heading: window.texts.sourcesTitle
                    text: window.texts.sourcesText
                }
                FeatureRow {
                    symbol: "lock-shield"
                    heading: window.texts.privacyTitle
                    text: window.texts.privacyText
                }
                FeatureRow {
                    symbol: "eye"
                    heading: window.texts.readOnlyTitle
                    text: window.texts.readOnlyText
                }
                Item {
                    Layout.fillHeight: true
                }
                Button {
                    objectName: "continueButton"
                    text: window.texts.continueButton
                    highlighted: true
                    Layout.alignment: Qt.AlignRight
                    onClicked: window.viewModel.continueFromWelcome()
                }
            }

            // Calendar access.
            ColumnLayout {
                spacing: 12
                RowLayout {
                    spacing: 14
                    Layout.fillWidth: true
                    SymbolIcon {
                        name: window.viewModel.accessIsProblem ? "warning" : "calendar-plus"
                        color: window.viewModel.accessIsProblem ? "#d68910" : palette.windowText
                        size: 36
                        Layout.alignment: Qt.AlignTop
                    }
                    Label {
                        objectName: "accessText"
                        text: window.viewModel.accessText
                        wrapMode: Text.Wrap
                        Layout.fillWidth: true
                    }
                }
                Note {
                    text: "• " + window.texts.noteReads
                }
                Note {
                    text: "• " + window.texts.noteModifies
                }
                Note {
                    text: "• " + window.texts.noteRevoke
                }
                Item {
                    Layout.fillHeight: true
                }
                RowLayout {
                    Layout.fillWidth: true
                    Button {
                        objectName: "backButton"
                        text: window.texts.backButton
                        onClicked: window.viewModel.back()
                    }
                    Item {
                        Layout.fillWidth: true
                    }
                    Button {
                        objectName: "checkAgainButton"
                        text: window.texts.checkAgainButton
                        onClicked: window.viewModel.checkAgain()
                    }
                    Button {
                        objectName: "chooseCalendarsButton"
                        text: window.texts.chooseCalendarsButton
                        visible: window.viewModel.canChooseCalendars
                        highlighted: true
                        onClicked: window.viewModel.chooseCalendars()
                    }
                    Button {
                        objectName: "resumeButton"
                        text: window.texts.resumeButton
                        visible: window.viewModel.offersResume
                        highlighted: true
                        onClicked: window.viewModel.resume()
                    }
                }
            }

            // Choose calendars.
            ColumnLayout {
                spacing: 10
                Label {
                    text: window.texts.calendarsTitle
                    font.bold: true
                    font.pixelSize: 16
                }
                Label {
                    text: window.texts.calendarsSubtitle
                    wrapMode: Text.Wrap
                    Layout.fillWidth: true
                }
                RowLayout {
                    visible: window.viewModel.hasCalendars
                    Layout.fillWidth: true
                    Label {
                        objectName: "selectionCounter"
                        text: window.viewModel.selectionCounter
                        Layout.fillWidth: true
                    }
                    Button {
                        objectName: "selectAllButton"
                        text: window.texts.selectAllButton
                        flat: true
                        onClicked: window.viewModel.selectAll()
                    }
                    Button {
                        objectName: "clearButton"
                        text: window.texts.clearButton
                        flat: true
                        onClicked: window.viewModel.clearSelection()
                    }
                }
                ScrollView {
                    visible: window.viewModel.hasCalendars
                    clip: true
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    contentWidth: availableWidth

                    ColumnLayout {
                        width: parent.width
                        spacing: 4
                        Repeater {
                            model: window.viewModel.calendarGroups
                            delegate: ColumnLayout {
                                required property var modelData
                                spacing: 2
                                Layout.fillWidth: true
                                Label {
                                    text: modelData.title
                                    font.bold: true
                                    topPadding: 8
                                }
                                Repeater {
                                    model: modelData.calendars
                                    delegate: Switch {
                                        required property var modelData
                                        text: modelData.title
                                        checked: modelData.selected
                                        Accessible.description: window.texts.calendarSwitchHint
                                        Layout.fillWidth: true
                                        onToggled: window.viewModel.setCalendarSelected(modelData.identifier, checked)
                                    }
                                }
                            }
                        }
                    }
                }
                // No calendars yet.
                ColumnLayout {
                    objectName: "noCalendars"
                    visible: !window.viewModel.hasCalendars
                    spacing: 10
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    SymbolIcon {
                        name: "calendar-alert"
                        size: 40
                        Layout.alignment: Qt.AlignHCenter
                    }
                    Label {
                        text: window.texts.noCalendarsTitle
                        font.bold: true
                        Layout.alignment: Qt.AlignHCenter
                    }
                    Label {
                        text: window.texts.noCalendarsText
                        wrapMode: Text.Wrap
                        horizontalAlignment: Text.AlignHCenter
                        Layout.fillWidth: true
                    }
                    RowLayout {
                        spacing: 8
                        Layout.alignment: Qt.AlignHCenter
                        Button {
                            objectName: "openCalendarButton"
                            text: window.texts.openCalendarButton
                            onClicked: window.viewModel.openCalendarApplication()
                        }
                        Button {
                            objectName: "connectButton"
                            visible: window.viewModel.accounts !== null && window.viewModel.accounts.supported
                            text: window.texts.connectButton
                            onClicked: connectSheet.open()
                        }
                    }
                    Item {
                        Layout.fillHeight: true
                    }
                }
                RowLayout {
                    Layout.fillWidth: true
                    Button {
                        text: window.texts.backButton
                        onClicked: window.viewModel.back()
                    }
                    Button {
                        objectName: "refreshButton"
                        text: window.texts.refreshButton
                        onClicked: window.viewModel.refresh()
                    }
                    Item {
                        Layout.fillWidth: true
                    }
                    Button {
                        objectName: "finishWithoutButton"
                        text: window.texts.finishWithoutButton
                        onClicked: finishWithoutDialog.open()
                    }
                    Button {
                        objectName: "finishSetupButton"
                        text: window.texts.finishSetupButton
                        enabled: window.viewModel.selectedCount > 0
                        highlighted: true
                        onClicked: window.viewModel.finishSetup()
                    }
                }
            }

            // Complete.
            ColumnLayout {
                spacing: 14
                Item {
                    Layout.fillHeight: true
                }
                SymbolIcon {
                    name: "check-circle"
                    color: "#27ae60"
                    size: 56
                    Layout.alignment: Qt.AlignHCenter
                }
                Label {
                    objectName: "completeTitle"
                    text: window.viewModel.completeTitle
                    font.bold: true
                    font.pixelSize: 20
                    Layout.alignment: Qt.AlignHCenter
                }
                Label {
                    text: window.texts.completeNote
                    wrapMode: Text.Wrap
                    horizontalAlignment: Text.AlignHCenter
                    Layout.fillWidth: true
                }
                Item {
                    Layout.fillHeight: true
                }
                Button {
                    objectName: "doneButton"
                    text: window.texts.doneButton
                    highlighted: true
                    Layout.alignment: Qt.AlignRight
                    onClicked: window.viewModel.done()
                }
            }
        }
    }

    Dialog {
        id: finishWithoutDialog

        objectName: "finishWithoutDialog"
        title: window.texts.finishWithoutTitle
        modal: true
        anchors.centerIn: parent
        width: Math.min(window.width - 48, 420)

        Label {
            text: window.texts.finishWithoutMessage
            wrapMode: Text.Wrap
            width: parent.width
        }

        footer: DialogButtonBox {
            Button {
                text: window.texts.cancelButton
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                text: window.texts.finishWithoutConfirmButton
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }

        onAccepted: window.viewModel.finishWithoutCalendars()
    }

    Dialog {
        id: connectSheet

        objectName: "connectSheet"
        title: window.texts.connectSheetTitle
        modal: true
        anchors.centerIn: parent
        width: Math.min(window.width - 48, 560)

        ColumnLayout {
            width: parent.width
            spacing: 12

            Label {
                text: window.texts.connectSheetNote
                wrapMode: Text.Wrap
                opacity: 0.8
                Layout.fillWidth: true
            }
            Loader {
                active: connectSheet.visible && window.viewModel.accounts !== null
                Layout.fillWidth: true
                sourceComponent: ConnectedAccountsControls {
                    accounts: window.viewModel.accounts
                }
            }
        }

        footer: DialogButtonBox {
            Button {
                text: window.texts.doneButton
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }

        // The calendars of an account connected here are offered at once.
        onAccepted: window.viewModel.refresh()
    }
}
