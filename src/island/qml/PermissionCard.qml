import QtQuick
import Mirrowisp

// A tool call the agent wants to make. "y" allows and "n" denies while the card shows.
CardFrame {
    id: permission
    property var actions
    objectName: "permissionCard"
    symbol: "hand.raised.fill"
    title: actions ? actions.title : ""

    Column {
        width: parent.width
        spacing: 8
        Text {
            width: parent.width
            text: permission.actions ? permission.actions.summary : ""
            color: Qt.rgba(1, 1, 1, 0.85)
            font.pixelSize: 12
            wrapMode: Text.Wrap
            maximumLineCount: 4
            elide: Text.ElideRight
        }
        Text {
            visible: permission.actions && permission.actions.expired
            width: parent.width
            text: "The agent has stopped waiting for this answer."
            color: Qt.rgba(1, 0.75, 0.3, 1)
            font.pixelSize: 11
            wrapMode: Text.Wrap
        }
        Rectangle {
            visible: permission.actions && permission.actions.hasDetail
            width: parent.width
            height: Math.min(detailText.implicitHeight + 16, 140)
            radius: 6
            color: Qt.rgba(1, 1, 1, 0.07)
            clip: true
            Text {
                id: detailText
                x: 8
                y: 8
                width: parent.width - 16
                text: permission.actions ? permission.actions.detail : ""
                color: Qt.rgba(1, 1, 1, 0.8)
                font.pixelSize: 12
                font.family: "monospace"
                wrapMode: Text.WrapAnywhere
                maximumLineCount: 8
                elide: Text.ElideRight
            }
        }
        Row {
            anchors.right: parent.right
            spacing: 6
            IslandButton {
                objectName: "denyButton"
                text: "Deny"
                shortcut: "n"
                onClicked: permission.actions.deny()
            }
            IslandButton {
                objectName: "terminalButton"
                text: "Terminal"
                help: "Answer in the terminal"
                onClicked: permission.actions.terminal()
            }
            IslandButton {
                objectName: "alwaysAllowButton"
                visible: permission.actions && permission.actions.hasAlwaysAllowSuggestion
                text: "Always allow"
                onClicked: permission.actions.alwaysAllow()
            }
            IslandButton {
                objectName: "allowButton"
                text: "Allow"
                shortcut: "y"
                prominent: true
                onClicked: permission.actions.allow()
            }
        }
    }
}
