import QtQuick
import Mirrowisp

// A plan as the agent wrote it: one block per row, sized for the dark island, and selectable so the
// user can copy a step out of it.
Column {
    id: root

    property string markdown: ""
    readonly property alias blockCount: blocks.count

    // Sizes are given in the island's pixels; fonts take points.
    function points(pixels) { return pixels * 0.75 }

    spacing: 6

    MarkdownModel {
        id: blocks
        markdown: root.markdown
    }

    component InlineText: TextEdit {
        readOnly: true
        selectByMouse: true
        textFormat: TextEdit.RichText
        wrapMode: TextEdit.Wrap
        color: "white"
        selectionColor: Qt.rgba(1, 1, 1, 0.3)
        font.pointSize: root.points(12) // qmllint disable unqualified
        onLinkActivated: link => {
            if (/^(https?|mailto):/i.test(link))
                Qt.openUrlExternally(link)
        }
    }

    // qmllint disable unqualified
    Repeater {
        model: blocks

        delegate: Loader {
            id: block
            required property string kind
            required property int level
            required property string html
            required property int indent
            required property string marker
            required property string text

            width: root.width
            sourceComponent: {
                switch (block.kind) {
                case "heading": return headingBlock
                case "bullet": return bulletBlock
                case "code": return codeBlock
                case "quote": return quoteBlock
                case "rule": return ruleBlock
                default: return paragraphBlock
                }
            }

            Component {
                id: headingBlock
                Item {
                    implicitHeight: heading.implicitHeight + heading.y
                    InlineText {
                        id: heading
                        y: block.level < 3 ? 4 : 2
                        width: parent.width
                        text: block.html
                        font.bold: true
                        font.pointSize: root.points(block.level === 1 ? 15 : block.level === 2 ? 13.5 : 12.5)
                    }
                }
            }

            Component {
                id: paragraphBlock
                InlineText {
                    text: block.html
                }
            }

            Component {
                id: bulletBlock
                Row {
                    leftPadding: block.indent * 14
                    spacing: 6
                    Text {
                        id: bulletMarker
                        text: block.marker
                        color: Qt.rgba(1, 1, 1, 0.5)
                        font.pointSize: root.points(12)
                    }
                    InlineText {
                        width: block.width - block.indent * 14 - bulletMarker.implicitWidth - 6
                        text: block.html
                    }
                }
            }

            Component {
                id: codeBlock
                Rectangle {
                    radius: 6
                    color: Qt.rgba(1, 1, 1, 0.07)
                    implicitHeight: code.implicitHeight + 16
                    TextEdit {
                        id: code
                        x: 8
                        y: 8
                        width: parent.width - 16
                        readOnly: true
                        selectByMouse: true
                        textFormat: TextEdit.PlainText
                        wrapMode: TextEdit.Wrap
                        text: block.text
                        font.family: "monospace"
                        font.pointSize: root.points(11)
                        color: Qt.rgba(1, 1, 1, 0.85)
                        selectionColor: Qt.rgba(1, 1, 1, 0.3)
                    }
                }
            }

            Component {
                id: quoteBlock
                Item {
                    implicitHeight: quote.implicitHeight
                    Rectangle {
                        width: 2
                        height: parent.height
                        color: Qt.rgba(1, 1, 1, 0.3)
                    }
                    InlineText {
                        id: quote
                        x: 8
                        width: parent.width - 8
                        text: block.html
                        color: Qt.rgba(1, 1, 1, 0.7)
                    }
                }
            }

            Component {
                id: ruleBlock
                Item {
                    implicitHeight: 1
                    Rectangle {
                        width: parent.width
                        height: 1
                        color: Qt.rgba(1, 1, 1, 0.2)
                    }
                }
            }
        }
    }
    // qmllint enable unqualified
}
