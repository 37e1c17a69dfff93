import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

SettingsPage {
    id: page
    required property var prefs
    required property SettingsAgentList agents
    required property SettingsAgentHealth health
    property SettingsRemoteHosts remoteHosts: null

    // Read again whenever the page comes into view: hooks change behind the app's back.
    onVisibleChanged: if (visible) {
        agents.refresh();
        health.refresh();
    }

    PageHeading {
        text: qsTr("Agents")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: qsTr("Connect puts Mirrowisp's hooks into the agent's settings; the switch decides whether the island follows its sessions.")
    }
    CodexTrust {
        agents: page.agents
    }
    BusyIndicator {
        visible: !page.agents.loaded
        running: visible
    }
    Repeater {
        model: page.agents.rows
        // qmllint disable unqualified
        delegate: AgentRow {
            agents: page.agents
            prefs: page.prefs
            health: page.health
        }
        // qmllint enable unqualified
    }
    RemoteHostsSection {
        visible: page.remoteHosts !== null && page.remoteHosts.available
        hosts: page.remoteHosts
    }
}
