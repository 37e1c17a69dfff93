import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

SettingsPage {
    id: page
    required property var prefs
    required property SettingsModel settings

    function setShown(agent, shown) {
        const kinds = page.settings.usageRows.map(row => row.agent);
        prefs.usageAgents = kinds.filter(kind => kind === agent ? shown : prefs.usageAgents.includes(kind));
    }

    PageHeading {
        text: qsTr("Usage limits in the island")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: page.prefs.usageAgents.length === 0 ? qsTr("None chosen: the island shows the agents you used most this week.") : qsTr("The island shows the meters of the agents ticked here.")
    }
    Repeater {
        model: page.settings.usageRows
        // qmllint disable unqualified
        delegate: ColumnLayout {
            id: usageRow
            required property var modelData
            Layout.fillWidth: true
            spacing: 4
            CheckBox {
                objectName: "usage." + usageRow.modelData.agent
                text: usageRow.modelData.name
                checked: page.prefs.usageAgents.includes(usageRow.modelData.agent)
                onToggled: {
                    page.setShown(usageRow.modelData.agent, checked);
                    checked = Qt.binding(() => page.prefs.usageAgents.includes(usageRow.modelData.agent));
                }
            }
            Label {
                visible: usageRow.modelData.meters.length === 0
                Layout.leftMargin: 28
                opacity: 0.6
                text: usageRow.modelData.noData
            }
            Repeater {
                model: usageRow.modelData.meters
                delegate: RowLayout {
                    id: meter
                    required property var modelData
                    Layout.leftMargin: 28
                    Layout.fillWidth: true
                    Label {
                        Layout.preferredWidth: 90
                        text: meter.modelData.label
                    }
                    ProgressBar {
                        Layout.fillWidth: true
                        from: 0
                        to: 100
                        value: meter.modelData.percent
                    }
                    Label {
                        Layout.preferredWidth: 90
                        text: meter.modelData.text.length > 0 ? meter.modelData.text : Math.round(meter.modelData.percent) + " %"
                    }
                }
            }
        }
        // qmllint enable unqualified
    }
}
