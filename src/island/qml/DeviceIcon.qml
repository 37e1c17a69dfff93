import QtQuick
import QtQuick.Controls.impl as Impl

// A device's icon from the desktop's icon theme, tinted like the other glyphs. Its monochrome
// "-symbolic" form comes first; the theme's loader drops the suffix where there is none. Without a
// theme icon of that name, the bundled glyph `fallback` from ../icons stands in.
Item {
    id: root

    property string icon
    property string fallback: "headphones"
    property color color: "white"
    property real size: 16

    implicitWidth: size
    implicitHeight: size

    Impl.IconImage {
        anchors.fill: parent
        name: root.icon.length > 0 ? root.icon + "-symbolic" : ""
        source: Qt.resolvedUrl("../icons/" + (root.fallback.length > 0 ? root.fallback : "headphones") + ".svg")
        sourceSize.width: Math.ceil(root.width * Screen.devicePixelRatio)
        sourceSize.height: Math.ceil(root.height * Screen.devicePixelRatio)
        fillMode: Image.PreserveAspectFit
        smooth: true
        color: root.color
    }
}
