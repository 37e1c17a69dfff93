import QtQuick
import Mirrowisp

// The shelf tab: files dropped on the island wait here as tiles, to be opened, dragged out again
// into any application, or removed.
Item {
    id: shelfView
    required property IslandControls controller
    // A menu needs more room than a row of tiles; the panel grows while one shows.
    implicitHeight: menu.shown ? Math.max(132, menu.entries.length * 24 + 24) : 132

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
                const at = mapToItem(shelfView, x, y)
                shelfView.showMenu(entry, isStack, at.x, at.y, progress >= 0)
            }
        }
        // qmllint enable unqualified
    }

    // The top level, or the conversions, or the sessions: each a list of [title, action] pairs.
    property var actions: []
    function showMenu(entry, isStack, x, y, converting) {
        menu.entryId = entry
        menu.isStack = isStack
        menu.at = Qt.point(x, y)
        let list = [["Open", () => Shelf.open(entry)], ["Show in Folder", () => Shelf.showInFolder(entry)],
                    converting ? ["Cancel Conversion", () => Shelf.cancel(entry)]
                               : ["Convert…", () => showConversions(entry)]]
        if (Shelf.sessions().length > 0) {
            list[list.length] = ["Send to Agent…", () => showSessions(entry)]
        }
        if (isStack) {
            list[list.length] = ["Split Stack", () => Shelf.split(entry)]
        }
        list[list.length] = ["Remove", () => Shelf.remove(entry)]
        list[list.length] = ["Clear Shelf", () => Shelf.clear()]
        popup(list)
    }
    function showConversions(entry) {
        const offered = Shelf.conversions(entry)
        let list = []
        for (let i = 0; i < offered.length; ++i) {
            const key = offered[i].key
            list[list.length] = [offered[i].title, () => Shelf.convert(entry, key)]
        }
        popup(list)
    }
    function showSessions(entry) {
        const sessions = Shelf.sessions()
        let list = []
        for (let i = 0; i < sessions.length; ++i) {
            const id = sessions[i].id
            list[list.length] = [sessions[i].title, () => Shelf.send(entry, id)]
        }
        popup(list)
    }
    function popup(list) {
        actions = list
        let titles = []
        for (let i = 0; i < list.length; ++i) {
            titles[i] = list[i][0]
        }
        menu.entries = titles
        // A submenu opens where its parent was, once the parent has closed.
        reopen.start()
    }
    Timer {
        id: reopen
        interval: 0
        onTriggered: menu.popupAt(menu.at.x, menu.at.y)
    }

    // What the shelf says for a moment: a sent path that went to the clipboard, a failed conversion.
    Text {
        id: notice
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 4
        width: Math.min(implicitWidth, parent.width - 24)
        elide: Text.ElideRight
        visible: noticeTimer.running
        color: "white"
        font.pixelSize: 11
        Rectangle {
            anchors.fill: parent
            anchors.margins: -4
            z: -1
            radius: 6
            color: Qt.rgba(0, 0, 0, 0.7)
        }
    }
    Timer {
        id: noticeTimer
        interval: 4000
    }
    Connections {
        target: Shelf
        function onNoticed(text) {
            notice.text = text
            noticeTimer.restart()
        }
    }
    // The files may have changed since the shelf was last shown.
    Component.onCompleted: Shelf.refresh()

    ContextMenu {
        id: menu
        property string entryId
        property bool isStack
        property point at
        controller: shelfView.controller
        onChosen: index => shelfView.actions[index][1]()
    }
}
