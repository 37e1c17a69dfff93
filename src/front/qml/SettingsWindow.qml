import QtQuick
import QtQuick.Controls

ApplicationWindow {
    title: qsTr("Mirrowisp Settings")
    width: 720
    height: 520
}
