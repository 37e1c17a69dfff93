import QtQuick

// A small help label that appears after a short hover, inside the island (no separate window).
Rectangle {
    id: tip
    property string text
    property bool shown: false
    visible: opacity > 0
    opacity: 0
    z: 100
    width: label.implicitWidth + 12
    height: label.implicitHeight + 6
    radius: 5
    color: "#2c2c2e"
    anchors.horizontalCenter: parent ? parent.horizontalCenter : undefined
    Text {
        id: label
        anchors.centerIn: parent
        text: tip.text
        color: "white"
        font.pixelSize: 11
    }
    Timer {
        interval: 600
        running: tip.shown
        onTriggered: tip.opacity = 1
    }
    onShownChanged: if (!shown) opacity = 0
    Behavior on opacity { NumberAnimation { duration: 120 } }
}
