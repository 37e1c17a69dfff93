import QtQuick
import QtQuick.Shapes

// A check in a ring that draws itself in each time it is shown: the ring first, then the tick.
Item {
    id: root

    property real size: 16
    property color color: Qt.rgba(0.2, 0.84, 0.42, 1)
    property bool animated: true
    property int duration: 420
    property real progress: 1

    implicitWidth: size
    implicitHeight: size

    NumberAnimation {
        target: root
        property: "progress"
        from: 0
        to: 1
        duration: root.duration
        easing.type: Easing.OutCubic
        running: root.animated && root.visible
    }

    readonly property real ring: Math.min(1, progress / 0.6)
    readonly property real tick: Math.max(0, Math.min(1, (progress - 0.35) / 0.65))

    Shape {
        anchors.fill: parent
        layer.enabled: true
        layer.samples: 4

        ShapePath {
            strokeColor: root.color
            strokeWidth: 1.5 * root.width / 16
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            PathAngleArc {
                centerX: root.width / 2
                centerY: root.height / 2
                radiusX: root.width / 2 - 1.2 * root.width / 16
                radiusY: radiusX
                startAngle: -90
                sweepAngle: 360 * root.ring
            }
        }

        // Tick in 16-unit coordinates: short stroke down to the knee, long stroke up.
        ShapePath {
            id: tickPath
            readonly property real k: root.width / 16
            readonly property real split: 0.32
            readonly property real first: Math.min(1, root.tick / split)
            readonly property real second: Math.max(0, (root.tick - split) / (1 - split))
            strokeColor: root.tick > 0 ? root.color : "transparent"
            strokeWidth: 1.7 * k
            fillColor: "transparent"
            capStyle: ShapePath.RoundCap
            joinStyle: ShapePath.RoundJoin
            startX: 4.6 * k
            startY: 8.3 * k
            PathLine {
                x: (4.6 + (7.0 - 4.6) * tickPath.first) * tickPath.k
                y: (8.3 + (10.7 - 8.3) * tickPath.first) * tickPath.k
            }
            PathLine {
                x: (7.0 + (11.6 - 7.0) * tickPath.second) * tickPath.k
                y: (10.7 + (5.5 - 10.7) * tickPath.second) * tickPath.k
            }
        }
    }
}
