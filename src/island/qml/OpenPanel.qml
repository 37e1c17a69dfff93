import QtQuick
import Mirrowisp

// The open island: tabs and usage meters in the header, the selected tab below. It measures itself
// and tells the model, which animates the outline to that size.
Item {
    id: panel
    readonly property real panelWidth: 668
    readonly property real maxHeight: 540
    readonly property real headerHeight: Math.max(island.notchSize.height, 28)
    readonly property real padding: 14

    width: panelWidth - 28
    height: Math.min(maxHeight, headerHeight + tabBody.implicitHeight + padding + 6)
    onHeightChanged: report()
    Component.onCompleted: report()
    Connections {
        target: island
        function onTabChanged() { panel.report() }
    }
    function report() {
        island.setOpenSize(Qt.size(panelWidth, height), island.tab)
    }

    PanelHeader {
        id: header
        width: parent.width
        height: panel.headerHeight
        opacity: 0
        NumberAnimation on opacity {
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
        NumberAnimation on opacity {
            from: 0; to: 1
            duration: NotchAnimation.duration("content") + NotchAnimation.delay("content")
            easing: NotchAnimation.curve("content")
        }

        Loader {
            id: tabLoader
            width: tabBody.width
            sourceComponent: island.tab === "agents" ? agentsTab : island.tab === "shelf" ? shelfTab : homeTab
        }
    }

    Component { id: homeTab; HomeView { width: tabBody.width } }
    Component { id: agentsTab; AgentsView { width: tabBody.width } }
    Component { id: shelfTab; ShelfView { width: tabBody.width } }
}
