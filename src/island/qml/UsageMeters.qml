import QtQuick
import Mirrowisp

// The usage limits of the agents the island ranks first: a mark, then each limit as a thin bar.
Row {
    id: meters
    required property IslandUsageModel usage
    property bool compact: false
    spacing: 12

    Repeater {
        model: meters.usage.agents
        // qmllint disable unqualified
        delegate: Row {
            id: agentRow
            required property var modelData
            spacing: 6
            AgentMark {
                anchors.verticalCenter: parent.verticalCenter
                agent: agentRow.modelData.agent
                size: 14
            }
            Text {
                visible: agentRow.modelData.meters.length === 0
                anchors.verticalCenter: parent.verticalCenter
                text: agentRow.modelData.emptyText
                color: Qt.rgba(1, 1, 1, 0.5)
                font.pixelSize: 11
            }
            Repeater {
                model: agentRow.modelData.meters
                delegate: Column {
                    id: meter
                    required property var modelData
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 2
                    Row {
                        spacing: 4
                        Text {
                            text: meter.modelData.label
                            color: Qt.rgba(1, 1, 1, 0.6)
                            font.pixelSize: 10
                        }
                        Text {
                            text: meter.modelData.value
                            color: "white"
                            font.pixelSize: 10
                            font.weight: Font.DemiBold
                        }
                    }
                    LevelBar {
                        width: meters.compact ? 54 : 120
                        height: 3
                        level: meter.modelData.fraction
                        color: meter.modelData.severity === "critical" ? "#ff5a4f"
                             : meter.modelData.severity === "warning" ? "#ffb340" : "white"
                    }
                }
            }
        }
        // qmllint enable unqualified
    }
}
