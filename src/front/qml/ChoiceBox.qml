import QtQuick
import QtQuick.Controls.Fusion

// A choice among raw strings, bound to a string preference; `choices` is a list of [value, title].
ComboBox {
    id: box
    required property var prefs
    required property string key
    required property var choices

    objectName: key
    implicitWidth: 200
    model: choices.map(choice => choice[1])
    currentIndex: choices.findIndex(choice => choice[0] === prefs[key])
    onActivated: index => {
        box.prefs[box.key] = box.choices[index][0];
        currentIndex = Qt.binding(() => box.choices.findIndex(choice => choice[0] === box.prefs[box.key]));
    }
}
