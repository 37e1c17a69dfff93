import QtQuick
import QtQuick.Controls.impl as Impl

// A named monochrome icon from ../icons, tinted to `color`. The artwork is white so the tint is a
// plain source-in fill; ColorImage does that without pulling in an effects module.
Item {
    id: root

    property string name
    property color color: "white"
    property real size: 14

    implicitWidth: size
    implicitHeight: size

    Impl.ColorImage {
        anchors.fill: parent
        source: root.name.length > 0 ? Qt.resolvedUrl("../icons/" + root.name + ".svg") : ""
        // Rasterise at the drawn size (times the screen scale) so the strokes stay crisp.
        sourceSize.width: Math.ceil(root.width * Screen.devicePixelRatio)
        sourceSize.height: Math.ceil(root.height * Screen.devicePixelRatio)
        fillMode: Image.PreserveAspectFit
        smooth: true
        color: root.color
        visible: root.name.length > 0
    }
}
