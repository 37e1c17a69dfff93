import QtQuick
import Mirrowisp

// Shown while Codex will not run the app's hooks: why, and what to do about it.
Rectangle {
    id: notice
    property string title: ""
    property string text: ""
    signal openSettings()

    implicitHeight: column.implicitHeight + 20
    radius: 12
    color: Qt.rgba(1, 0.7, 0.25, 0.12)
    border.color: Qt.rgba(1, 0.7, 0.25, 0.35)
    border.width: 1

    Column {
        id: column
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 10
        spacing: 4
        Row {
            spacing: 6
            AgentMark { agent: "codex"; size: 14; anchors.verticalCenter: parent.verticalCenter }
            Text {
                text: notice.title
                color: "white"
                font.pixelSize: 13
                font.weight: Font.DemiBold
            }
        }
        Text {
            width: parent.width
            text: notice.text
            color: Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 12
            wrapMode: Text.Wrap
        }
        IslandButton {
            objectName: "codexSettingsButton"
            text: "Open Settings"
            onClicked: notice.openSettings()
        }
    }
}
