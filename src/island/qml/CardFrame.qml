import QtQuick
import Mirrowisp

// The frame every decision card shares: a header with a symbol and a title, then the card's body.
Rectangle {
    id: frame
    property string symbol
    property color symbolColor: "#ff9f0a"
    property string title
    default property alias body: content.data

    implicitHeight: header.height + content.childrenRect.height + 30
    radius: 14
    color: Qt.rgba(1, 1, 1, 0.07)
    border.color: Qt.rgba(1, 1, 1, 0.08)

    Row {
        id: header
        x: 12
        y: 10
        spacing: 6
        SymbolIcon { name: frame.symbol; color: frame.symbolColor; size: 13; anchors.verticalCenter: parent.verticalCenter }
        Text {
            text: frame.title
            color: "white"
            font.pixelSize: 13
            font.weight: Font.DemiBold
            elide: Text.ElideRight
            width: Math.min(implicitWidth, frame.width - 50)
        }
    }
    Item {
        id: content
        x: 12
        y: header.y + header.height + 8
        width: frame.width - 24
        height: childrenRect.height
    }
}
