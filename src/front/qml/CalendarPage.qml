import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

SettingsPage {
    id: page
    required property var prefs
    required property SettingsCalendars calendars

    function addFile(path) {
        const trimmed = path.trim();
        if (trimmed.length > 0 && !prefs.calendarFiles.includes(trimmed))
            prefs.calendarFiles = prefs.calendarFiles.concat([trimmed]);
    }

    PageHeading {
        text: qsTr("Calendars")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: page.calendars.calendars.length === 0 ? qsTr("None found. Calendars of your online accounts and your calendar app appear here, and so do the calendar files below.") : qsTr("The island and the home tab read these:")
    }
    Repeater {
        model: page.calendars.calendars
        delegate: Label {
            required property string modelData
            Layout.leftMargin: 12
            text: "• " + modelData
        }
    }
    PageHeading {
        text: qsTr("Calendar files")
    }
    Label {
        Layout.fillWidth: true
        wrapMode: Text.WordWrap
        opacity: 0.65
        text: qsTr("iCalendar files (.ics) and folders of them, as khal and vdirsyncer keep them; ~/ stands for your home folder.")
    }
    Repeater {
        model: page.prefs.calendarFiles
        // qmllint disable unqualified
        delegate: RowLayout {
            id: fileRow
            required property string modelData
            required property int index
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: fileRow.modelData
                elide: Text.ElideMiddle
            }
            Button {
                objectName: "calendarFileRemove." + fileRow.index
                text: qsTr("Remove")
                flat: true
                onClicked: page.prefs.calendarFiles = page.prefs.calendarFiles.filter((path, at) => at !== fileRow.index)
            }
        }
        // qmllint enable unqualified
    }
    RowLayout {
        Layout.fillWidth: true
        TextField {
            id: newFile
            objectName: "calendarFileNew"
            Layout.fillWidth: true
            placeholderText: qsTr("~/.calendars or /path/to/calendar.ics")
            onAccepted: add.clicked()
        }
        Button {
            id: add
            objectName: "calendarFileAdd"
            text: qsTr("Add")
            enabled: newFile.text.trim().length > 0
            onClicked: {
                page.addFile(newFile.text);
                newFile.clear();
            }
        }
    }
    PageHeading {
        text: qsTr("Reminders")
    }
    SettingRow {
        title: qsTr("Task list")
        detail: qsTr("The home tab shows its tasks due today and overdue.")
        ChoiceBox {
            prefs: page.prefs
            key: "remindersListID"
            choices: page.calendars.taskLists
        }
    }
}
