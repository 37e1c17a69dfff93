import QtQuick
import Mirrowisp

// The next events: a colour dot, the time, the title, and a join button while the meeting is near.
Column {
    id: calendar
    spacing: 2

    Text {
        visible: !HomeWidgets.calendarAvailable || HomeWidgets.events.length === 0
        text: HomeWidgets.calendarAvailable ? "Nothing on your calendar today or tomorrow"
                                            : "No calendars: add one in your calendar app, or calendar files in Settings"
        color: Qt.rgba(1, 1, 1, 0.55)
        font.pixelSize: 12
    }

    // qmllint disable unqualified
    Repeater {
        model: HomeWidgets.events
        delegate: Rectangle {
            id: row
            required property var modelData
            width: calendar.width
            height: 26
            radius: 8
            color: row.modelData.live ? Qt.rgba(1, 1, 1, 0.10) : "transparent"

            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: HomeWidgets.openEvent(row.modelData.id)
            }
            Rectangle {
                id: dot
                anchors.left: parent.left
                anchors.leftMargin: 6
                anchors.verticalCenter: parent.verticalCenter
                width: 8
                height: 8
                radius: 4
                color: row.modelData.color
            }
            Text {
                id: when
                anchors.left: dot.right
                anchors.leftMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                width: 96
                text: row.modelData.when
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 12
            }
            Text {
                anchors.left: when.right
                anchors.right: join.visible ? join.left : parent.right
                anchors.rightMargin: 8
                anchors.verticalCenter: parent.verticalCenter
                text: row.modelData.title
                color: "white"
                font.pixelSize: 12
                font.weight: row.modelData.live ? Font.DemiBold : Font.Normal
                elide: Text.ElideRight
            }
            Rectangle {
                id: join
                visible: row.modelData.joinable
                anchors.right: parent.right
                anchors.rightMargin: 4
                anchors.verticalCenter: parent.verticalCenter
                width: caption.implicitWidth + 16
                height: 20
                radius: 10
                color: "#30d158"
                Text {
                    id: caption
                    anchors.centerIn: parent
                    text: row.modelData.caption
                    color: "black"
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
                MouseArea {
                    anchors.fill: parent
                    cursorShape: Qt.PointingHandCursor
                    onClicked: HomeWidgets.joinEvent(row.modelData.id)
                }
            }
        }
    }
    // qmllint enable unqualified
}
