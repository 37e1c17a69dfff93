import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

// A setting's title and line of help on the left; its control goes on the right.
RowLayout {
    id: row
    property string title
    property string detail
    default property alias control: holder.data

    Layout.fillWidth: true
    spacing: 12

    ColumnLayout {
        Layout.fillWidth: true
        spacing: 2
        Label {
            Layout.fillWidth: true
            text: row.title
        }
        Label {
            visible: row.detail.length > 0
            Layout.fillWidth: true
            text: row.detail
            // One line: wrapped text inside a row makes the layout guess its height wrong.
            elide: Text.ElideRight
            opacity: 0.65
            font.pointSize: 8.5
        }
    }
    // Sized by its one control, so the row is as tall as the control needs.
    Item {
        id: holder
        implicitWidth: holder.children.length > 0 ? holder.children[0].implicitWidth : 0
        implicitHeight: holder.children.length > 0 ? holder.children[0].implicitHeight : 0
    }
}
