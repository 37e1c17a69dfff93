import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

SettingsPage {
    id: page
    required property var prefs

    PageHeading {
        text: qsTr("Startup")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "launchAtLogin"
        title: qsTr("Launch at login")
    }
    PageHeading {
        text: qsTr("Opening")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "openOnHover"
        title: qsTr("Open on hover")
        detail: qsTr("Open the island when the pointer rests on it.")
    }
    SettingRow {
        title: qsTr("Hover delay")
        detail: qsTr("How long the pointer rests before the island opens or closes.")
        NumberBox {
            prefs: page.prefs
            key: "hoverDelay"
            factor: 1000
            unit: qsTr("ms")
            from: 0
            to: 2000
            stepSize: 50
        }
    }
    PrefSwitch {
        prefs: page.prefs
        key: "autoOpenOnAttention"
        title: qsTr("Open when an agent needs you")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "approveFromNotch"
        title: qsTr("Approve from the island")
        detail: qsTr("Requests wait for an answer in the island; off, the agent asks in its terminal.")
    }
    PageHeading {
        text: qsTr("Island")
    }
    SettingRow {
        title: qsTr("Displays")
        ChoiceBox {
            prefs: page.prefs
            key: "displayChoice"
            choices: [["automatic", qsTr("Automatic")], ["main", qsTr("Main display")], ["allDisplays", qsTr("All displays")]]
        }
    }
    SettingRow {
        title: qsTr("Notch width")
        detail: qsTr("The width of the pretended notch the island grows from.")
        NumberBox {
            prefs: page.prefs
            key: "fakeNotchWidth"
            unit: qsTr("px")
            from: 60
            to: 400
            stepSize: 10
        }
    }
    SettingRow {
        title: qsTr("Style")
        ChoiceBox {
            prefs: page.prefs
            key: "islandStyle"
            choices: [["black", qsTr("Black")], ["glass", qsTr("Glass")]]
        }
    }
    SettingRow {
        title: qsTr("Hide finished sessions after")
        NumberBox {
            prefs: page.prefs
            key: "hideFinishedAfter"
            factor: 1 / 60
            unit: qsTr("min")
            zeroText: qsTr("Never")
            from: 0
            to: 1440
        }
    }
}
