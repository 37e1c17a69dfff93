import QtQuick
import Mirrowisp

// One island: the outline that morphs between closed and open, the closed wings, the bubbles and
// the open panel. Every rule lives in C++ (the models below, set when the window loads the view);
// this file only lays out and animates.
Item {
    id: rootView
    width: 820
    height: 560

    required property NotchViewModel island
    required property NotchRootModel content
    required property AgentsViewModel agents
    required property IslandUsageModel usage
    required property IslandShell shell
    required property IslandControls controller

    readonly property real notchHeight: island.notchSize.height
    readonly property string spring: island.animation

    Item {
        id: body
        anchors.horizontalCenter: parent.horizontalCenter
        width: rootView.island.targetSize.width
        height: rootView.island.targetSize.height

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
            open: rootView.island.isOpen
            glass: rootView.shell.glass
            notchFraction: body.width > 0 ? rootView.island.notchSize.width / rootView.island.targetSize.width : 1
            topRadius: rootView.island.isOpen ? 14 : 6
            bottomRadius: rootView.island.isOpen ? 36 : (rootView.island.isHovering ? 13 : 10)
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


        // A drag the shelf would take rings the open island.
        Rectangle {
            anchors.fill: parent
            anchors.topMargin: -1
            color: "transparent"
            radius: shape.bottomRadius
            border.width: 2
            border.color: "#0a84ff"
            opacity: rootView.island.isDropTargeted ? 0.9 : 0
            Behavior on opacity { NumberAnimation { duration: 150 } }
        }

        Item {
            // The content stays inside the outline while it morphs.
            anchors.fill: parent
            anchors.leftMargin: shape.topRadius
            anchors.rightMargin: shape.topRadius
            clip: true

            ClosedIsland {
                island: rootView.island
                content: rootView.content
                anchors.horizontalCenter: parent.horizontalCenter
                height: rootView.notchHeight
                collapsed: rootView.island.isOpen
            }

            Loader {
                id: panel
                // Appears at once; on closing it fades back up into the notch for a moment.
                property bool kept: rootView.island.isOpen
                property real progress: 1
                anchors.horizontalCenter: parent.horizontalCenter
                active: kept
                // qmllint disable unqualified
                sourceComponent: OpenPanel {
                    island: rootView.island
                    content: rootView.content
                    agents: rootView.agents
                    usage: rootView.usage
                    shell: rootView.shell
                    controller: rootView.controller
                }
                // qmllint enable unqualified
                opacity: progress
                scale: 0.94 + 0.06 * progress
                transformOrigin: Item.Top
                transform: Translate { y: -8 * (1 - panel.progress) }

                Connections {
                    target: rootView.island
                    function onIsOpenChanged() {
                        if (rootView.island.isOpen) {
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

    // Files, text, links and images dragged onto the island go on the shelf, which opens for them. The
    // whole panel listens: the window's input region decides where a drag reaches it, the island itself
    // or, while a drag from elsewhere approaches, the zone around it.
    DropArea {
        id: shelfDrop
        anchors.fill: parent
        enabled: Shelf.enabled
        onEntered: rootView.controller.open("shelf")
        onContainsDragChanged: rootView.controller.setDropTargeted(containsDrag)
        onDropped: (drop) => {
            const image = drop.formats.find(f => f.startsWith("image/")) ?? ""
            Shelf.drop(drop.urls,
                       drop.formats.indexOf("text/x-moz-url") >= 0 ? drop.getDataAsString("text/x-moz-url") : "",
                       drop.hasText ? drop.text : "",
                       image, image.length > 0 ? drop.getDataAsArrayBuffer(image) : new ArrayBuffer(0))
            drop.accept(Qt.CopyAction)
            rootView.controller.open("shelf")
        }
    }

    Repeater {
        model: rootView.island.isOpen ? [] : rootView.content.bubbles
        // qmllint disable unqualified
        delegate: SecondaryBubble {
            required property var modelData
            bubble: modelData
            notchHeight: rootView.notchHeight
            islandWidth: rootView.island.closedSize.width
            centreX: rootView.width / 2
        }
        // qmllint enable unqualified
    }
}
