import QtQuick
import Mirrowisp

// Tabs on the left, the agents' usage meters on the right; the middle stays clear for the notch.
Item {
    id: header
    required property NotchViewModel island
    required property NotchRootModel content
    required property IslandUsageModel usage
    required property IslandShell shell
    // The app's own menu (settings, setup guide, quit): on desktops without a tray it is the only way.
    signal menuRequested(real x, real y)

    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.RightButton
        onClicked: mouse => header.menuRequested(mouse.x, mouse.y)
    }

    Row {
        id: tabs
        anchors.left: parent.left
        anchors.verticalCenter: parent.verticalCenter
        spacing: 4
        Repeater {
            model: header.content.tabs
            // qmllint disable unqualified
            delegate: Rectangle {
                id: tabButton
                required property string modelData
                readonly property bool selected: header.island.tab === modelData
                readonly property int badge: header.content.badges[modelData] || 0
                width: tabRow.width + 16
                height: 24
                radius: 12
                color: selected ? Qt.rgba(1, 1, 1, 0.16) : (tabMouse.containsMouse ? Qt.rgba(1, 1, 1, 0.08) : "transparent")
                Row {
                    id: tabRow
                    anchors.centerIn: parent
                    spacing: 5
                    SymbolIcon {
                        anchors.verticalCenter: parent.verticalCenter
                        name: tabButton.modelData === "home" ? "house.fill"
                            : tabButton.modelData === "agents" ? "sparkles" : "tray.fill"
                        color: tabButton.selected ? "white" : Qt.rgba(1, 1, 1, 0.6)
                        size: 12
                    }
                    Badge {
                        anchors.verticalCenter: parent.verticalCenter
                        count: tabButton.badge
                        visible: tabButton.badge > 0
                    }
                }
                MouseArea {
                    id: tabMouse
                    anchors.fill: parent
                    hoverEnabled: true
                    onClicked: header.island.selectTabNamed(tabButton.modelData)
                }
            }
            // qmllint enable unqualified
        }
        Rectangle {
            id: menuButton
            objectName: "appMenuButton"
            width: 24
            height: 24
            radius: 12
            color: menuMouse.containsMouse ? Qt.rgba(1, 1, 1, 0.08) : "transparent"
            SymbolIcon {
                anchors.centerIn: parent
                name: "gearshape.fill"
                color: Qt.rgba(1, 1, 1, 0.6)
                size: 12
            }
            MouseArea {
                id: menuMouse
                anchors.fill: parent
                hoverEnabled: true
                onClicked: header.menuRequested(tabs.x + menuButton.x, menuButton.y + menuButton.height)
            }
        }
        // On the Home tab only: the Agents tab has its own ways to the settings.
        HookWarningMark {
            shell: header.shell
            visible: header.island.tab === "home" && drifted.length > 0
        }
    }

    UsageMeters {
        usage: header.usage
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        compact: true
    }
}
