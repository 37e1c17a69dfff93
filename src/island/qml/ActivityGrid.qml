import QtQuick

// A small grid of dots that shimmer while agents are working. Dots take their colours in turn from
// `colors` (one per working agent, say); with no colours they use `color`.
Item {
    id: root

    property bool running: true
    property color color: "white"
    property var colors: []
    property int rows: 3
    property int columns: 3
    property real dotSize: 3
    property real spacing: 2
    property int period: 1400

    // Runs only while someone asked for it and it can be seen.
    readonly property bool animating: running && visible && Window.visibility !== Window.Hidden
    property real phase

    implicitWidth: columns * dotSize + (columns - 1) * spacing
    implicitHeight: rows * dotSize + (rows - 1) * spacing

    NumberAnimation on phase {
        from: 0
        to: 1
        duration: root.period
        loops: Animation.Infinite
        running: root.animating
    }

    Grid {
        rows: root.rows
        columns: root.columns
        spacing: root.spacing
        // qmllint disable unqualified
        Repeater {
            model: root.rows * root.columns
            Rectangle {
                required property int index
                // Scattered start times so the grid flickers like work rather than sweeping.
                readonly property real offset: ((index * 5 + 3) % 9) / 9 + (index % 2) * 0.07
                readonly property real wave: 0.5 + 0.5 * Math.cos(2 * Math.PI * (root.phase - offset))
                width: root.dotSize
                height: root.dotSize
                radius: root.dotSize / 2
                color: root.colors.length > 0 ? root.colors[index % root.colors.length] : root.color
                opacity: root.animating ? 0.2 + 0.8 * wave * wave : 0.45
            }
        }
        // qmllint enable unqualified
    }
}
