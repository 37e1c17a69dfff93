import QtQuick
import QtQuick.Controls.Fusion
import QtQuick.Layouts

// A page of the settings window: a column of settings that scrolls when the window is short.
ScrollView {
    id: page
    default property alias content: column.data
    contentWidth: availableWidth
    topPadding: 10
    bottomPadding: 10
    clip: true

    ColumnLayout {
        id: column
        width: page.availableWidth - 32
        x: 16
        spacing: 12
    }
}
