import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

// One on/off setting: its title, an optional line under it, and a switch bound to the preference.
RowLayout {
    id: row
    required property var prefs
    required property string key
    property string title
    property string detail

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
    Switch {
        objectName: row.key
        checked: row.prefs[row.key]
        // Only a person's toggle writes; the binding comes back so later changes show here too.
        onToggled: {
            row.prefs[row.key] = checked;
            checked = Qt.binding(() => row.prefs[row.key]);
        }
    }
}
