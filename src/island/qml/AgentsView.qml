import QtQuick
import Mirrowisp

// The agents tab: a notice while Codex will not run the hooks, then every visible session with the
// card of what it waits for.
Column {
    id: agentsView
    required property AgentsViewModel agents
    required property IslandShell shell
    required property IslandControls controller
    spacing: 8
    Component.onCompleted: agents.refreshCodexApproval()

    CodexApprovalNotice {
        width: agentsView.width
        readonly property CodexApprovalNoticeModel notice: agentsView.agents.codexNotice as CodexApprovalNoticeModel
        visible: notice.visible
        title: notice.title
        text: notice.text
        onOpenSettings: {
            agentsView.shell.openSettings("agents")
            agentsView.controller.closeIsland()
        }
    }

    Timer {
        // Ages read "now", then minutes: refreshed only while the tab shows.
        interval: 30000
        running: agentsView.visible
        repeat: true
        onTriggered: agentsView.agents.refreshAges()
    }

    EmptyAgentsView {
        width: agentsView.width
        visible: sessionList.count === 0
    }

    Repeater {
        id: sessionList
        model: agentsView.agents.sessions
        // qmllint disable unqualified
        delegate: Column {
            id: entry
            required property string sessionKey
            required property string agent
            required property string project
            required property string subtitle
            required property string activity
            required property string age
            required property string badge
            required property int subagents
            required property string hostLine
            required property string decisionID
            required property string decisionKind
            width: agentsView.width
            spacing: 6

            SessionRow {
                width: parent.width
                agents: agentsView.agents
                controller: agentsView.controller
                sessionKey: entry.sessionKey
                agent: entry.agent
                project: entry.project
                subtitle: entry.subtitle
                activity: entry.activity
                age: entry.age
                badge: entry.badge
                subagents: entry.subagents
                hostLine: entry.hostLine
            }
            DecisionCard {
                width: parent.width
                agents: agentsView.agents
                shell: agentsView.shell
                visible: entry.decisionID !== ""
                decisionID: entry.decisionID
                kind: entry.decisionKind
            }
        }
        // qmllint enable unqualified
    }
}
