import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

// What was allowed, denied or answered, newest first, and the rules that let agents skip asking.
SettingsPage {
    id: page
    required property SettingsDecisions decisions

    // Read again whenever the page comes into view: the log grows and rules change behind our back.
    onVisibleChanged: if (visible)
        decisions.refresh()

    PageHeading {
        text: qsTr("Decisions")
    }
    RowLayout {
        Layout.fillWidth: true
        spacing: 8
        Label {
            text: qsTr("Agent")
        }
        ComboBox {
            objectName: "decisionsAgent"
            implicitWidth: 150
            model: page.decisions.agents.map(name => name || qsTr("All agents"))
            currentIndex: page.decisions.agents.indexOf(page.decisions.agentFilter)
            onActivated: index => page.decisions.agentFilter = page.decisions.agents[index]
        }
        Label {
            text: qsTr("Outcome")
        }
        ComboBox {
            objectName: "decisionsOutcome"
            implicitWidth: 180
            model: page.decisions.outcomes.map(name => name || qsTr("All outcomes"))
            currentIndex: page.decisions.outcomes.indexOf(page.decisions.outcomeFilter)
            onActivated: index => page.decisions.outcomeFilter = page.decisions.outcomes[index]
        }
        Item {
            Layout.fillWidth: true
        }
    }
    BusyIndicator {
        visible: !page.decisions.recordsLoaded
        running: visible
    }
    Label {
        objectName: "decisionsEmpty"
        visible: page.decisions.recordsLoaded && page.decisions.records.length === 0
        opacity: 0.65
        text: qsTr("No decisions recorded yet.")
    }
    Repeater {
        model: page.decisions.records
        // qmllint disable unqualified
        delegate: ColumnLayout {
            id: record
            required property var modelData
            required property int index
            objectName: "decision." + index
            Layout.fillWidth: true
            spacing: 1
            Label {
                Layout.fillWidth: true
                elide: Text.ElideRight
                font.bold: true
                text: record.modelData.outcome + " · " + record.modelData.name + (record.modelData.tool ? " · " + record.modelData.tool : "")
            }
            Label {
                Layout.fillWidth: true
                elide: Text.ElideRight
                text: record.modelData.summary + (record.modelData.answer ? " → " + record.modelData.answer : "")
            }
            Label {
                Layout.fillWidth: true
                elide: Text.ElideMiddle
                opacity: 0.6
                font.pointSize: 8.5
                text: record.modelData.time + " · " + qsTr("by %1").arg(record.modelData.route) + (record.modelData.project ? " · " + record.modelData.project : "")
            }
        }
        // qmllint enable unqualified
    }
    Label {
        visible: page.decisions.truncated
        opacity: 0.65
        text: qsTr("Older decisions: mirrowisp ctl log")
    }

    PageHeading {
        text: qsTr("Always-allow rules")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: qsTr("Rules in the agents' own settings that let them run a tool without asking. Removing one edits the agent's file after a backup.")
    }
    Label {
        objectName: "ruleMessage"
        visible: text.length > 0
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        text: page.decisions.ruleMessage
    }
    Label {
        visible: page.decisions.rulesLoaded && page.decisions.rules.length === 0
        opacity: 0.65
        text: qsTr("No always-allow rules.")
    }
    Repeater {
        model: page.decisions.rules
        // qmllint disable unqualified
        delegate: RowLayout {
            id: rule
            required property var modelData
            Layout.fillWidth: true
            spacing: 10
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 1
                Label {
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    font.family: "monospace"
                    text: rule.modelData.readable ? rule.modelData.rule : qsTr("Unreadable: %1").arg(rule.modelData.problem)
                }
                Label {
                    Layout.fillWidth: true
                    elide: Text.ElideMiddle
                    opacity: 0.6
                    font.pointSize: 8.5
                    text: rule.modelData.name + " · " + rule.modelData.scope + (rule.modelData.project ? " · " + rule.modelData.project : "")
                }
            }
            Button {
                objectName: "removeRule." + rule.modelData.id
                visible: rule.modelData.readable
                text: qsTr("Remove")
                onClicked: page.decisions.removeRule(rule.modelData.id)
            }
        }
        // qmllint enable unqualified
    }
}
