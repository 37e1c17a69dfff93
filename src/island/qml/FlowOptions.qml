import QtQuick
import Mirrowisp

// A question's options as chips that wrap onto further lines.
Flow {
    id: flow
    property var options: []
    property bool multiSelect: false
    signal toggled(string label)
    spacing: 6

    // qmllint disable unqualified
    Repeater {
        model: flow.options
        delegate: Rectangle {
            id: chip
            required property var modelData
            readonly property bool selected: !!modelData.selected
            height: 26
            width: Math.min(chipRow.implicitWidth + 18, flow.width)
            radius: 13
            color: selected ? Qt.rgba(0.04, 0.52, 1, 0.35) : (chipMouse.containsMouse ? Qt.rgba(1, 1, 1, 0.14) : Qt.rgba(1, 1, 1, 0.08))
            border.color: selected ? "#0a84ff" : "transparent"
            Row {
                id: chipRow
                anchors.centerIn: parent
                spacing: 6
                SymbolIcon {
                    anchors.verticalCenter: parent.verticalCenter
                    name: flow.multiSelect ? (chip.selected ? "checkmark.square.fill" : "square")
                                           : (chip.selected ? "largecircle.fill.circle" : "circle")
                    color: chip.selected ? "#0a84ff" : Qt.rgba(1, 1, 1, 0.6)
                    size: 12
                }
                Text {
                    anchors.verticalCenter: parent.verticalCenter
                    text: chip.modelData.label
                    color: "white"
                    font.pixelSize: 12
                    elide: Text.ElideRight
                    width: Math.min(implicitWidth, flow.width - 50)
                }
            }
            MouseArea {
                id: chipMouse
                anchors.fill: parent
                hoverEnabled: true
                cursorShape: Qt.PointingHandCursor
                onClicked: flow.toggled(chip.modelData.label)
            }
            ToolTipText { text: chip.modelData.description || ""; shown: chipMouse.containsMouse && text !== ""; anchors.top: parent.bottom }
        }
    }
    // qmllint enable unqualified
}
