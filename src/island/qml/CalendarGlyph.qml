import QtQuick

// A tiny tear-off calendar page: a coloured header band over a white page with the day on it.
Item {
    id: root

    property int day: 1
    property string month: ""
    property real size: 16
    property color accent: Qt.rgba(1.0, 0.27, 0.23, 1)
    property color pageColor: "white"
    property color textColor: Qt.rgba(0.1, 0.1, 0.1, 1)

    implicitWidth: size
    implicitHeight: size

    Rectangle {
        id: page
        anchors.fill: parent
        radius: root.width * 0.2
        color: root.pageColor
        clip: true

        Rectangle {
            id: band
            width: parent.width
            height: Math.round(parent.height * 0.3)
            color: root.accent
            Text {
                anchors.centerIn: parent
                visible: root.month.length > 0 && root.size >= 24
                text: root.month.toUpperCase()
                color: "white"
                font.pixelSize: Math.max(6, parent.height * 0.72)
                font.bold: true
            }
        }

        Text {
            anchors.horizontalCenter: parent.horizontalCenter
            anchors.verticalCenter: parent.verticalCenter
            anchors.verticalCenterOffset: band.height / 2
            text: root.day
            color: root.textColor
            font.pixelSize: Math.round(root.height * 0.56)
            font.bold: true
        }
    }
}
