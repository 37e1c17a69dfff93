import QtQuick

// A thin horizontal gauge, for volume or brightness.
Item {
    id: root

    property real level: 0
    property color color: "white"
    property color trackColor: Qt.rgba(1, 1, 1, 0.2)

    implicitWidth: 78
    implicitHeight: 5

    Rectangle {
        anchors.fill: parent
        radius: height / 2
        color: root.trackColor
    }

    Rectangle {
        readonly property real clamped: Math.max(0, Math.min(1, root.level))
        height: parent.height
        width: clamped > 0 ? Math.max(parent.height, parent.width * clamped) : 0
        radius: height / 2
        color: root.color
        Behavior on width { NumberAnimation { duration: 90; easing.type: Easing.OutQuad } }
    }
}
