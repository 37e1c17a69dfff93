import QtQuick
import Mirrowisp

// One session: the agent's mark, the project, where it runs, what it does, and its state.
// A click jumps to its terminal and closes the island; the context menu offers the same and Hide.
Rectangle {
    id: row
    required property AgentsViewModel agents
    required property IslandControls controller
    property string sessionKey
    property string agent
    property string project
    property string subtitle
    property string activity
    property string age
    property string badge
    property int subagents: 0
    property string hostLine
    readonly property bool hoveringRow: rowMouse.containsMouse

    objectName: "sessionRow"
    implicitHeight: 50 + (hostLine !== "" ? 18 : 0)
    radius: 12
    color: hoveringRow ? Qt.rgba(1, 1, 1, 0.08) : Qt.rgba(1, 1, 1, 0.04)

    MouseArea {
        id: rowMouse
        anchors.fill: parent
        hoverEnabled: true
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        cursorShape: Qt.PointingHandCursor
        onClicked: mouse => {
            if (mouse.button === Qt.RightButton) {
                menu.popupAt(mouse.x, mouse.y)
            } else {
                row.agents.jump(row.sessionKey)
                row.controller.closeIsland()
            }
        }
    }

    AgentMark {
        id: mark
        anchors.left: parent.left
        anchors.leftMargin: 10
        anchors.top: parent.top
        anchors.topMargin: 10
        agent: row.agent
        size: 28
    }

    Column {
        anchors.left: mark.right
        anchors.leftMargin: 10
        anchors.right: trailing.left
        anchors.rightMargin: 8
        anchors.top: parent.top
        anchors.topMargin: 7
        spacing: 1
        Row {
            spacing: 6
            width: parent.width
            Text {
                text: row.project
                color: "white"
                font.pixelSize: 13
                font.weight: Font.DemiBold
                elide: Text.ElideRight
                width: Math.min(implicitWidth, parent.width * 0.45)
            }
            Text {
                text: row.subtitle
                color: Qt.rgba(1, 1, 1, 0.45)
                font.pixelSize: 11
                elide: Text.ElideMiddle
                width: Math.min(implicitWidth, parent.width * 0.5)
                anchors.baseline: parent.children[0].baseline
            }
        }
        Text {
            width: parent.width
            text: row.activity
            color: Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 12
            elide: Text.ElideRight
            maximumLineCount: 1
        }
        Row {
            visible: row.hostLine !== ""
            spacing: 6
            Text {
                text: row.hostLine
                color: "#ffb340"
                font.pixelSize: 11
                anchors.verticalCenter: parent.verticalCenter
            }
            IslandButton {
                text: "Open"
                implicitHeight: 18
                onClicked: row.agents.jump(row.sessionKey)
            }
        }
    }

    Row {
        id: trailing
        anchors.right: parent.right
        anchors.rightMargin: 10
        anchors.top: parent.top
        anchors.topMargin: 10
        spacing: 8

        Row {
            visible: row.subagents > 0
            spacing: 3
            anchors.verticalCenter: parent.verticalCenter
            SymbolIcon { name: "person.2.fill"; size: 11; color: Qt.rgba(1, 1, 1, 0.6) }
            Text {
                text: row.subagents
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 11
            }
        }
        Text {
            anchors.verticalCenter: parent.verticalCenter
            text: row.age
            color: Qt.rgba(1, 1, 1, 0.45)
            font.pixelSize: 11
        }
        Item {
            width: 18
            height: 18
            anchors.verticalCenter: parent.verticalCenter
            SymbolIcon {
                anchors.centerIn: parent
                visible: !row.hoveringRow || hideButton.visible === false
                name: row.badge === "needsYou" ? "hand.raised.fill" : row.badge === "done" ? "checkmark" : ""
                color: row.badge === "needsYou" ? "#ff9f0a" : "#34d66b"
                size: 12
            }
            ActivityGrid {
                anchors.centerIn: parent
                visible: row.badge === "working" && !row.hoveringRow
                running: visible
            }
        }
        Rectangle {
            id: hideButton
            // Hide on hover: the session comes back with its next event.
            visible: row.hoveringRow
            width: 20
            height: 20
            radius: 10
            anchors.verticalCenter: parent.verticalCenter
            color: hideMouse.containsMouse ? Qt.rgba(1, 1, 1, 0.2) : Qt.rgba(1, 1, 1, 0.1)
            SymbolIcon { anchors.centerIn: parent; name: "xmark"; size: 9; color: "white" }
            MouseArea {
                id: hideMouse
                anchors.fill: parent
                hoverEnabled: true
                onClicked: row.agents.hide(row.sessionKey)
            }
            ToolTipText { text: "Hide"; shown: hideMouse.containsMouse }
        }
    }

    ToolTipText { text: "Jump to session"; shown: rowMouse.containsMouse && !hideMouse.containsMouse; anchors.bottom: parent.top }

    ContextMenu {
        id: menu
        controller: row.controller
        entries: ["Jump to Session", "Hide"]
        onChosen: index => {
            if (index === 0) {
                row.agents.jump(row.sessionKey)
                row.controller.closeIsland()
            } else {
                row.agents.hide(row.sessionKey)
            }
        }
    }
}
