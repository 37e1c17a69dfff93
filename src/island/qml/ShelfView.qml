import QtQuick
import Mirrowisp

// The shelf tab: files dropped on the island wait here.
Item {
    implicitHeight: 110
    Rectangle {
        anchors.fill: parent
        anchors.margins: 6
        radius: 14
        color: "transparent"
        border.color: Qt.rgba(1, 1, 1, 0.18)
        border.width: 1
        Column {
            anchors.centerIn: parent
            spacing: 6
            SymbolIcon { anchors.horizontalCenter: parent.horizontalCenter; name: "tray.fill"; size: 18; color: Qt.rgba(1, 1, 1, 0.6) }
            Text {
                text: "Drop files here to keep them at hand"
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 12
            }
        }
    }
}
