import QtQuick
import QtQuick.Controls
import Mirrowisp

// A plan to review: the plan itself, scrollable, and the three ways to answer it.
CardFrame {
    id: planCard
    required property IslandShell shell
    property var actions
    readonly property bool showFeedback: actions ? actions.showFeedback : false
    objectName: "planCard"
    symbol: "list.bullet.clipboard.fill"
    symbolColor: "#bf5af2"
    title: "Plan ready for review"

    Column {
        width: parent.width
        spacing: 8
        Flickable {
            width: parent.width
            height: Math.min(plan.implicitHeight, 260)
            contentHeight: plan.implicitHeight
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            MarkdownView {
                id: plan
                width: parent.width
                markdown: planCard.actions ? planCard.actions.markdown : ""
            }
        }
        TextField {
            id: feedback
            visible: planCard.showFeedback
            width: parent.width
            placeholderText: "What should change?"
            color: "white"
            font.pixelSize: 12
            background: Rectangle {
                radius: 6
                color: Qt.rgba(1, 1, 1, 0.07)
                border.color: feedback.activeFocus ? Qt.rgba(1, 1, 1, 0.3) : "transparent"
            }
            onActiveFocusChanged: planCard.shell.setTextFieldFocused(activeFocus)
            onPressed: planCard.shell.focusTextField(feedback)
        }
        Row {
            anchors.right: parent.right
            spacing: 6
            IslandButton {
                objectName: "keepPlanningButton"
                text: planCard.actions ? planCard.actions.keepPlanningTitle : "Keep planning"
                onClicked: {
                    const revealing = !planCard.showFeedback
                    planCard.actions.keepPlanning(feedback.text)
                    if (revealing) {
                        planCard.shell.focusTextField(feedback)
                    }
                }
            }
            IslandButton {
                text: "Approve + auto-edit"
                onClicked: planCard.actions.approveAutoEdit()
            }
            IslandButton {
                objectName: "approveButton"
                text: "Approve"
                prominent: true
                onClicked: planCard.actions.approve()
            }
        }
    }
}
