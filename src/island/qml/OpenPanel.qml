import QtQuick
import Mirrowisp

// The open island: tabs and usage meters in the header, the selected tab below. It measures itself
// and tells the model, which animates the outline to that size.
Item {
    id: panel
    required property NotchViewModel island
    required property NotchRootModel content
    required property AgentsViewModel agents
    required property IslandUsageModel usage
    required property IslandShell shell
    required property IslandControls controller

    readonly property real panelWidth: 668
    readonly property real maxHeight: 540
    readonly property real headerHeight: Math.max(island.notchSize.height, 28)
    readonly property real padding: 14

    width: panelWidth - 28
    height: Math.min(maxHeight, headerHeight + tabBody.implicitHeight + padding + 6)
    onHeightChanged: report()
    Component.onCompleted: report()
    Connections {
        target: panel.island
        function onTabChanged() { panel.report() }
    }
    function report() {
        island.setOpenSize(Qt.size(panelWidth, height), island.tab)
    }

    PanelHeader {
        id: header
        island: panel.island
        content: panel.content
        usage: panel.usage
        shell: panel.shell
        width: parent.width
        height: panel.headerHeight
        opacity: 0
        onMenuRequested: (x, y) => appMenu.popupAt(x, y)
        NumberAnimation {
            target: header; property: "opacity"; running: true
            from: 0; to: 1
            duration: NotchAnimation.duration("header") + NotchAnimation.delay("header")
            easing: NotchAnimation.curve("header")
        }
    }

    Flickable {
        id: tabBody
        y: panel.headerHeight + 6
        width: parent.width
        height: parent.height - y - panel.padding
        contentHeight: tabLoader.implicitHeight
        implicitHeight: tabLoader.implicitHeight
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        opacity: 0
        NumberAnimation {
            target: tabBody; property: "opacity"; running: true
            from: 0; to: 1
            duration: NotchAnimation.duration("content") + NotchAnimation.delay("content")
            easing: NotchAnimation.curve("content")
        }

        Loader {
            id: tabLoader
            width: tabBody.width
            sourceComponent: panel.island.tab === "agents" ? agentsTab : panel.island.tab === "shelf" ? shelfTab : homeTab
        }
    }

    // qmllint disable unqualified
    Component {
        id: homeTab
        HomeView { width: tabBody.width; island: panel.island; content: panel.content; agents: panel.agents; usage: panel.usage }
    }
    Component {
        id: agentsTab
        AgentsView {
            width: tabBody.width
            agents: panel.agents
            shell: panel.shell
            controller: panel.controller
        }
    }
    Component { id: shelfTab; ShelfView { width: tabBody.width; controller: panel.controller } }
    // qmllint enable unqualified

    ContextMenu {
        id: appMenu
        objectName: "appMenu"
        controller: panel.controller
        entries: ["Settings…", "Setup Guide…", "Quit Mirrowisp"]
        onChosen: index => {
            panel.controller.closeIsland()
            if (index === 0) {
                panel.shell.openSettings("")
            } else if (index === 1) {
                panel.shell.openSetupGuide()
            } else {
                panel.shell.quitApp()
            }
        }
    }
}
