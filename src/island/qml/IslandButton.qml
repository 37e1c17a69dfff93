import QtQuick

// A compact pill button for cards: the prominent one is white on black text.
Rectangle {
    id: button
    property string text: ""
    property string shortcut: ""
    property string help: ""
    property bool prominent: false
    property bool enabled: true
    signal clicked

    implicitWidth: label.implicitWidth + (shortcut ? hint.implicitWidth + 8 : 0) + 22
    implicitHeight: 26
    radius: 13
    opacity: enabled ? 1 : 0.4
    color: prominent ? (mouse.pressed ? "#d8d8d8" : "white")
                     : (mouse.pressed ? Qt.rgba(1, 1, 1, 0.22) : mouse.containsMouse ? Qt.rgba(1, 1, 1, 0.16) : Qt.rgba(1, 1, 1, 0.1))

    Row {
        anchors.centerIn: parent
        spacing: 8
        Text {
            id: label
            text: button.text
            color: button.prominent ? "black" : "white"
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
        Text {
            id: hint
            visible: button.shortcut !== ""
            text: button.shortcut
            color: button.prominent ? Qt.rgba(0, 0, 0, 0.45) : Qt.rgba(1, 1, 1, 0.45)
            font.pixelSize: 11
            font.family: "monospace"
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        enabled: button.enabled
        cursorShape: Qt.PointingHandCursor
        onClicked: button.clicked()
    }
}
