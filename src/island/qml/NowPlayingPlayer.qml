import QtQuick
import Mirrowisp

// The home tab's player: cover (a click opens the player), title and artist, a position bar to drag,
// and the transport buttons; repeat only when the player has it.
Rectangle {
    id: player
    implicitHeight: 76
    radius: 14
    color: Qt.rgba(1, 1, 1, 0.06)

    property real position: 0
    function sample() { player.position = NowPlaying.positionNow() }
    Component.onCompleted: sample()
    Connections {
        target: NowPlaying
        function onChanged() { player.sample() }
    }
    Timer {
        // Extrapolated here, not asked of the player: nothing runs while the tab is hidden.
        interval: 500
        repeat: true
        running: player.visible && NowPlaying.isPlaying && !seekArea.pressed
        onTriggered: player.sample()
    }
    function clock(seconds) {
        const s = Math.max(0, Math.floor(seconds))
        return Math.floor(s / 60) + ":" + String(s % 60).padStart(2, "0")
    }

    CoverArt {
        id: cover
        size: 56
        radius: 8
        anchors.left: parent.left
        anchors.leftMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        MouseArea {
            objectName: "coverButton"
            anchors.fill: parent
            cursorShape: Qt.PointingHandCursor
            onClicked: NowPlaying.openPlayer()
        }
    }

    Column {
        id: texts
        anchors.left: cover.right
        anchors.leftMargin: 12
        anchors.right: controls.left
        anchors.rightMargin: 16
        anchors.verticalCenter: parent.verticalCenter
        spacing: 3
        Text {
            width: parent.width
            text: NowPlaying.title
            color: "white"
            font.pixelSize: 13
            font.weight: Font.DemiBold
            elide: Text.ElideRight
        }
        Text {
            width: parent.width
            text: NowPlaying.artist
            color: Qt.rgba(1, 1, 1, 0.6)
            font.pixelSize: 12
            elide: Text.ElideRight
        }
        Item {
            width: parent.width
            height: 16
            Rectangle {
                id: track
                anchors.verticalCenter: parent.verticalCenter
                width: parent.width
                height: 4
                radius: 2
                color: Qt.rgba(1, 1, 1, 0.15)
                Rectangle {
                    width: NowPlaying.duration > 0 ? track.width * Math.min(1, player.position / NowPlaying.duration) : 0
                    height: parent.height
                    radius: 2
                    color: NowPlaying.accent
                }
            }
            MouseArea {
                id: seekArea
                anchors.fill: parent
                enabled: NowPlaying.duration > 0
                cursorShape: Qt.PointingHandCursor
                function at(x) { return Math.max(0, Math.min(1, x / width)) * NowPlaying.duration }
                onPositionChanged: (mouse) => { if (pressed) player.position = at(mouse.x) }
                onReleased: (mouse) => NowPlaying.seek(at(mouse.x))
            }
        }
    }
    Text {
        anchors.right: texts.right
        anchors.bottom: texts.top
        text: NowPlaying.duration > 0 ? player.clock(player.position) + " / " + player.clock(NowPlaying.duration) : ""
        color: Qt.rgba(1, 1, 1, 0.45)
        font.pixelSize: 10
    }

    Row {
        id: controls
        anchors.right: parent.right
        anchors.rightMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        spacing: 6
        Repeater {
            model: NowPlaying.canRepeat ? ["previous", "playpause", "next", "repeat"] : ["previous", "playpause", "next"]
            delegate: Rectangle {
                id: button
                required property string modelData
                objectName: modelData + "Button"
                width: 32
                height: 32
                radius: 16
                color: press.pressed ? Qt.rgba(1, 1, 1, 0.22) : press.containsMouse ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
                SymbolIcon {
                    anchors.centerIn: parent
                    size: button.modelData === "playpause" ? 18 : 15
                    name: button.modelData === "previous" ? "backward.fill"
                        : button.modelData === "next" ? "forward.fill"
                        : button.modelData === "repeat" ? (NowPlaying.repeatMode === "one" ? "repeat.1" : "repeat")
                        : NowPlaying.isPlaying ? "pause.fill" : "play.fill"
                    color: button.modelData === "repeat" && NowPlaying.repeatMode !== "off" ? NowPlaying.accent
                         : button.modelData === "repeat" ? Qt.rgba(1, 1, 1, 0.45) : "white"
                }
                MouseArea {
                    id: press
                    anchors.fill: parent
                    hoverEnabled: true
                    cursorShape: Qt.PointingHandCursor
                    onClicked: {
                        switch (button.modelData) {
                        case "previous": NowPlaying.previous(); break
                        case "next": NowPlaying.next(); break
                        case "repeat": NowPlaying.cycleRepeat(); break
                        default: NowPlaying.playPause()
                        }
                    }
                }
            }
        }
    }
}
