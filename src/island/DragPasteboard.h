#pragma once

#include <QStringList>
#include <optional>

namespace mirrowisp {

// The desktop's drag and drop as the island sees it from outside: whether some application started a
// drag with content since a given moment, and what the drag offers. On X11 that is the XDND selection.
class DragPasteboard {
public:
    virtual ~DragPasteboard() = default;
    // Goes up whenever an application starts a drag with content; a mouse drag alone leaves it.
    virtual int changeCount() const = 0;
    // The MIME types of the latest drag, or nothing when its source does not say.
    virtual std::optional<QStringList> types() const = 0;
};

} // namespace mirrowisp
