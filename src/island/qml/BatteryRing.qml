import QtQuick
import QtQuick.Shapes

// A ring filled clockwise from the top to show a percentage, with an optional symbol inside.
Item {
    id: root

    property real percent: 0
    property real size: 20
    property real lineWidth: 2.2
    property color color: Qt.rgba(0.2, 0.84, 0.42, 1)
    property color trackColor: Qt.rgba(1, 1, 1, 0.18)
    property string symbol: ""
    property color symbolColor: color

    readonly property real fraction: Math.max(0, Math.min(100, percent)) / 100

    implicitWidth: size
    implicitHeight: size

    Shape {
        anchors.fill: parent
        layer.enabled: true
        layer.samples: 4

        ShapePath {
            strokeColor: root.trackColor
            strokeWidth: root.lineWidth
            fillColor: "transparent"
            PathAngleArc {
                centerX: root.width / 2
                centerY: root.height / 2
                radiusX: (root.width - root.lineWidth) / 2
                radiusY: radiusX
                startAngle: 0
                sweepAngle: 360
            }
        }

        ShapePath {
            strokeColor: root.fraction > 0 ? root.color : "transparent"
            strokeWidth: root.lineWidth
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            PathAngleArc {
                centerX: root.width / 2
                centerY: root.height / 2
                radiusX: (root.width - root.lineWidth) / 2
                radiusY: radiusX
                startAngle: -90
                sweepAngle: 360 * root.fraction
            }
        }
    }

    SymbolIcon {
        anchors.centerIn: parent
        visible: root.symbol.length > 0
        name: root.symbol
        size: Math.round((root.width - 2 * root.lineWidth) * 0.62)
        color: root.symbolColor
    }
}
