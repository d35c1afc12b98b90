// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window's page for directly connected Google Calendar and Outlook accounts.
ScrollView {
    id: section

    // The settings window's fixed texts, and the accounts' view model (absent when this copy cannot connect any).
    required property var texts
    property QtObject accounts

    clip: true
    padding: 24
    contentWidth: availableWidth

    ColumnLayout {
        width: section.availableWidth
        spacing: 12

        Label {
            objectName: "accountsHeading"
            text: section.texts.accountsTitle
            font.bold: true
            font.pixelSize: 20
        }
        Label {
            objectName: "accountsIntro"
            text: section.accounts && section.accounts.supported ? section.accounts.texts.intro
                                                                 : section.texts.accountsPlaceholder
            wrapMode: Text.Wrap
            opacity: 0.8
            Layout.fillWidth: true
        }
        Loader {
            active: section.accounts !== null && section.accounts.supported
            Layout.fillWidth: true
            sourceComponent: ConnectedAccountsControls {
                accounts: section.accounts
            }
        }
    }
}
