import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

Label {
    Layout.fillWidth: true
    Layout.topMargin: 8
    font.bold: true
    font.pointSize: 11
}
