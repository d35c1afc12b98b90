// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window's page for directly connected Google Calendar and Outlook accounts.
Item {
    id: section

    // The settings window's fixed texts, and the accounts' view model (none yet).
    required property var texts
    property QtObject accounts

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 12

        Label {
            objectName: "accountsHeading"
            text: section.texts.accountsTitle
            font.bold: true
            font.pixelSize: 20
        }
        Label {
            objectName: "accountsPlaceholder"
            text: section.texts.accountsPlaceholder
            wrapMode: Text.Wrap
            opacity: 0.8
            Layout.fillWidth: true
        }
        Item {
            Layout.fillHeight: true
        }
    }
}
