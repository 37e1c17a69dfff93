import QtQuick
import Mirrowisp

// A small black bubble beside the closed island: music or a meeting that the main content outranks.
Item {
    id: bubbleView
    property var bubble: ({})
    property real notchHeight: 26
    property real islandWidth: 0
    property real centreX: 410
    readonly property bool leftSide: bubble.side === "left"

    width: bubble.width || notchHeight - 2
    height: bubble.height || notchHeight
    y: 0
    x: centreX + (bubble.x || 0)

    // It grows out of the island's side.
    transformOrigin: leftSide ? Item.Right : Item.Left
    scale: shown ? 1 : 0.25
    opacity: shown ? 1 : 0
    property bool shown: false
    transform: Translate {
        x: bubbleView.shown ? 0 : (bubbleView.leftSide ? 22 : -22)
        Behavior on x { NumberAnimation { duration: NotchAnimation.duration("bubble"); easing: NotchAnimation.curve("bubble") } }
    }
    Behavior on scale { NumberAnimation { duration: NotchAnimation.duration("bubble"); easing: NotchAnimation.curve("bubble") } }
    Behavior on opacity { NumberAnimation { duration: NotchAnimation.duration("bubble") } }
    Timer {
        interval: NotchAnimation.delay("bubble")
        running: true
        onTriggered: bubbleView.shown = true
    }

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: "black"
    }

    Loader {
        anchors.centerIn: parent
        sourceComponent: bubbleView.bubble.key === "music" ? music
                       : bubbleView.bubble.key === "meeting" ? meeting : null
    }
    // qmllint disable unqualified
    Component {
        id: music
        Waveform {
            playing: bubbleView.visible && NowPlaying.isPlaying
            colors: [NowPlaying.accent, NowPlaying.secondColor]
            width: 12
            height: 10
        }
    }
    Component {
        id: meeting
        CalendarGlyph { size: 12; day: new Date().getDate() }
    }
    // qmllint enable unqualified
}
