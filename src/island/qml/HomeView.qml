import QtQuick
import Mirrowisp

// The home tab: the day, the agents at a glance and their limits, and below them what plays.
Item {
    id: home
    required property NotchViewModel island
    required property NotchRootModel content
    required property AgentsViewModel agents
    required property IslandUsageModel usage
    readonly property bool hasLevels: HudLevels.hasVolume || HudLevels.hasBrightness
    implicitHeight: 120 + (hasLevels ? levels.height + 8 : 0) + (NowPlaying.hasTrack ? 8 + nowPlaying.implicitHeight : 0)
                    + (widgetStack.visible ? 10 + widgetStack.implicitHeight : 0)

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
        // The battery, then each connected audio device with its icon and its own.
        Repeater {
            objectName: "homeDevices"
            model: {
                const devices = home.content.devices;
                const rows = [];
                if (devices.battery !== undefined)
                    rows.push({ text: (devices.charging ? "\u26a1 " : "") + qsTr("Battery %1%").arg(devices.battery), device: false, icon: "" });
                for (const device of (devices.bluetooth || [])) {
                    const text = device.battery !== undefined ? "%1 %2%".arg(device.name).arg(device.battery) : device.name;
                    rows.push({ text: text, device: true, icon: device.icon || "" });
                }
                return rows.slice(0, 3);
            }
            Row {
                id: deviceRow
                required property var modelData
                spacing: 4
                DeviceIcon {
                    visible: deviceRow.modelData.device
                    icon: deviceRow.modelData.icon
                    color: Qt.rgba(1, 1, 1, 0.55)
                    size: 11
                    anchors.verticalCenter: parent.verticalCenter
                }
                Text {
                    text: deviceRow.modelData.text
                    width: deviceRow.modelData.device ? 105 : 120
                    elide: Text.ElideRight
                    color: Qt.rgba(1, 1, 1, 0.55)
                    font.pixelSize: 11
                }
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

    Row {
        // The volume and the screen's brightness, where the machine has them; levels set elsewhere
        // are read again while the tab shows.
        id: levels
        visible: home.hasLevels
        anchors.left: parent.left
        anchors.leftMargin: 8
        anchors.right: parent.right
        anchors.top: summary.bottom
        anchors.topMargin: 8
        height: 22
        spacing: 24
        Timer {
            interval: 500
            running: home.visible && home.hasLevels
            repeat: true
            onTriggered: HudLevels.refresh()
        }
        LevelSlider {
            objectName: "volumeSlider"
            visible: HudLevels.hasVolume
            width: (levels.width - levels.spacing) / 2
            symbol: HudLevels.muted ? "speaker.slash" : "speaker.wave.3"
            level: HudLevels.volume
            onMoved: value => HudLevels.setVolume(value)
        }
        LevelSlider {
            objectName: "brightnessSlider"
            visible: HudLevels.hasBrightness
            width: (levels.width - levels.spacing) / 2
            symbol: "sun.max"
            level: HudLevels.brightness
            onMoved: value => HudLevels.setBrightness(value)
        }
    }

    NowPlayingPlayer {
        id: nowPlaying
        visible: NowPlaying.hasTrack
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.top: home.hasLevels ? levels.bottom : summary.bottom
        anchors.topMargin: 8
    }

    // The calendar and pull-request widgets, below everything else.
    HomeWidgetStack {
        id: widgetStack
        anchors.left: parent.left
        anchors.leftMargin: 8
        anchors.right: parent.right
        anchors.rightMargin: 8
        y: (NowPlaying.hasTrack ? nowPlaying.y + nowPlaying.height
            : home.hasLevels ? levels.y + levels.height : summary.y + summary.height) + 10
    }
}
