import QtQuick
import QtQuick.Controls
import Mirrowisp

// Every question of the decision at once: its options as chips, a free text field, and Submit.
CardFrame {
    id: questionCard
    required property IslandShell shell
    property var actions
    property var questions
    objectName: "questionCard"
    symbol: "sparkles"
    symbolColor: "#0a84ff"
    title: actions ? actions.title : ""

    Column {
        width: parent.width
        spacing: 12
        Repeater {
            model: questionCard.questions ? questionCard.questions.questions : []
            // qmllint disable unqualified
            delegate: Column {
                id: questionView
                required property var modelData
                required property int index
                width: parent.width
                spacing: 6
                Text {
                    visible: text !== ""
                    text: questionView.modelData.header
                    color: Qt.rgba(1, 1, 1, 0.5)
                    font.pixelSize: 11
                    font.weight: Font.DemiBold
                    font.capitalization: Font.AllUppercase
                }
                Text {
                    width: parent.width
                    text: questionView.modelData.text
                    color: "white"
                    font.pixelSize: 13
                    wrapMode: Text.Wrap
                }
                FlowOptions {
                    width: parent.width
                    options: questionView.modelData.options
                    multiSelect: questionView.modelData.multiSelect
                    onToggled: label => questionCard.questions.toggle(label, questionView.index)
                }
                TextField {
                    id: other
                    width: parent.width
                    placeholderText: "Other"
                    text: questionView.modelData.otherText
                    color: "white"
                    font.pixelSize: 12
                    background: Rectangle {
                        radius: 6
                        color: Qt.rgba(1, 1, 1, 0.07)
                        border.color: other.activeFocus ? Qt.rgba(1, 1, 1, 0.3) : "transparent"
                    }
                    onTextEdited: questionCard.questions.setOtherText(questionView.index, text)
                    onActiveFocusChanged: questionCard.shell.setTextFieldFocused(activeFocus)
                    onPressed: questionCard.shell.focusTextField(other)
                }
            }
            // qmllint enable unqualified
        }
        Row {
            anchors.right: parent.right
            spacing: 6
            IslandButton {
                text: "Terminal"
                help: "Answer in the terminal"
                onClicked: questionCard.actions.terminal()
            }
            IslandButton {
                objectName: "submitButton"
                text: "Submit"
                prominent: true
                enabled: questionCard.questions && questionCard.questions.canSubmit
                onClicked: questionCard.questions.submit()
            }
        }
    }
}
