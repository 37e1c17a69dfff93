import QtQuick

// A symbol that gives a short shake now and then to catch the eye (the waiting hand). Between
// shakes nothing animates: a timer starts each one, so a waiting island stays cheap.
Item {
    id: root

    property string name: "hand.raised.fill"
    property color color: "white"
    property real size: 14
    property bool running: true
    property int interval: 2200

    readonly property bool active: running && visible && Window.visibility !== Window.Hidden

    implicitWidth: size
    implicitHeight: size

    SymbolIcon {
        id: icon
        anchors.fill: parent
        name: root.name
        color: root.color
        size: root.size
        // Pivot near the wrist so it waves rather than spins.
        transform: Rotation {
            id: turn
            origin.x: icon.width / 2
            origin.y: icon.height * 0.85
        }
    }

    SequentialAnimation {
        id: wiggle
        alwaysRunToEnd: true
        NumberAnimation { target: turn; property: "angle"; to: -16; duration: 90; easing.type: Easing.OutQuad }
        NumberAnimation { target: turn; property: "angle"; to: 13; duration: 130; easing.type: Easing.InOutQuad }
        NumberAnimation { target: turn; property: "angle"; to: -9; duration: 120; easing.type: Easing.InOutQuad }
        NumberAnimation { target: turn; property: "angle"; to: 5; duration: 110; easing.type: Easing.InOutQuad }
        NumberAnimation { target: turn; property: "angle"; to: 0; duration: 100; easing.type: Easing.OutQuad }
    }

    Timer {
        interval: root.interval
        repeat: true
        triggeredOnStart: true
        running: root.active
        onTriggered: wiggle.restart()
    }
}
