import QtQuick
import Mirrowisp

// The track's cover; a dark tile while there is none.
Item {
    id: cover
    property real size: 18
    property real radius: 4
    implicitWidth: size
    implicitHeight: size

    Rectangle {
        anchors.fill: parent
        radius: cover.radius
        color: "#333333"
        visible: art.status !== Image.Ready
    }
    Image {
        id: art
        anchors.fill: parent
        source: NowPlaying.artworkUrl
        sourceSize.width: Math.ceil(cover.size * Screen.devicePixelRatio)
        sourceSize.height: Math.ceil(cover.size * Screen.devicePixelRatio)
        fillMode: Image.PreserveAspectCrop
        cache: false
        smooth: true
    }
}
