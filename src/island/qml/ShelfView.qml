import QtQuick
import Mirrowisp

// The shelf tab: files dropped on the island wait here as tiles, to be opened, dragged out again
// into any application, or removed.
Item {
    id: shelfView
    required property IslandControls controller
    implicitHeight: 132

    Rectangle {
        anchors.fill: parent
        anchors.margins: 6
        radius: 14
        color: "transparent"
        border.color: Qt.rgba(1, 1, 1, 0.18)
        border.width: 1
        visible: Shelf.count === 0
        Column {
            anchors.centerIn: parent
            spacing: 6
            SymbolIcon { anchors.horizontalCenter: parent.horizontalCenter; name: "tray.fill"; size: 18; color: Qt.rgba(1, 1, 1, 0.6) }
            Text {
                text: "Drop files here to keep them at hand"
                color: Qt.rgba(1, 1, 1, 0.6)
                font.pixelSize: 12
            }
        }
    }

    ListView {
        id: tiles
        anchors.fill: parent
        anchors.margins: 6
        orientation: ListView.Horizontal
        spacing: 8
        clip: true
        model: Shelf
        visible: Shelf.count > 0
        // qmllint disable unqualified
        delegate: ShelfTile {
            onMenuRequested: (entry, isStack, x, y) => {
                menu.entryId = entry
                menu.entries = isStack ? ["Open", "Show in Folder", "Split Stack", "Remove", "Clear Shelf"]
                                       : ["Open", "Show in Folder", "Remove", "Clear Shelf"]
                const at = mapToItem(shelfView, x, y)
                menu.popupAt(at.x, at.y)
            }
        }
        // qmllint enable unqualified
    }

    ContextMenu {
        id: menu
        property string entryId
        controller: shelfView.controller
        onChosen: index => {
            const action = menu.entries[index]
            if (action === "Open") {
                Shelf.open(menu.entryId)
            } else if (action === "Show in Folder") {
                Shelf.showInFolder(menu.entryId)
            } else if (action === "Split Stack") {
                Shelf.split(menu.entryId)
            } else if (action === "Remove") {
                Shelf.remove(menu.entryId)
            } else if (action === "Clear Shelf") {
                Shelf.clear()
            }
        }
    }
}
