import QtQuick
import QtQuick.Shapes

// An agent's mark: a rounded tile in the agent's accent colour with its monogram. Marks are our
// own letters (and a pointer for the cursor agent), never anyone's logo.
Item {
    id: root

    property string agent
    property real size: 18

    // Same values as the agent table on the C++ side.
    readonly property var accents: ({
        claude: Qt.rgba(0.851, 0.467, 0.341, 1),
        codex: Qt.rgba(0.45, 0.62, 1.0, 1),
        cursor: Qt.rgba(0.86, 0.86, 0.86, 1),
        opencode: Qt.rgba(0.55, 0.86, 0.62, 1),
        amp: Qt.rgba(0.96, 0.42, 0.36, 1),
        devin: Qt.rgba(0.45, 0.8, 0.95, 1),
        gemini: Qt.rgba(0.42, 0.6, 1.0, 1),
        copilot: Qt.rgba(0.72, 0.58, 0.98, 1)
    })
    readonly property var letters: ({
        claude: "C", codex: "X", opencode: "O", amp: "A", devin: "D", gemini: "G", copilot: "P"
    })
    readonly property color accent: accents[agent] !== undefined ? accents[agent] : Qt.rgba(0.6, 0.6, 0.6, 1)

    implicitWidth: size
    implicitHeight: size

    Rectangle {
        anchors.fill: parent
        radius: width * 0.3
        color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.2)
        border.width: Math.max(1, root.width / 18)
        border.color: Qt.rgba(root.accent.r, root.accent.g, root.accent.b, 0.45)
    }

    Text {
        anchors.centerIn: parent
        visible: root.agent !== "cursor"
        text: root.letters[root.agent] !== undefined ? root.letters[root.agent]
                                                      : root.agent.charAt(0).toUpperCase()
        color: root.accent
        font.pixelSize: Math.round(root.height * 0.6)
        font.bold: true
    }

    // The cursor agent gets a pointer arrow; a "C" would clash with the first agent.
    Shape {
        id: pointer
        visible: root.agent === "cursor"
        anchors.centerIn: parent
        width: root.width * 0.56
        height: width
        layer.enabled: true
        layer.samples: 4
        ShapePath {
            strokeWidth: -1
            fillColor: root.accent
            scale: Qt.size(pointer.width / 10, pointer.height / 10)
            startX: 1.9; startY: 0.4
            PathLine { x: 1.9; y: 8.9 }
            PathLine { x: 4.0; y: 7.0 }
            PathLine { x: 5.5; y: 10.0 }
            PathLine { x: 7.0; y: 9.3 }
            PathLine { x: 5.6; y: 6.4 }
            PathLine { x: 8.3; y: 6.4 }
            PathLine { x: 1.9; y: 0.4 }
        }
    }
}
