// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The controls for directly connected accounts, shared by the settings window and onboarding's connect sheet: one
// connect row per provider (with the OAuth client ID entry unless the build fixes the client), the sign-in in
// progress with Cancel, and each account with its state, Reconnect and Disconnect.
ColumnLayout {
    id: controls

    // A ConnectedAccountsViewModel.
    required property QtObject accounts

    spacing: 12

    Repeater {
        model: controls.accounts.providers
        delegate: RowLayout {
            required property var modelData

            spacing: 8
            Layout.fillWidth: true
            Label {
                text: modelData.title
                font.bold: true
                Layout.preferredWidth: 130
            }
            TextField {
                objectName: "clientID_" + modelData.provider
                visible: modelData.clientIDEditable
                text: modelData.clientID
                placeholderText: controls.accounts.texts.clientIDLabel
                ToolTip.text: controls.accounts.texts.clientIDHint
                ToolTip.visible: hovered
                Accessible.name: modelData.title + " " + controls.accounts.texts.clientIDLabel
                selectByMouse: true
                Layout.fillWidth: true
                onEditingFinished: controls.accounts.setClientID(modelData.provider, text)
            }
            Item {
                visible: !modelData.clientIDEditable
                Layout.fillWidth: true
            }
            Button {
                objectName: "connect_" + modelData.provider
                text: modelData.connectLabel
                enabled: !controls.accounts.busy && (modelData.canConnect || modelData.clientIDEditable)
                onClicked: {
                    // A client ID typed but not yet confirmed counts.
                    forceActiveFocus();
                    controls.accounts.connectProvider(modelData.provider);
                }
            }
        }
    }

    RowLayout {
        objectName: "progress"
        visible: controls.accounts.progressText.length > 0
        spacing: 8
        Layout.fillWidth: true
        BusyIndicator {
            running: parent.visible
            Layout.preferredWidth: 24
            Layout.preferredHeight: 24
        }
        Label {
            text: controls.accounts.progressText
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        Button {
            objectName: "cancelSignIn"
            text: controls.accounts.texts.cancel
            onClicked: controls.accounts.cancel()
        }
    }

    Label {
        objectName: "noAccounts"
        visible: controls.accounts.accounts.length === 0
        text: controls.accounts.texts.noAccounts
        opacity: 0.75
    }

    Repeater {
        model: controls.accounts.accounts
        delegate: ColumnLayout {
            required property var modelData
            required property int index

            spacing: 0
            Layout.fillWidth: true
            Rectangle {
                color: palette.mid
                opacity: 0.4
                implicitHeight: 1
                Layout.fillWidth: true
                Layout.bottomMargin: 6
            }
            RowLayout {
                spacing: 12
                Layout.fillWidth: true
                ColumnLayout {
                    spacing: 2
                    Layout.fillWidth: true
                    Label {
                        text: modelData.name + " · " + modelData.provider
                        font.bold: true
                        elide: Text.ElideRight
                        Layout.fillWidth: true
                    }
                    Label {
                        visible: modelData.address.length > 0
                        text: modelData.address
                        opacity: 0.75
                        elide: Text.ElideRight
                        Layout.fillWidth: true
                    }
                    Label {
                        objectName: "accountState" + index
                        text: modelData.state
                        color: modelData.stateIsProblem ? "#b3261e" : palette.windowText
                        wrapMode: Text.Wrap
                        Layout.fillWidth: true
                    }
                }
                Button {
                    objectName: "reconnect" + index
                    text: controls.accounts.texts.reconnect
                    highlighted: modelData.needsReconnection
                    enabled: !controls.accounts.busy
                    onClicked: controls.accounts.reconnect(modelData.id)
                }
                Button {
                    objectName: "disconnect" + index
                    text: controls.accounts.texts.disconnect
                    enabled: !controls.accounts.busy
                    onClicked: {
                        const confirmation = controls.accounts.disconnectConfirmation(modelData.id);
                        disconnectDialog.accountID = modelData.id;
                        disconnectDialog.title = confirmation.title;
                        disconnectMessage.text = confirmation.message;
                        disconnectConfirm.text = confirmation.confirm;
                        disconnectDialog.open();
                    }
                }
            }
        }
    }

    Dialog {
        id: disconnectDialog

        property string accountID

        objectName: "disconnectDialog"
        modal: true
        parent: Overlay.overlay
        anchors.centerIn: parent
        width: Math.min(parent ? parent.width - 48 : 440, 440)

        Label {
            id: disconnectMessage
            wrapMode: Text.Wrap
            width: parent.width
        }
        footer: DialogButtonBox {
            Button {
                text: controls.accounts.texts.cancel
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                id: disconnectConfirm
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }
        onAccepted: controls.accounts.disconnect(accountID)
    }
}
