import QtQuick
import Mirrowisp

// One wing of the closed island, drawn from the description the content model gives for it.
Item {
    id: wingView
    property var wing: ({})
    property bool leading: true
    property real inset: 0
    property real collapseOffset: 0
    property bool collapsed: false
    readonly property string kind: wing && wing.kind ? wing.kind : "none"

    opacity: collapsed ? 0 : 1
    // Collapsing eases in quickly; coming back springs out.
    readonly property int motionDuration: NotchAnimation.duration(collapsed ? "wingCollapse" : "wingReturn")
    transform: [
        Scale {
            origin.x: wingView.width / 2
            origin.y: wingView.height / 2
            xScale: wingView.collapsed ? 0.4 : 1
            yScale: wingView.collapsed ? 0.4 : 1
            Behavior on xScale { NumberAnimation { duration: wingView.motionDuration; easing: wingView.motionCurve } }
            Behavior on yScale { NumberAnimation { duration: wingView.motionDuration; easing: wingView.motionCurve } }
        },
        Translate {
            x: wingView.collapseOffset
            Behavior on x { NumberAnimation { duration: wingView.motionDuration; easing: wingView.motionCurve } }
        }
    ]
    readonly property var motionCurve: NotchAnimation.curve(collapsed ? "wingCollapse" : "wingReturn")
    Behavior on opacity { NumberAnimation { duration: wingView.motionDuration } }

    Item {
        id: frame
        anchors.fill: parent
        anchors.leftMargin: wingView.leading ? wingView.inset : 0
        anchors.rightMargin: wingView.leading ? 0 : wingView.inset

        Loader {
            id: body
            anchors.verticalCenter: parent.verticalCenter
            anchors.left: wingView.leading ? parent.left : undefined
            anchors.right: wingView.leading ? undefined : parent.right
            sourceComponent: {
                switch (wingView.kind) {
                case "symbol": return symbolView
                case "agentMark": return agentMarkView
                case "agentStack": return agentStackView
                case "activityGrid": return activityView
                case "levelBar": return levelView
                case "text": return textView
                case "calendarGlyph": return calendarView
                case "waveform": return waveformView
                case "artwork": return artworkView
                case "successCheck": return successView
                case "batteryRing": return batteryView
                default: return null
                }
            }
            // A new content replaces the old one rather than morphing it.
            property string identity: wingView.wing && wingView.wing.identity ? wingView.wing.identity : ""
            onIdentityChanged: appear.restart()
            NumberAnimation {
                id: appear
                target: body
                property: "opacity"
                from: 0
                to: 1
                duration: 220
                easing.type: Easing.OutCubic
            }
        }
    }

    // qmllint disable unqualified
    Component {
        id: symbolView
        Loader {
            sourceComponent: wingView.wing.wiggle ? wiggling : still
            Component {
                id: still
                SymbolIcon {
                    name: wingView.wing.symbol || ""
                    color: wingView.wing.color || "white"
                    size: wingView.wing.size || 12
                }
            }
            Component {
                id: wiggling
                WiggleSymbol {
                    name: wingView.wing.symbol || ""
                    color: wingView.wing.color || "white"
                    size: wingView.wing.size || 12
                    running: !wingView.collapsed
                }
            }
        }
    }
    Component {
        id: agentMarkView
        AgentMark { agent: wingView.wing.agent || "claude"; size: 18 }
    }
    Component {
        id: agentStackView
        AgentStack { agents: wingView.wing.agents || []; size: 18 }
    }
    Component {
        id: activityView
        Row {
            spacing: 4
            Text {
                visible: !!wingView.wing.text
                text: wingView.wing.text || ""
                color: "white"
                font.pixelSize: wingView.wing.size || 11
                font.weight: Font.DemiBold
                anchors.verticalCenter: parent.verticalCenter
            }
            ActivityGrid { running: wingView.visible && !wingView.collapsed; anchors.verticalCenter: parent.verticalCenter }
        }
    }
    Component {
        id: levelView
        LevelBar { level: wingView.wing.level || 0; color: wingView.wing.color || "white" }
    }
    Component {
        id: textView
        Text {
            text: wingView.wing.text || ""
            color: wingView.wing.color || "white"
            font.pixelSize: 12
            font.weight: Font.DemiBold
        }
    }
    Component {
        id: calendarView
        CalendarGlyph { size: 16; day: new Date().getDate() }
    }
    Component {
        id: waveformView
        Waveform {
            playing: wingView.visible && !wingView.collapsed && NowPlaying.isPlaying
            colors: [NowPlaying.accent, NowPlaying.secondColor]
        }
    }
    Component {
        id: artworkView
        Item {
            width: 18
            height: 18
            // A device's picture is its theme icon or glyph; a track's is its cover.
            CoverArt { visible: !wingView.wing.symbol; size: 18; radius: 4 }
            DeviceIcon {
                visible: !!wingView.wing.symbol
                anchors.centerIn: parent
                icon: wingView.wing.icon || ""
                fallback: wingView.wing.symbol || ""
                size: 16
            }
        }
    }
    Component {
        id: successView
        SuccessCheck {}
    }
    Component {
        id: batteryView
        BatteryRing { percent: wingView.wing.level || 0 }
    }
    // qmllint enable unqualified
}
