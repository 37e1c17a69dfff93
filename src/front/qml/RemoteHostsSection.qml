import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

// Agents on other machines: the hosts set up over SSH, each with its state and last message, Remove,
// and a field to add one.
ColumnLayout {
    id: section
    property SettingsRemoteHosts hosts: null
    Layout.fillWidth: true
    spacing: 8

    PageHeading {
        text: qsTr("Remote hosts")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: qsTr("Agents on a machine you reach with SSH report here too: adding a host copies the hook tool to ~/.mirrowisp there and installs the agents' hooks, with backups. Your own SSH keys and configuration are used; Mirrowisp never types a password.")
    }
    Repeater {
        model: section.hosts ? section.hosts.rows : []
        // qmllint disable unqualified
        delegate: Frame {
            id: hostRow
            required property var modelData
            Layout.fillWidth: true
            RowLayout {
                anchors.left: parent.left
                anchors.right: parent.right
                spacing: 10
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        text: hostRow.modelData.destination
                        font.bold: true
                    }
                    Label {
                        objectName: "remote.state." + hostRow.modelData.destination
                        Layout.fillWidth: true
                        opacity: 0.7
                        // Set up, then what the link to the host says once there is one.
                        text: hostRow.modelData.setup !== "ready" ? hostRow.modelData.setup : hostRow.modelData.connection === "unknown" ? qsTr("set up") : hostRow.modelData.connection
                    }
                    Label {
                        objectName: "remote.message." + hostRow.modelData.destination
                        Layout.fillWidth: true
                        wrapMode: Text.WordWrap
                        visible: text.length > 0
                        text: hostRow.modelData.message
                    }
                }
                BusyIndicator {
                    visible: hostRow.modelData.setup === "adding" || hostRow.modelData.setup === "removing"
                    running: visible
                    implicitWidth: 24
                    implicitHeight: 24
                }
                Button {
                    objectName: "remote.remove." + hostRow.modelData.destination
                    // A host that could not be reached for removal is then only forgotten here.
                    text: hostRow.modelData.unreachable ? qsTr("Forget") : qsTr("Remove")
                    enabled: hostRow.modelData.setup !== "adding" && hostRow.modelData.setup !== "removing"
                    onClicked: section.hosts.remove(hostRow.modelData.destination)
                }
            }
        }
        // qmllint enable unqualified
    }
    RowLayout {
        Layout.fillWidth: true
        TextField {
            id: hostField
            objectName: "remote.host"
            Layout.fillWidth: true
            placeholderText: qsTr("user@host")
            onAccepted: addButton.clicked()
        }
        Button {
            id: addButton
            objectName: "remote.add"
            text: qsTr("Add")
            enabled: hostField.text.trim().length > 0
            onClicked: if (section.hosts && section.hosts.add(hostField.text)) {
                hostField.text = "";
            }
        }
    }
    Label {
        objectName: "remote.error"
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        visible: text.length > 0
        color: "#c0392b"
        text: section.hosts ? section.hosts.error : ""
    }
}
