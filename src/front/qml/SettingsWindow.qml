import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts
import MirrowispFront

ApplicationWindow {
    id: window
    required property SettingsModel settings

    readonly property var pageTitles: [qsTr("General"), qsTr("Agents"), qsTr("Decisions"), qsTr("Usage"), qsTr("Island"), qsTr("Calendar"), qsTr("About")]
    readonly property var pageIds: ["general", "agents", "decisions", "usage", "island", "calendar", "about"]

    title: qsTr("Mirrowisp Settings")
    width: 760
    height: 560
    minimumWidth: 560
    minimumHeight: 380

    RowLayout {
        anchors.fill: parent
        spacing: 0

        ListView {
            id: sideList
            objectName: "pages"
            Layout.preferredWidth: 170
            Layout.fillHeight: true
            Layout.topMargin: 8
            model: window.pageIds
            currentIndex: window.pageIds.indexOf(window.settings.page)
            // qmllint disable unqualified
            delegate: ItemDelegate {
                required property string modelData
                required property int index
                objectName: "page." + modelData
                // The keyboard goes through the page's controls; the list is for the pointer.
                focusPolicy: Qt.NoFocus
                width: ListView.view.width
                text: window.pageTitles[index]
                highlighted: ListView.isCurrentItem
                onClicked: window.settings.page = modelData
            }
            // qmllint enable unqualified
        }
        ToolSeparator {
            orientation: Qt.Vertical
            Layout.fillHeight: true
        }
        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: sideList.currentIndex

            GeneralPage {
                prefs: window.settings.prefs
            }
            AgentsPage {
                prefs: window.settings.prefs
                agents: window.settings.agents
                health: window.settings.health
                remoteHosts: window.settings.remoteHosts
            }
            DecisionsPage {
                decisions: window.settings.decisions
            }
            UsagePage {
                prefs: window.settings.prefs
                settings: window.settings
            }
            IslandPage {
                prefs: window.settings.prefs
                settings: window.settings
            }
            CalendarPage {
                prefs: window.settings.prefs
                calendars: window.settings.calendars
            }
            AboutPage {
                settings: window.settings
            }
        }
    }
}
