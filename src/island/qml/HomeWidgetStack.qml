import QtQuick
import Mirrowisp

// The home tab's widgets in the order the settings give: a row of their names, the chosen one below.
Column {
    id: stack
    spacing: 6
    readonly property var shown: HomeWidgets.order
    readonly property string current: shown.indexOf(HomeWidgets.selection) >= 0 ? HomeWidgets.selection
                                                                               : (shown.length > 0 ? shown[0] : "")
    visible: shown.length > 0

    Row {
        spacing: 6
        // qmllint disable unqualified
        Repeater {
            model: stack.shown
            delegate: Rectangle {
                id: chip
                required property string modelData
                width: label.implicitWidth + 16
                height: 20
                radius: 10
                color: stack.current === chip.modelData ? Qt.rgba(1, 1, 1, 0.16) : Qt.rgba(1, 1, 1, 0.05)
                Text {
                    id: label
                    anchors.centerIn: parent
                    text: chip.modelData === "calendar" ? "Calendar"
                        : chip.modelData === "pullRequests" ? "Pull requests" : "Reminders"
                    color: "white"
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                }
                MouseArea {
                    anchors.fill: parent
                    cursorShape: Qt.PointingHandCursor
                    onClicked: HomeWidgets.selection = chip.modelData
                }
            }
        }
        // qmllint enable unqualified
    }

    CalendarWidget {
        width: stack.width
        visible: stack.current === "calendar"
    }
    PullRequestsWidget {
        width: stack.width
        visible: stack.current === "pullRequests"
    }
    RemindersWidget {
        width: stack.width
        visible: stack.current === "reminders"
    }
}
