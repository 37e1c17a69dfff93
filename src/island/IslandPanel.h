#pragma once

#include <QRect>
#include <QRegion>

namespace mirrowisp {

// What an island's controller needs of its window: a fixed transparent panel at the top of a
// screen that takes the pointer only inside a region the controller sets. Rectangles and regions
// are in global screen coordinates, y growing downwards.
class IslandPanel {
public:
    virtual ~IslandPanel() = default;

    // Places the panel; it never moves or resizes with the island.
    virtual void setFrame(const QRect& frame) = 0;
    // Where the panel takes the pointer and clicks; everywhere else they reach the windows beneath.
    // An empty region lets everything through.
    virtual void setInputRegion(const QRegion& region) = 0;
    virtual void show() = 0;
    virtual void hide() = 0;
    // Whether the panel holds the keyboard focus (a card's text field is being edited).
    virtual bool hasKeyboardFocus() const = 0;
    // Gives the keyboard back to the window that had it.
    virtual void releaseKeyboardFocus() = 0;
};

} // namespace mirrowisp
