import QtQuick

// Bars that bounce while music plays and settle to short stubs when it stops. Bars blend across
// `colors` from left to right (the artwork's tints, say).
Item {
    id: root

    property bool playing: false
    property var colors: ["white"]
    property int bars: 4
    property real barWidth: 2.5
    property real spacing: 2
    property real minimumLevel: 0.18

    readonly property bool animating: playing && visible && Window.visibility !== Window.Hidden
    property real phase

    implicitWidth: bars * barWidth + (bars - 1) * spacing
    implicitHeight: 14

    // A cycle of 6 s, long enough that the incommensurate speeds below never look like a loop, in
    // steps of about 7 a second: the bars swing at a hertz or two, and the island does not redraw at the
    // screen's full rate for as long as music plays.
    Timer {
        interval: 150
        repeat: true
        running: root.animating
        onTriggered: root.phase = (root.phase + interval / 6000) % 1
    }

    function tint(index) {
        const list = root.colors && root.colors.length > 0 ? root.colors : ["white"];
        if (list.length === 1 || root.bars < 2)
            return list[0];
        const at = index / (root.bars - 1) * (list.length - 1);
        const low = Math.floor(at);
        const high = Math.min(list.length - 1, low + 1);
        const a = Qt.color(list[low]);
        const b = Qt.color(list[high]);
        const t = at - low;
        return Qt.rgba(a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t, a.a + (b.a - a.a) * t);
    }

    // qmllint disable unqualified
    Repeater {
        model: root.bars
        Rectangle {
            required property int index
            readonly property real speed: [7, 11, 9, 13, 8, 12][index % 6]
            readonly property real swing: Math.abs(Math.sin(2 * Math.PI * root.phase * speed + index * 1.7))
                                          * (0.75 + 0.25 * Math.sin(2 * Math.PI * root.phase * 3 + index))
            readonly property real level: root.animating ? root.minimumLevel + (1 - root.minimumLevel) * swing
                                                         : root.minimumLevel
            x: index * (root.barWidth + root.spacing)
            width: root.barWidth
            height: Math.max(root.barWidth, root.height * level)
            anchors.verticalCenter: parent.verticalCenter
            radius: root.barWidth / 2
            color: root.tint(index)
            Behavior on height {
                enabled: !root.animating
                NumberAnimation { duration: 220; easing.type: Easing.OutCubic }
            }
        }
    }
    // qmllint enable unqualified
}
