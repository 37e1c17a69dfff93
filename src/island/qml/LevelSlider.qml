import QtQuick

// A level the user drags or clicks: an icon and a bar, for the volume or the screen's brightness.
Item {
    id: slider
    property string symbol: ""
    property real level: 0
    signal moved(real level)

    implicitWidth: 180
    implicitHeight: 22

    SymbolIcon {
        id: icon
        anchors.left: parent.left
        anchors.verticalCenter: parent.verticalCenter
        name: slider.symbol
        size: 12
        color: Qt.rgba(1, 1, 1, 0.7)
    }
    LevelBar {
        id: bar
        anchors.left: icon.right
        anchors.leftMargin: 8
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        height: 6
        level: slider.level
    }
    MouseArea {
        anchors.fill: bar
        anchors.topMargin: -8
        anchors.bottomMargin: -8
        preventStealing: true
        function report(x) { slider.moved(Math.max(0, Math.min(1, x / bar.width))) }
        onPressed: mouse => report(mouse.x)
        onPositionChanged: mouse => { if (pressed) report(mouse.x) }
    }
}
