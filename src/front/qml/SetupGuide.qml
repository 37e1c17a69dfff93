import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

ApplicationWindow {
    id: window
    required property SetupGuideModel guide

    // The Codex step shows only where Codex is.
    readonly property var steps: guide.agents.codexDetected ? ["welcome", "agents", "codex", "try", "terminal"] : ["welcome", "agents", "try", "terminal"]
    readonly property bool codexConnected: guide.agents.rows.some(row => row.agent === "codex" && row.connected)
    readonly property var allSteps: ["welcome", "agents", "codex", "try", "terminal"]
    property int step: 0
    readonly property string stepName: steps[Math.min(step, steps.length - 1)]

    title: qsTr("Mirrowisp Setup Guide")
    width: 620
    height: 520
    minimumWidth: 480
    minimumHeight: 420

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 20
        spacing: 12

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: window.allSteps.indexOf(window.stepName)

            ColumnLayout {
                spacing: 12
                Label {
                    text: qsTr("Welcome to Mirrowisp")
                    font.pointSize: 18
                    font.bold: true
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: qsTr("The island at the top of your screen shows every agent session you run: what each one is doing, and when one needs you. Answer its permission requests, questions and plans right there, and click a session to jump back to its terminal.")
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    opacity: 0.7
                    text: qsTr("Rest the pointer on the island to open it. Everything stays on this machine.")
                }
                Item {
                    Layout.fillHeight: true
                }
            }
            ScrollView {
                id: agentsStep
                contentWidth: availableWidth
                clip: true
                ColumnLayout {
                    width: agentsStep.availableWidth
                    spacing: 8
                    Label {
                        text: qsTr("Your agents")
                        font.pointSize: 14
                        font.bold: true
                    }
                    Label {
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: qsTr("Mirrowisp hears from an agent through its hooks. Connect the agents you use.")
                    }
                    BusyIndicator {
                        visible: !window.guide.agents.loaded
                        running: visible
                    }
                    Label {
                        objectName: "noAgents"
                        visible: window.guide.agents.loaded && !window.guide.agents.rows.some(row => row.detected)
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        text: qsTr("No agent was found on this machine. Install one, then connect it here or in Settings.")
                    }
                    Repeater {
                        model: window.guide.agents.rows.filter(row => row.detected)
                        // qmllint disable unqualified
                        delegate: AgentRow {
                            agents: window.guide.agents
                        }
                        // qmllint enable unqualified
                    }
                }
            }
            ColumnLayout {
                spacing: 12
                Label {
                    text: qsTr("Trust the hooks in Codex")
                    font.pointSize: 14
                    font.bold: true
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: window.guide.agents.codexStatus !== "ready" ? qsTr("Codex runs a hook only once you have trusted it.") : window.codexConnected ? qsTr("Codex runs Mirrowisp's hooks. Nothing to do here.") : qsTr("Connect Codex on the previous page; Codex then asks you to trust the hooks.")
                }
                CodexTrust {
                    agents: window.guide.agents
                }
                Item {
                    Layout.fillHeight: true
                }
            }
            ColumnLayout {
                spacing: 12
                Label {
                    text: qsTr("Try it")
                    font.pointSize: 14
                    font.bold: true
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: qsTr("Put a sample permission request in the island and answer it there, as you will answer your agents. No agent receives it.")
                }
                Button {
                    objectName: "tryIt"
                    text: window.guide.sampleState === "answered" ? qsTr("Try Again") : qsTr("Try It")
                    enabled: window.guide.sampleState !== "waiting"
                    onClicked: window.guide.tryIt()
                }
                Label {
                    objectName: "sampleState"
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    font.bold: window.guide.sampleState === "answered"
                    text: window.guide.sampleState === "waiting" ? qsTr("The request waits in the island: open it and click Allow or Deny.") : window.guide.sampleState === "answered" ? qsTr("Answered. That is all it takes.") : ""
                }
                Item {
                    Layout.fillHeight: true
                }
            }
            ColumnLayout {
                spacing: 12
                Label {
                    text: qsTr("From the terminal")
                    font.pointSize: 14
                    font.bold: true
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    text: qsTr("Everything the island does is also a command:")
                }
                TextArea {
                    Layout.fillWidth: true
                    readOnly: true
                    font.family: "monospace"
                    text: window.guide.ctlUsage
                }
                Item {
                    Layout.fillHeight: true
                }
            }
        }
        RowLayout {
            Layout.fillWidth: true
            PageIndicator {
                count: window.steps.length
                currentIndex: window.step
            }
            Item {
                Layout.fillWidth: true
            }
            Button {
                objectName: "back"
                text: qsTr("Back")
                enabled: window.step > 0
                onClicked: window.step -= 1
            }
            Button {
                objectName: "next"
                visible: window.step < window.steps.length - 1
                highlighted: true
                text: qsTr("Next")
                onClicked: {
                    window.step += 1;
                    if (window.stepName === "agents")
                        window.guide.agents.refresh();
                }
            }
            Button {
                objectName: "finish"
                visible: window.step === window.steps.length - 1
                highlighted: true
                text: qsTr("Finish")
                onClicked: window.guide.finish()
            }
        }
    }
}
