import QtQuick
import Mirrowisp

// One island: the outline that morphs between closed and open, the closed wings, the bubbles and
// the open panel. Every rule lives in C++ (the context objects `island`, `content`, `controller`);
// this file only lays out and animates.
Item {
    id: rootView
    width: 820
    height: 560

    readonly property real notchHeight: island.notchSize.height
    readonly property string spring: island.animation

    Item {
        id: body
        anchors.horizontalCenter: parent.horizontalCenter
        width: island.targetSize.width
        height: island.targetSize.height

        // The outline follows the target size with the spring the model names for the latest change.
        Behavior on width {
            NumberAnimation {
                duration: NotchAnimation.duration(rootView.spring)
                easing: NotchAnimation.curve(rootView.spring)
            }
        }
        Behavior on height {
            NumberAnimation {
                duration: NotchAnimation.duration(rootView.spring)
                easing: NotchAnimation.curve(rootView.spring)
            }
        }

        NotchShape {
            id: shape
            anchors.fill: parent
            open: island.isOpen
            glass: shell.glass
            notchFraction: body.width > 0 ? island.notchSize.width / island.targetSize.width : 1
            topRadius: island.isOpen ? 14 : 6
            bottomRadius: island.isOpen ? 36 : (island.isHovering ? 13 : 10)
            Behavior on topRadius {
                NumberAnimation {
                    duration: NotchAnimation.duration(rootView.spring)
                    easing: NotchAnimation.curve(rootView.spring)
                }
            }
            Behavior on bottomRadius {
                NumberAnimation {
                    duration: NotchAnimation.duration(rootView.spring)
                    easing: NotchAnimation.curve(rootView.spring)
                }
            }
        }

        Item {
            // The content stays inside the outline while it morphs.
            anchors.fill: parent
            anchors.leftMargin: shape.topRadius
            anchors.rightMargin: shape.topRadius
            clip: true

            ClosedIsland {
                anchors.horizontalCenter: parent.horizontalCenter
                height: rootView.notchHeight
                collapsed: island.isOpen
            }

            Loader {
                id: panel
                // Appears at once; on closing it fades back up into the notch for a moment.
                property bool kept: island.isOpen
                property real progress: 1
                anchors.horizontalCenter: parent.horizontalCenter
                active: kept
                sourceComponent: OpenPanel {}
                opacity: progress
                scale: 0.94 + 0.06 * progress
                transformOrigin: Item.Top
                transform: Translate { y: -8 * (1 - panel.progress) }

                Connections {
                    target: island
                    function onIsOpenChanged() {
                        if (island.isOpen) {
                            removal.stop()
                            panel.progress = 1
                            panel.kept = true
                        } else {
                            removal.restart()
                        }
                    }
                }
                NumberAnimation {
                    id: removal
                    target: panel
                    property: "progress"
                    from: 1
                    to: 0
                    duration: NotchAnimation.duration("reveal")
                    easing: NotchAnimation.curve("reveal")
                    onFinished: panel.kept = false
                }
            }
        }
    }

    Repeater {
        model: island.isOpen ? [] : content.bubbles
        delegate: SecondaryBubble {
            required property var modelData
            bubble: modelData
            notchHeight: rootView.notchHeight
            islandWidth: island.closedSize.width
            centreX: rootView.width / 2
        }
    }
}
