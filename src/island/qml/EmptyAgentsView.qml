import QtQuick
import Mirrowisp

Column {
    spacing: 6
    topPadding: 18
    bottomPadding: 18
    SymbolIcon { anchors.horizontalCenter: parent.horizontalCenter; name: "terminal.fill"; size: 20; color: Qt.rgba(1, 1, 1, 0.5) }
    Text {
        anchors.horizontalCenter: parent.horizontalCenter
        text: "No Active Agents"
        color: "white"
        font.pixelSize: 14
        font.weight: Font.DemiBold
    }
    Text {
        anchors.horizontalCenter: parent.horizontalCenter
        text: "Start an agent, like Claude Code or Codex. Your sessions show here."
        color: Qt.rgba(1, 1, 1, 0.6)
        font.pixelSize: 12
    }
}
