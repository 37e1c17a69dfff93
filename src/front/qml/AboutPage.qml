import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

SettingsPage {
    id: page
    required property SettingsModel settings

    Label {
        text: "Mirrowisp"
        font.pointSize: 18
        font.bold: true
    }
    Label {
        objectName: "version"
        text: qsTr("Version %1 (%2)").arg(page.settings.version).arg(page.settings.build)
    }
    RowLayout {
        Button {
            objectName: "sendFeedback"
            text: qsTr("Send Feedback…")
            onClicked: page.settings.sendFeedback()
        }
        Button {
            objectName: "changelog"
            text: qsTr("What's Changed")
            onClicked: page.settings.openChangelog()
        }
    }
    PageHeading {
        text: qsTr("Licence")
    }
    TextArea {
        Layout.fillWidth: true
        readOnly: true
        wrapMode: Text.WordWrap
        font.family: "monospace"
        font.pointSize: 8.5
        text: page.settings.licence
    }
}
