import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

// What to do when Codex does not run the hooks: its notice and the steps, and a way to look again.
Frame {
    id: box
    required property SettingsAgentList agents
    visible: agents.codexStatus !== "ready"
    Layout.fillWidth: true

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        spacing: 6
        Label {
            objectName: "codexHeading"
            text: box.agents.codexHeading
            font.bold: true
        }
        Label {
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: box.agents.codexBody
        }
        Repeater {
            model: box.agents.codexSteps
            delegate: Label {
                required property string modelData
                required property int index
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                textFormat: Text.MarkdownText
                text: (index + 1) + ". " + modelData
            }
        }
        Button {
            text: qsTr("Check Again")
            onClicked: box.agents.refresh()
        }
    }
}
