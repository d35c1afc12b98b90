// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The settings window: a sidebar of sections and the chosen section's page. Every text, value and decision comes
// from `viewModel` (a SettingsViewModel); this file only lays them out. The page order follows the sections' numbers.
Window {
    id: window

    required property QtObject viewModel
    readonly property var texts: viewModel.texts
    readonly property color warningColor: "#d68910"
    readonly property color errorColor: "#c0392b"

    title: texts.windowTitle
    width: 820
    height: 600
    minimumWidth: 720
    minimumHeight: 520
    color: palette.window

    // A scrolling page with a heading; its content is laid out in one column.
    component Page: ScrollView {
        id: page

        default property alias content: column.data
        property alias heading: headingLabel.text

        clip: true
        padding: 24
        contentWidth: availableWidth

        ColumnLayout {
            id: column

            width: page.availableWidth
            spacing: 10

            Label {
                id: headingLabel

                visible: text !== ""
                font.bold: true
                font.pixelSize: 20
                Layout.bottomMargin: 4
            }
        }
    }

    component SectionTitle: Label {
        font.bold: true
        topPadding: 6
        Layout.fillWidth: true
        wrapMode: Text.Wrap
    }

    component Note: Label {
        Layout.fillWidth: true
        wrapMode: Text.Wrap
        opacity: 0.75
    }

    component Separator: Rectangle {
        Layout.fillWidth: true
        Layout.topMargin: 6
        Layout.bottomMargin: 6
        implicitHeight: 1
        color: palette.mid
        opacity: 0.5
    }

    component EmptyState: ColumnLayout {
        property alias heading: emptyTitle.text
        property alias text: emptyText.text
        property alias symbol: emptyIcon.name

        spacing: 8
        Layout.fillWidth: true
        Layout.topMargin: 24

        SymbolIcon {
            id: emptyIcon
            size: 40
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            id: emptyTitle
            font.bold: true
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            id: emptyText
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            Layout.fillWidth: true
        }
    }

    RowLayout {
        anchors.fill: parent
        spacing: 0

        // Sidebar.
        Rectangle {
            color: Qt.darker(palette.window, 1.06)
            Layout.fillHeight: true
            Layout.preferredWidth: 210

            ColumnLayout {
                anchors.fill: parent
                anchors.margins: 12
                spacing: 2

                RowLayout {
                    spacing: 8
                    Layout.bottomMargin: 12
                    Layout.leftMargin: 4
                    SymbolIcon {
                        name: "clock-alert"
                        size: 28
                    }
                    Label {
                        text: "Orvane"
                        font.pixelSize: 18
                        font.bold: true
                    }
                }
                Repeater {
                    model: window.viewModel.sections
                    delegate: ItemDelegate {
                        id: entry

                        required property var modelData

                        objectName: "section" + modelData.section
                        text: modelData.title
                        highlighted: modelData.section === window.viewModel.section
                        Layout.fillWidth: true
                        Accessible.role: Accessible.PageTab
                        onClicked: window.viewModel.section = modelData.section

                        background: Rectangle {
                            radius: 4
                            color: entry.highlighted ? palette.highlight
                                                     : entry.hovered ? Qt.rgba(0, 0, 0, 0.06) : "transparent"
                        }
                    }
                }
                Item {
                    Layout.fillHeight: true
                }
            }
        }

        ColumnLayout {
            spacing: 0
            Layout.fillWidth: true
            Layout.fillHeight: true

            Label {
                objectName: "errorText"
                text: window.viewModel.errorText
                visible: text !== ""
                color: window.errorColor
                wrapMode: Text.Wrap
                topPadding: 16
                leftPadding: 24
                rightPadding: 24
                Layout.fillWidth: true
                Accessible.role: Accessible.AlertMessage
            }

            StackLayout {
                objectName: "pages"
                currentIndex: window.viewModel.section
                Layout.fillWidth: true
                Layout.fillHeight: true

                // General.
                Page {
                    objectName: "generalPage"
                    heading: window.texts.generalTitle

                    SectionTitle {
                        text: window.texts.leadTimeTitle
                    }
                    RowLayout {
                        spacing: 10
                        SpinBox {
                            id: leadTime

                            objectName: "leadTimeSpinBox"
                            from: 0
                            to: window.viewModel.maximumLeadTimeMinutes
                            value: window.viewModel.leadTimeMinutes
                            editable: true
                            Accessible.name: window.texts.leadTimeTitle
                            onValueModified: window.viewModel.setLeadTimeMinutes(value)

                            // Drawn here rather than by the style: Qt 6.4's styled arrows are images that outlive
                            // the engine (LeakSanitizer reports them).
                            component Step: Label {
                                required property bool possible

                                x: leadTime.mirrored ? 0 : leadTime.width - width
                                width: 22
                                height: leadTime.height / 2
                                horizontalAlignment: Text.AlignHCenter
                                verticalAlignment: Text.AlignVCenter
                                font.pixelSize: 14
                                font.bold: true
                                opacity: possible ? 1 : 0.35
                            }
                            up.indicator: Step {
                                text: "+"
                                possible: leadTime.value < leadTime.to
                            }
                            down.indicator: Step {
                                y: leadTime.height / 2
                                text: "\u2212"
                                possible: leadTime.value > leadTime.from
                            }
                        }
                        Label {
                            text: window.texts.leadTimeUnit
                        }
                    }
                    Note {
                        objectName: "leadTimeSummary"
                        text: window.viewModel.leadTimeSummary
                    }

                    Separator {}
                    SectionTitle {
                        text: window.texts.eligibilityTitle
                    }
                    Repeater {
                        model: window.viewModel.eligibilityOptions
                        delegate: RadioButton {
                            required property string modelData
                            required property int index

                            objectName: "eligibility" + index
                            text: modelData
                            checked: index === window.viewModel.eligibilityMode
                            onClicked: window.viewModel.setEligibilityModeIndex(index)
                        }
                    }
                    Note {
                        text: window.texts.eligibilityExplanation
                    }

                    Separator {}
                    Switch {
                        objectName: "launchAtLoginSwitch"
                        text: window.texts.launchAtLoginTitle
                        checked: window.viewModel.launchAtLoginOn
                        enabled: window.viewModel.launchAtLoginAvailable
                        Accessible.description: window.texts.launchAtLoginHint
                        onToggled: window.viewModel.setLaunchAtLogin(checked)
                    }
                    Note {
                        objectName: "launchAtLoginNote"
                        text: window.viewModel.launchAtLoginNote
                        visible: text !== ""
                    }
                    Label {
                        objectName: "launchAtLoginError"
                        text: window.viewModel.launchAtLoginError
                        visible: text !== ""
                        color: window.errorColor
                        wrapMode: Text.Wrap
                        Layout.fillWidth: true
                    }

                    Switch {
                        objectName: "allDisplaysSwitch"
                        text: window.texts.allDisplaysTitle
                        checked: window.viewModel.showsOnAllDisplays
                        Accessible.description: window.texts.allDisplaysHint
                        onToggled: window.viewModel.setShowsOnAllDisplays(checked)
                    }
                    Note {
                        text: window.texts.allDisplaysHint
                    }

                    Separator {}
                    RowLayout {
                        spacing: 12
                        Layout.fillWidth: true
                        Button {
                            objectName: "testAlertButton"
                            text: window.texts.testAlertButton
                            Accessible.description: window.texts.testAlertHint
                            onClicked: window.viewModel.showTestAlert()
                        }
                        Note {
                            text: window.texts.testAlertHint
                        }
                    }
                }

                // Calendars.
                Page {
                    objectName: "calendarsPage"
                    heading: window.texts.calendarsTitle

                    Note {
                        text: window.texts.calendarsSubtitle
                    }
                    RowLayout {
                        Layout.fillWidth: true
                        Label {
                            objectName: "selectionCounter"
                            text: window.viewModel.selectionCounter
                            visible: window.viewModel.hasCalendars
                            Layout.fillWidth: true
                        }
                        Item {
                            visible: !window.viewModel.hasCalendars
                            Layout.fillWidth: true
                        }
                        Button {
                            objectName: "selectAllButton"
                            text: window.texts.selectAllButton
                            visible: window.viewModel.hasCalendars
                            flat: true
                            onClicked: window.viewModel.selectAll()
                        }
                        Button {
                            objectName: "clearButton"
                            text: window.texts.clearButton
                            visible: window.viewModel.hasCalendars
                            flat: true
                            onClicked: window.viewModel.clearSelection()
                        }
                        Button {
                            objectName: "refreshButton"
                            text: window.texts.refreshButton
                            onClicked: window.viewModel.refresh()
                        }
                    }
                    Repeater {
                        model: window.viewModel.calendarGroups
                        delegate: ColumnLayout {
                            required property var modelData

                            spacing: 2
                            Layout.fillWidth: true
                            Label {
                                text: modelData.title
                                font.bold: true
                                topPadding: 6
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
                    EmptyState {
                        objectName: "noCalendars"
                        visible: !window.viewModel.hasCalendars
                        symbol: "calendar-alert"
                        heading: window.texts.noCalendarsTitle
                        text: window.texts.noCalendarsText
                    }

                    // Sources that could not deliver their meetings.
                    ColumnLayout {
                        objectName: "sourceHealthIssues"
                        visible: window.viewModel.sourceHealthIssues.length > 0
                        spacing: 8
                        Layout.fillWidth: true
                        Separator {}
                        SectionTitle {
                            text: window.texts.healthTitle
                        }
                        Repeater {
                            model: window.viewModel.sourceHealthIssues
                            delegate: RowLayout {
                                required property var modelData

                                spacing: 12
                                Layout.fillWidth: true
                                SymbolIcon {
                                    name: "warning"
                                    color: window.warningColor
                                    size: 24
                                    Layout.alignment: Qt.AlignTop
                                }
                                ColumnLayout {
                                    spacing: 2
                                    Layout.fillWidth: true
                                    Label {
                                        text: modelData.name
                                        font.bold: true
                                        Layout.fillWidth: true
                                        wrapMode: Text.Wrap
                                    }
                                    Label {
                                        text: modelData.message
                                        Layout.fillWidth: true
                                        wrapMode: Text.Wrap
                                    }
                                    Note {
                                        text: modelData.action
                                    }
                                    Button {
                                        text: window.texts.openAccountsButton
                                        visible: modelData.reconnect
                                        onClicked: window.viewModel.section = 2
                                    }
                                }
                            }
                        }
                    }

                    // Stored choices that name calendars which can no longer be found.
                    ColumnLayout {
                        objectName: "reconciliationIssues"
                        visible: window.viewModel.reconciliationIssues.length > 0
                        spacing: 8
                        Layout.fillWidth: true
                        Separator {}
                        SectionTitle {
                            text: window.texts.reconciliationTitle
                        }
                        Repeater {
                            model: window.viewModel.reconciliationIssues
                            delegate: ColumnLayout {
                                required property var modelData

                                spacing: 2
                                Layout.fillWidth: true
                                Label {
                                    text: modelData.title
                                    font.bold: true
                                    Layout.fillWidth: true
                                    wrapMode: Text.Wrap
                                }
                                Label {
                                    text: modelData.message
                                    Layout.fillWidth: true
                                    wrapMode: Text.Wrap
                                }
                            }
                        }
                        Note {
                            text: window.texts.reconciliationText
                        }
                        Button {
                            objectName: "rematchButton"
                            text: window.texts.rematchButton
                            onClicked: window.viewModel.rematchCalendars()
                        }
                    }
                }

                // Connected accounts.
                ConnectedAccountsSection {
                    objectName: "accountsPage"
                    texts: window.texts
                    accounts: window.viewModel.accounts
                }

                // Exclusions.
                Page {
                    objectName: "exclusionsPage"
                    heading: window.texts.exclusionsTitle

                    Note {
                        text: window.texts.exclusionsSubtitle
                    }
                    Repeater {
                        model: window.viewModel.exclusions
                        delegate: ColumnLayout {
                            required property var modelData
                            required property int index

                            spacing: 0
                            Layout.fillWidth: true
                            Separator {
                                visible: index > 0
                                Layout.topMargin: 2
                                Layout.bottomMargin: 2
                            }
                            RowLayout {
                                spacing: 12
                                Layout.fillWidth: true
                                ColumnLayout {
                                    spacing: 2
                                    Layout.fillWidth: true
                                    Label {
                                        text: modelData.title
                                        font.bold: true
                                        elide: Text.ElideRight
                                        Layout.fillWidth: true
                                    }
                                    Label {
                                        text: modelData.calendar + " · " + modelData.scope + " · " + modelData.date
                                        opacity: 0.75
                                        elide: Text.ElideRight
                                        Layout.fillWidth: true
                                    }
                                }
                                Button {
                                    objectName: "removeExclusion" + index
                                    text: window.texts.removeButton
                                    Accessible.name: window.texts.removeButton + " " + modelData.title
                                    onClicked: window.viewModel.removeExclusion(modelData.id)
                                }
                            }
                        }
                    }
                    Button {
                        objectName: "removeAllButton"
                        text: window.texts.removeAllButton
                        visible: window.viewModel.exclusions.length > 0
                        Layout.alignment: Qt.AlignRight
                        Layout.topMargin: 8
                        onClicked: removeAllDialog.open()
                    }
                    EmptyState {
                        objectName: "noExclusions"
                        visible: window.viewModel.exclusions.length === 0
                        symbol: "check-circle"
                        heading: window.texts.noExclusionsTitle
                        text: window.texts.noExclusionsText
                    }
                }

                // Stored-data review.
                Page {
                    objectName: "storedDataPage"

                    RowLayout {
                        spacing: 12
                        Layout.fillWidth: true
                        SymbolIcon {
                            name: "warning"
                            color: window.warningColor
                            size: 32
                        }
                        Label {
                            objectName: "storedDataHeading"
                            text: window.texts.storedDataHeading
                            font.bold: true
                            font.pixelSize: 18
                            wrapMode: Text.Wrap
                            Layout.fillWidth: true
                        }
                    }
                    Label {
                        text: window.texts.storedDataExplanation
                        wrapMode: Text.Wrap
                        Layout.fillWidth: true
                    }
                    Repeater {
                        model: window.viewModel.storedDataIssues
                        delegate: ColumnLayout {
                            required property var modelData
                            required property int index

                            spacing: 0
                            Layout.fillWidth: true
                            Separator {}
                            RowLayout {
                                spacing: 12
                                Layout.fillWidth: true
                                ColumnLayout {
                                    spacing: 2
                                    Layout.fillWidth: true
                                    Label {
                                        text: modelData.title
                                        font.bold: true
                                        Layout.fillWidth: true
                                        wrapMode: Text.Wrap
                                    }
                                    Label {
                                        text: modelData.message
                                        opacity: 0.8
                                        Layout.fillWidth: true
                                        wrapMode: Text.Wrap
                                    }
                                }
                                Button {
                                    objectName: "resetButton" + index
                                    text: window.texts.resetButton
                                    Accessible.name: modelData.confirmationTitle
                                    onClicked: {
                                        resetDialog.resetComponent = modelData.component;
                                        resetDialog.title = modelData.confirmationTitle;
                                        resetDialog.message = modelData.confirmation;
                                        resetDialog.open();
                                    }
                                }
                            }
                        }
                    }
                }

                // The status menu, while no tray shows it: its lines, meetings and commands as the tray menu has
                // them, each choice handed to the tray menu's own handler.
                Page {
                    id: menuPage

                    readonly property QtObject menu: window.viewModel.statusMenu

                    objectName: "menuPage"
                    heading: window.texts.menuTitle

                    Note {
                        text: window.texts.menuExplanation
                    }
                    Repeater {
                        model: menuPage.menu ? menuPage.menu.entries : []
                        delegate: RowLayout {
                            id: entry

                            required property var modelData
                            required property int index

                            spacing: 10
                            Layout.fillWidth: true
                            Layout.topMargin: modelData.kind === "header" ? 8 : 0

                            Separator {
                                visible: entry.modelData.kind === "separator"
                            }
                            SymbolIcon {
                                visible: entry.modelData.symbol !== ""
                                name: entry.modelData.symbol
                                color: name === "warning" || name === "calendar-alert" ? window.warningColor
                                                                                         : palette.windowText
                                size: 20
                            }
                            Label {
                                objectName: "menuText" + entry.index
                                visible: entry.modelData.kind !== "separator" && entry.modelData.kind !== "action"
                                text: entry.modelData.text
                                font.bold: entry.modelData.kind === "header"
                                opacity: entry.modelData.kind === "status" ? 0.8 : 1
                                wrapMode: Text.Wrap
                                Layout.fillWidth: true
                            }
                            Button {
                                objectName: "menuAction" + entry.index
                                visible: entry.modelData.kind === "action"
                                text: entry.modelData.text
                                enabled: entry.modelData.enabled
                                onClicked: menuPage.menu.choose(entry.index)
                            }
                            Repeater {
                                model: entry.modelData.actions
                                delegate: Button {
                                    required property string modelData
                                    required property int index

                                    objectName: "menuAction" + entry.index + "_" + index
                                    text: modelData
                                    Accessible.name: modelData + " " + entry.modelData.text
                                    onClicked: menuPage.menu.choose(entry.index, index)
                                }
                            }
                        }
                    }
                }
            }
        }
    }

    component ConfirmationDialog: Dialog {
        id: dialog

        property alias message: messageLabel.text
        property alias confirmText: confirmButton.text

        modal: true
        anchors.centerIn: parent
        width: Math.min(window.width - 48, 440)

        Label {
            id: messageLabel
            wrapMode: Text.Wrap
            width: dialog.availableWidth
        }

        footer: DialogButtonBox {
            Button {
                text: window.texts.cancelButton
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                id: confirmButton
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }
    }

    ConfirmationDialog {
        id: removeAllDialog

        objectName: "removeAllDialog"
        title: window.texts.removeAllTitle
        message: window.texts.removeAllMessage
        confirmText: window.texts.removeAllConfirmButton
        onAccepted: window.viewModel.removeAllExclusions()
    }

    ConfirmationDialog {
        id: resetDialog

        property int resetComponent: -1

        objectName: "resetDialog"
        confirmText: window.texts.resetConfirmButton
        onAccepted: window.viewModel.resetStoredData(resetComponent)
    }
}
