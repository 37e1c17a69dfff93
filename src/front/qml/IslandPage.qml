import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

SettingsPage {
    id: page
    required property var prefs
    // For the sound previews; none: no buttons.
    property var settings: null

    readonly property var widgetTitles: ({
            "calendar": qsTr("Calendar"),
            "pullRequests": qsTr("Pull requests"),
            "reminders": qsTr("Reminders")
        })
    // The chosen widgets in their order, then the others.
    readonly property var widgetRows: prefs.homeWidgets.concat(Object.keys(widgetTitles).filter(kind => !prefs.homeWidgets.includes(kind)))

    function setWidget(kind, shown) {
        const list = prefs.homeWidgets.filter(other => other !== kind);
        if (shown)
            list.push(kind);
        prefs.homeWidgets = list;
    }
    function raiseWidget(kind) {
        const list = prefs.homeWidgets.slice();
        const at = list.indexOf(kind);
        if (at > 0) {
            list.splice(at, 1);
            list.splice(at - 1, 0, kind);
            prefs.homeWidgets = list;
        }
    }

    PageHeading {
        text: qsTr("What the island shows")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: qsTr("Each takes effect once its service runs on this desktop.")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "nowPlayingEnabled"
        title: qsTr("Now playing")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "hudEnabled"
        title: qsTr("Volume and brightness")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "batteryEnabled"
        title: qsTr("Battery")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "bluetoothEnabled"
        title: qsTr("Bluetooth devices")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "calendarEnabled"
        title: qsTr("Calendar")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "shelfEnabled"
        title: qsTr("Shelf")
        detail: qsTr("Drop files on the island to keep them at hand.")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "lockScreenEnabled"
        title: qsTr("On the lock screen")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "hapticsEnabled"
        title: qsTr("Haptic feedback")
    }
    PageHeading {
        text: qsTr("Home widgets")
    }
    Repeater {
        model: page.widgetRows
        // qmllint disable unqualified
        delegate: RowLayout {
            id: widgetRow
            required property string modelData
            required property int index
            Layout.fillWidth: true
            CheckBox {
                objectName: "homeWidget." + widgetRow.modelData
                Layout.fillWidth: true
                text: page.widgetTitles[widgetRow.modelData]
                checked: page.prefs.homeWidgets.includes(widgetRow.modelData)
                onToggled: {
                    page.setWidget(widgetRow.modelData, checked);
                    checked = Qt.binding(() => page.prefs.homeWidgets.includes(widgetRow.modelData));
                }
            }
            Button {
                objectName: "homeWidgetUp." + widgetRow.modelData
                text: qsTr("Move up")
                flat: true
                enabled: widgetRow.index > 0 && page.prefs.homeWidgets.includes(widgetRow.modelData)
                onClicked: page.raiseWidget(widgetRow.modelData)
            }
        }
        // qmllint enable unqualified
    }
    PageHeading {
        text: qsTr("Sounds")
    }
    PrefSwitch {
        prefs: page.prefs
        key: "soundsEnabled"
        title: qsTr("Play sounds")
    }
    SettingRow {
        title: qsTr("Volume")
        Slider {
            id: volume
            objectName: "soundVolume"
            from: 0
            to: 1
            enabled: page.prefs.soundsEnabled
            value: page.prefs.soundVolume
            onMoved: {
                page.prefs.soundVolume = value;
                value = Qt.binding(() => page.prefs.soundVolume);
            }
        }
    }
    SettingRow {
        title: qsTr("Preview")
        visible: page.settings !== null
        Grid {
            columns: 3
            spacing: 4
            Repeater {
                model: [qsTr("Start"), qsTr("Attention"), qsTr("Done"), qsTr("Low battery"), qsTr("Connected"), qsTr("Charging")]
                Button {
                    required property string modelData
                    required property int index
                    objectName: "previewCue." + index
                    text: modelData
                    // qmllint disable unqualified
                    enabled: page.prefs.soundsEnabled
                    onClicked: page.settings.previewCue(index)
                    // qmllint enable unqualified
                }
            }
        }
    }
}
