import QtQuick
import Mirrowisp

// The user's open pull requests, then those waiting for their review, in the order GitHub gave.
Column {
    id: prs
    spacing: 2

    Row {
        spacing: 6
        visible: HomeWidgets.pullRequestText !== ""
        Text {
            text: HomeWidgets.pullRequestText
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
        }
        Text {
            readonly property string command: HomeWidgets.pullRequestState === "signedOut" ? "gh auth login"
                                            : HomeWidgets.pullRequestState === "ghMissing" ? "sudo apt install gh" : ""
            visible: command !== ""
            text: command
            color: "white"
            font.pixelSize: 12
            font.family: "monospace"
        }
    }

    // qmllint disable unqualified
    Repeater {
        model: HomeWidgets.pullRequests
        delegate: Item {
            id: row
            required property var modelData
            width: prs.width
            height: 26

            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: HomeWidgets.openPullRequest(row.modelData.url)
            }
            Rectangle {
                id: checks
                anchors.left: parent.left
                anchors.leftMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                width: 8
                height: 8
                radius: 4
                color: row.modelData.checks === "passing" ? "#30d158"
                     : row.modelData.checks === "failing" ? "#ff453a"
                     : row.modelData.checks === "pending" ? "#ffd60a" : Qt.rgba(1, 1, 1, 0.25)
            }
            Text {
                id: title
                anchors.left: checks.right
                anchors.leftMargin: 8
                anchors.right: mark.left
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: row.modelData.repository + "#" + row.modelData.number + "  " + row.modelData.title
                color: row.modelData.isDraft ? Qt.rgba(1, 1, 1, 0.55) : "white"
                font.pixelSize: 12
                elide: Text.ElideRight
            }
            Text {
                id: mark
                anchors.right: parent.right
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                text: row.modelData.reviewText
                color: row.modelData.reviewText === "Changes requested" ? "#ff9f0a" : Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 11
            }
        }
    }
    // qmllint enable unqualified
}
