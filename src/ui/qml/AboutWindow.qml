// SPDX-License-Identifier: GPL-3.0-or-later
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// The about window; its texts and links come from `viewModel` (an AboutViewModel).
Window {
    id: window

    required property QtObject viewModel
    readonly property var texts: viewModel.texts

    title: texts.windowTitle
    width: 420
    height: 340
    minimumWidth: 360
    minimumHeight: 300
    color: palette.window

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        spacing: 8

        SymbolIcon {
            name: "clock-alert"
            size: 56
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            objectName: "productName"
            text: window.texts.productName
            font.pixelSize: 24
            font.bold: true
            Layout.alignment: Qt.AlignHCenter
        }
        Label {
            text: window.texts.tagline
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignHCenter
            Layout.fillWidth: true
        }
        Label {
            text: window.texts.principles
            opacity: 0.75
            horizontalAlignment: Text.AlignHCenter
            Layout.fillWidth: true
        }
        Label {
            objectName: "versionLine"
            text: window.viewModel.versionLine
            opacity: 0.75
            Layout.alignment: Qt.AlignHCenter
        }
        Item {
            Layout.fillHeight: true
        }
        Flow {
            spacing: 4
            Layout.alignment: Qt.AlignHCenter
            Layout.maximumWidth: window.width - 48
            Repeater {
                model: window.viewModel.links
                delegate: Button {
                    required property var modelData
                    required property int index
                    objectName: "link" + modelData.title
                    text: modelData.title
                    flat: true
                    Accessible.description: modelData.url
                    onClicked: window.viewModel.openLink(index)
                }
            }
        }
    }
}
