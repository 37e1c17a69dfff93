import QtQuick
import QtQuick.Controls.Fusion

// A number preference shown in whole units of `factor` (1000 shows seconds as milliseconds).
SpinBox {
    id: box
    required property var prefs
    required property string key
    property real factor: 1
    property string unit
    property string zeroText

    objectName: key
    editable: true
    // Typed with or without the unit; the value is read from the leading number.
    validator: RegularExpressionValidator {
        regularExpression: /^\s*(\d+\s*\S*|\D*)\s*$/
    }
    value: Math.round(prefs[key] * factor)
    textFromValue: (number, locale) => number === 0 && zeroText.length > 0 ? zeroText : number + " " + unit
    valueFromText: (text, locale) => isNaN(parseInt(text)) ? 0 : parseInt(text)
    onValueModified: {
        box.prefs[box.key] = value / factor;
        value = Qt.binding(() => Math.round(box.prefs[box.key] * box.factor));
    }
}
