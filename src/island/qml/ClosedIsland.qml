import QtQuick
import Mirrowisp

// The closed island: left wing, a clear spacer over the notch, right wing. While the island is
// open the wings slide in behind the notch and shrink (they stay, collapsed, under the panel).
Item {
    id: closedIsland
    required property NotchViewModel island
    required property NotchRootModel content
    property bool collapsed: false
    readonly property real wingWidth: content.wingWidth
    readonly property real spacer: Math.max(0, island.notchSize.width - 12)
    readonly property real outerInset: Math.max(0, (island.notchSize.height - 16) / 2 - 4)

    width: 2 * wingWidth + spacer
    visible: wingWidth > 0

    WingView {
        id: lead
        wing: closedIsland.content.leftWing
        x: 0
        width: closedIsland.wingWidth
        height: parent.height
        leading: true
        inset: closedIsland.outerInset
        collapseOffset: closedIsland.collapsed ? 0.75 * closedIsland.wingWidth : 0
        collapsed: closedIsland.collapsed
    }

    WingView {
        id: trail
        wing: closedIsland.content.rightWing
        x: closedIsland.wingWidth + closedIsland.spacer
        width: closedIsland.wingWidth
        height: parent.height
        leading: false
        inset: closedIsland.outerInset
        collapseOffset: closedIsland.collapsed ? -0.75 * closedIsland.wingWidth : 0
        collapsed: closedIsland.collapsed
    }
}
