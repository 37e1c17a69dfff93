import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

// One agent: found here or not, its connection in a sentence, Connect or Disconnect and what came of
// it, and (in the settings window) whether the island follows it at all.
Frame {
    id: row
    required property var modelData
    required property SettingsAgentList agents
    // The settings window's switch; the preferences, when it shows.
    property var prefs: null
    // The settings window's hook doctor; the setup guide has none.
    property SettingsAgentHealth health: null
    readonly property var doctor: health ? (health.byAgent[agent] || null) : null
    // An agent not on this machine has no hooks to miss.
    readonly property bool showHealth: doctor !== null && (modelData.detected || doctor.hooks !== "missing")

    readonly property string agent: modelData.agent
    Layout.fillWidth: true

    ColumnLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        spacing: 6

        RowLayout {
            Layout.fillWidth: true
            spacing: 10
            Rectangle {
                Layout.preferredWidth: 10
                Layout.preferredHeight: 10
                radius: 5
                color: row.modelData.accent
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                Label {
                    text: row.modelData.name
                    font.bold: true
                }
                Label {
                    objectName: "summary." + row.agent
                    Layout.fillWidth: true
                    wrapMode: Text.WordWrap
                    opacity: 0.7
                    text: row.modelData.detected ? row.modelData.summary : row.modelData.setup === "notInstalled" ? qsTr("Not found on this machine") : qsTr("Not found on this machine. ") + row.modelData.summary
                }
            }
            BusyIndicator {
                visible: row.modelData.working
                running: visible
                implicitWidth: 24
                implicitHeight: 24
            }
            Button {
                objectName: "connect." + row.agent
                enabled: !row.modelData.working
                text: row.modelData.connected ? qsTr("Disconnect") : qsTr("Connect")
                onClicked: row.agents.setConnected(row.agent, !row.modelData.connected)
            }
            Switch {
                objectName: "agentEnabled." + row.agent
                visible: row.prefs !== null
                checked: row.prefs !== null && row.prefs.agentsEnabled[row.agent] !== false
                ToolTip.visible: hovered
                ToolTip.text: qsTr("Show this agent's sessions in the island")
                onToggled: {
                    const map = row.prefs.agentsEnabled;
                    map[row.agent] = checked;
                    row.prefs.agentsEnabled = map;
                    checked = Qt.binding(() => row.prefs !== null && row.prefs.agentsEnabled[row.agent] !== false);
                }
            }
        }
        RowLayout {
            visible: row.showHealth
            Layout.fillWidth: true
            spacing: 10
            Label {
                objectName: "health." + row.agent
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                opacity: 0.8
                text: row.showHealth ? [qsTr("Hooks: %1").arg(row.doctor.hooks), row.doctor.events, row.doctor.lastEvent ? qsTr("last event %1").arg(row.doctor.lastEvent) : "", row.doctor.roundTrip].filter(part => part.length > 0).join(" · ") : ""
            }
            Button {
                objectName: "repair." + row.agent
                // Missing hooks of an agent not connected are what Connect is for.
                visible: row.showHealth && row.doctor.canRepair && (row.doctor.hooks === "drifted" || row.modelData.connected)
                enabled: row.doctor !== null && !row.doctor.working
                text: qsTr("Repair")
                onClicked: row.health.repair(row.agent)
            }
        }
        Label {
            objectName: "repairMessage." + row.agent
            visible: text.length > 0
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: row.doctor && row.doctor.message ? row.doctor.message : ""
        }
        Label {
            objectName: "message." + row.agent
            visible: text.length > 0
            Layout.fillWidth: true
            wrapMode: Text.WordWrap
            text: row.modelData.message || ""
        }
        Repeater {
            model: row.modelData.steps
            delegate: Label {
                required property string modelData
                required property int index
                Layout.fillWidth: true
                wrapMode: Text.WordWrap
                textFormat: Text.MarkdownText
                text: (index + 1) + ". " + modelData
            }
        }
        RowLayout {
            visible: row.modelData.file.length > 0
            Button {
                text: qsTr("Show File")
                onClicked: row.agents.showFile(row.modelData.file)
            }
            Button {
                text: qsTr("Try Again")
                onClicked: row.agents.refresh()
            }
        }
    }
}
