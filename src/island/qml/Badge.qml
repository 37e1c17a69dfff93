import QtQuick

// A small pill with a count, for tab headers. Hidden at zero.
Rectangle {
    id: root

    property int count: 0
    property int maximum: 99
    property color textColor: "white"
    property real size: 14

    visible: count > 0
    implicitHeight: size
    implicitWidth: Math.max(size, label.implicitWidth + size * 0.6)
    radius: height / 2
    color: Qt.rgba(1.0, 0.27, 0.23, 1)

    Text {
        id: label
        anchors.centerIn: parent
        text: root.count > root.maximum ? root.maximum + "+" : root.count
        color: root.textColor
        font.pixelSize: Math.round(root.size * 0.68)
        font.bold: true
    }
}
