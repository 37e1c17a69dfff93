import QtQuick
import Mirrowisp

// The agents tab: a notice while Codex will not run the hooks, then every visible session with the
// card of what it waits for.
Column {
    id: agentsView
    spacing: 8
    Component.onCompleted: agents.refreshCodexApproval()

    CodexApprovalNotice {
        width: agentsView.width
        visible: agents.codexNotice.visible
        title: agents.codexNotice.title
        text: agents.codexNotice.text
    }

    Timer {
        // Ages read "now", then minutes: refreshed only while the tab shows.
        interval: 30000
        running: agentsView.visible
        repeat: true
        onTriggered: agents.refreshAges()
    }

    EmptyAgentsView {
        width: agentsView.width
        visible: sessionList.count === 0
    }

    Repeater {
        id: sessionList
        model: agents.sessions
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
                visible: entry.decisionID !== ""
                decisionID: entry.decisionID
                kind: entry.decisionKind
            }
        }
    }
}
