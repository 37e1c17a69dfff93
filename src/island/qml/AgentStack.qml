import QtQuick

// Up to three agent marks fanned over each other, the first one on top.
Item {
    id: root

    property var agents: []
    property real size: 18
    property real overlap: 0.3
    // Drawn around each mark so the overlaps read as separate tiles; match the background.
    property color ringColor: "black"

    readonly property var shown: (agents || []).slice(0, 3)

    implicitWidth: shown.length > 0 ? size + (shown.length - 1) * size * (1 - overlap) : 0
    implicitHeight: size

    // qmllint disable unqualified
    Repeater {
        model: root.shown
        Rectangle {
            required property int index
            required property string modelData
            x: index * root.size * (1 - root.overlap) - border.width
            y: -border.width
            z: -index
            width: root.size + 2 * border.width
            height: width
            radius: root.size * 0.3 + border.width
            color: root.ringColor
            border.width: Math.max(1, root.size / 12)
            border.color: root.ringColor
            AgentMark {
                x: parent.border.width
                y: parent.border.width
                size: root.size
                agent: parent.modelData
            }
        }
    }
    // qmllint enable unqualified
}
