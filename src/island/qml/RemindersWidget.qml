import QtQuick
import Mirrowisp

// The tasks due today or overdue, each with a box that ticks it off.
Column {
    id: reminders
    spacing: 2

    Text {
        visible: HomeWidgets.remindersText !== ""
        text: HomeWidgets.remindersText
        color: Qt.rgba(1, 1, 1, 0.55)
        font.pixelSize: 12
    }

    // qmllint disable unqualified
    Repeater {
        model: HomeWidgets.reminders
        delegate: Item {
            id: row
            required property var modelData
            width: reminders.width
            height: 26

            Rectangle {
                id: box
                anchors.left: parent.left
                anchors.leftMargin: 4
                anchors.verticalCenter: parent.verticalCenter
                width: 14
                height: 14
                radius: 7
                color: boxArea.containsMouse ? Qt.rgba(1, 1, 1, 0.12) : "transparent"
                border.width: 1.5
                border.color: row.modelData.color
                MouseArea {
                    id: boxArea
                    anchors.fill: parent
                    anchors.margins: -4
                    hoverEnabled: true
                    cursorShape: Qt.PointingHandCursor
                    onClicked: HomeWidgets.completeReminder(row.modelData.id)
                }
            }
            Text {
                anchors.left: box.right
                anchors.leftMargin: 8
                anchors.right: when.left
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: row.modelData.title
                color: "white"
                font.pixelSize: 12
                elide: Text.ElideRight
            }
            Text {
                id: when
                anchors.right: parent.right
                anchors.rightMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                text: row.modelData.when
                color: row.modelData.overdue ? "#ff453a" : Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 11
            }
        }
    }
    // qmllint enable unqualified
}
