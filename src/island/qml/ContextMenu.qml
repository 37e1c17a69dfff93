import QtQuick
import Mirrowisp

// A menu drawn inside the island, so it stays within the window's input region. While it shows,
// the controller counts it as an open menu and the island stays open.
Item {
    id: menu
    required property IslandControls controller
    property var entries: []
    signal chosen(int index)
    property bool shown: false
    anchors.fill: parent
    visible: shown
    z: 200

    function popupAt(x, y) {
        list.x = Math.min(x, width - list.width - 4)
        list.y = Math.min(y, Math.max(0, height - list.height))
        shown = true
        menu.controller.menuOpened()
    }
    function close() {
        if (shown) {
            shown = false
            menu.controller.menuClosed()
        }
    }
    Component.onDestruction: close()

    MouseArea {
        // A click beside the menu dismisses it without acting.
        anchors.fill: parent
        onClicked: menu.close()
    }
    Rectangle {
        id: list
        width: 150
        height: column.implicitHeight + 8
        radius: 8
        color: "#2c2c2e"
        border.color: Qt.rgba(1, 1, 1, 0.12)
        Column {
            id: column
            anchors.fill: parent
            anchors.margins: 4
            Repeater {
                model: menu.entries
                // qmllint disable unqualified
                delegate: Rectangle {
                    required property string modelData
                    required property int index
                    // Listed with the island's buttons, so scripts can choose an entry.
                    objectName: "menuEntry" + index + "Button"
                    width: column.width
                    height: 24
                    radius: 5
                    color: itemMouse.containsMouse ? "#0a84ff" : "transparent"
                    Text {
                        anchors.verticalCenter: parent.verticalCenter
                        anchors.left: parent.left
                        anchors.leftMargin: 8
                        text: parent.modelData
                        color: "white"
                        font.pixelSize: 12
                    }
                    MouseArea {
                        id: itemMouse
                        anchors.fill: parent
                        hoverEnabled: true
                        onClicked: {
                            const chosenIndex = parent.index
                            menu.close()
                            menu.chosen(chosenIndex)
                        }
                    }
                }
                // qmllint enable unqualified
            }
        }
    }
}
