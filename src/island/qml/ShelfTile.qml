import QtQuick
import Mirrowisp

// One shelf entry: its picture (the image itself, the desktop's thumbnail, or its type's icon, else a
// label of its kind), a count on a stack, a bar while it converts. Dragging it out hands the files to
// whatever takes a file list.
Item {
    id: tile
    required property string entryId
    required property string name
    required property int itemCount
    required property string uriList
    required property string thumbnail
    required property string kind
    required property bool missing
    required property string icon
    required property real progress
    signal menuRequested(string entry, bool isStack, real x, real y)

    objectName: "shelfTileButton"
    width: 84
    height: 112
    opacity: Shelf.draggingEntry === entryId ? 0.4 : (missing ? 0.5 : 1)

    // A stack shows as cards fanned out behind the first.
    Repeater {
        model: Math.min(tile.itemCount, 3) - 1
        delegate: Rectangle {
            required property int index
            x: 10 + 3 * (index + 1)
            y: 6 - 3 * (index + 1)
            width: 64
            height: 64
            radius: 10
            rotation: 6 * (index + 1)
            color: Qt.rgba(1, 1, 1, 0.12)
        }
    }

    Rectangle {
        id: face
        x: 10
        y: 6
        width: 64
        height: 64
        radius: 10
        color: Qt.rgba(1, 1, 1, 0.1)
        clip: true
        Image {
            id: picture
            anchors.fill: parent
            source: tile.thumbnail
            sourceSize.width: 128
            sourceSize.height: 128
            asynchronous: true
            fillMode: Image.PreserveAspectCrop
            visible: status === Image.Ready
        }
        Image {
            id: typeIcon
            anchors.centerIn: parent
            width: 40
            height: 40
            source: picture.status === Image.Ready || picture.status === Image.Loading ? "" : tile.icon
            sourceSize.width: 80
            sourceSize.height: 80
            visible: status === Image.Ready
        }
        Text {
            anchors.centerIn: parent
            visible: !picture.visible && !typeIcon.visible && picture.status !== Image.Loading
            text: tile.kind === "file" ? (tile.name.split(".").pop().toUpperCase().slice(0, 4) || "FILE")
                                       : tile.kind.toUpperCase()
            color: Qt.rgba(1, 1, 1, 0.7)
            font.pixelSize: 11
            font.bold: true
        }
        // A conversion under way: how far it has come.
        Rectangle {
            visible: tile.progress >= 0
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            anchors.margins: 6
            height: 4
            radius: 2
            color: Qt.rgba(0, 0, 0, 0.5)
            Rectangle {
                width: parent.width * Math.max(0, tile.progress)
                height: parent.height
                radius: 2
                color: "#0a84ff"
            }
        }
        Rectangle {
            visible: tile.itemCount > 1
            anchors.right: parent.right
            anchors.top: parent.top
            anchors.margins: 3
            width: 18
            height: 18
            radius: 9
            color: "#0a84ff"
            Text { anchors.centerIn: parent; text: tile.itemCount; color: "white"; font.pixelSize: 10 }
        }
    }

    Text {
        anchors.top: face.bottom
        anchors.topMargin: 6
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        elide: Text.ElideMiddle
        maximumLineCount: 2
        wrapMode: Text.WrapAnywhere
        text: tile.name
        color: "white"
        font.pixelSize: 11
    }

    // The tile itself is what travels: a real platform drag carrying the files' list.
    Item {
        id: dragProxy
        width: face.width
        height: face.height
        Drag.active: mouse.drag.active
        Drag.dragType: Drag.Automatic
        Drag.supportedActions: Qt.CopyAction
        Drag.mimeData: ({ "text/uri-list": tile.uriList })
        Drag.onDragStarted: Shelf.beginDragOut(tile.entryId)
        Drag.onDragFinished: Shelf.endDragOut()
    }

    MouseArea {
        id: mouse
        anchors.fill: parent
        acceptedButtons: Qt.LeftButton | Qt.RightButton
        drag.target: dragProxy
        onClicked: event => {
            if (event.button === Qt.RightButton) {
                tile.menuRequested(tile.entryId, tile.itemCount > 1, event.x, event.y)
            }
        }
        onDoubleClicked: Shelf.open(tile.entryId)
        onReleased: { dragProxy.x = 0; dragProxy.y = 0 }
    }
}
