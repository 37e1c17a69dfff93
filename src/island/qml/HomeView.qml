import QtQuick
import Mirrowisp

// The home tab: the day, the agents at a glance and their limits, and below them what plays.
Item {
    id: home
    required property NotchViewModel island
    required property NotchRootModel content
    required property AgentsViewModel agents
    required property IslandUsageModel usage
    implicitHeight: NowPlaying.hasTrack ? 120 + 8 + nowPlaying.implicitHeight : 120

    property date now: new Date()
    Timer {
        // Only while the panel is open: the tab is unloaded when the island closes.
        interval: 15000
        running: home.visible
        repeat: true
        onTriggered: home.now = new Date()
    }

    Column {
        id: day
        anchors.left: parent.left
        anchors.leftMargin: 8
        anchors.top: parent.top
        anchors.topMargin: 8
        spacing: 2
        Text {
            text: Qt.formatDate(home.now, "dddd")
            color: Qt.rgba(1, 1, 1, 0.55)
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
        Text {
            text: Qt.formatDate(home.now, "d MMMM")
            color: "white"
            font.pixelSize: 22
            font.weight: Font.Bold
        }
        Text {
            text: Qt.formatTime(home.now, "hh:mm")
            color: Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 13
        }
        // The battery, then each connected audio device with its own.
        Repeater {
            objectName: "homeDevices"
            model: {
                const devices = home.content.devices;
                const rows = [];
                if (devices.battery !== undefined)
                    rows.push((devices.charging ? "\u26a1 " : "") + qsTr("Battery %1%").arg(devices.battery));
                for (const device of (devices.bluetooth || []))
                    rows.push(device.battery !== undefined ? "%1 %2%".arg(device.name).arg(device.battery) : device.name);
                return rows.slice(0, 3);
            }
            Text {
                required property string modelData
                text: modelData
                width: 120
                elide: Text.ElideRight
                color: Qt.rgba(1, 1, 1, 0.55)
                font.pixelSize: 11
            }
        }
    }

    Rectangle {
        id: summary
        anchors.left: day.right
        anchors.leftMargin: 24
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.topMargin: 6
        height: 104
        radius: 14
        color: Qt.rgba(1, 1, 1, 0.06)

        Column {
            anchors.fill: parent
            anchors.margins: 12
            spacing: 10
            Row {
                spacing: 8
                SymbolIcon { name: "sparkles"; size: 13; color: "white"; anchors.verticalCenter: parent.verticalCenter }
                Text {
                    text: home.agents.summary
                    color: "white"
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                    elide: Text.ElideRight
                    width: summary.width - 60
                }
            }
            UsageMeters { usage: home.usage; compact: false }
        }
        MouseArea {
            anchors.fill: parent
            cursorShape: Qt.PointingHandCursor
            onClicked: home.island.selectTabNamed("agents")
        }
    }

    NowPlayingPlayer {
        id: nowPlaying
        visible: NowPlaying.hasTrack
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: summary.bottom
        anchors.topMargin: 8
    }
}
