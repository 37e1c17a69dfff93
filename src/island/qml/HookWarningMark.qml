import QtQuick
import Mirrowisp

// A small amber mark while an agent on this machine has hooks someone else changed; a click opens the
// settings on the Agents page, where Repair puts them back.
Rectangle {
    id: mark
    required property IslandShell shell
    readonly property var drifted: shell.hookDrift.drifted

    objectName: "hookWarningButton"
    visible: drifted.length > 0
    width: 24
    height: 24
    radius: 12
    color: markMouse.containsMouse ? Qt.rgba(1, 1, 1, 0.08) : "transparent"

    Rectangle {
        anchors.centerIn: parent
        width: 14
        height: 14
        radius: 7
        color: "#f5a623"
        Text {
            anchors.centerIn: parent
            text: "!"
            color: "black"
            font.bold: true
            font.pixelSize: 11
        }
    }
    MouseArea {
        id: markMouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: mark.shell.openSettings("agents")
    }
    ToolTipText {
        text: "Hooks changed by someone else: " + mark.drifted.join(", ")
        shown: markMouse.containsMouse
        anchors.top: parent.bottom
    }
}
