#include "island/IslandGeometry.h"

#include "island/NotchViewModel.h"

#include <algorithm>

namespace mirrowisp {

namespace {

// The island's rectangles are thought of in a y-up frame hanging from the top edge of the screen:
// `lower` is a rectangle's lower edge measured upwards from that edge (so it is 0 or negative).
// Qt's global space grows downwards from the screen's top; this is the only place that flips.
QRectF hangingFromTop(const QRect& screen, double x, double lower, double width, double height) {
    return {x, screen.top() - (lower + height), width, height};
}

// Bubbles take clicks a little beyond what they draw.
QRectF bubbleHitRect(const QRectF& bubble) {
    return IslandGeometry::grown(bubble, 4, 2);
}

} // namespace

IslandGeometry::IslandGeometry(const QRect& screen, const NotchViewModel& model) : isOpen_(model.isOpen()) {
    const double midX = screen.x() + screen.width() / 2.0;
    const QSizeF target = model.targetSize();
    openRect_ =
        hangingFromTop(screen, midX - target.width() / 2, -target.height(), target.width(), target.height());

    const QSizeF closed = model.closedSize();
    const QSizeF notch = model.notchSize();
    const double w = std::max(closed.width(), notch.width());
    hotRect_ = hangingFromTop(screen, midX - w / 2 - 8, -closed.height() - 2, w + 16, closed.height() + 4);
    dragZone_ = hangingFromTop(screen, midX - 260, -180, 520, 180);

    if (!isOpen_) {
        const double h = notch.height();
        const auto count = std::min<qsizetype>(model.secondaries().size(), 2);
        for (qsizetype i = 0; i < count; ++i) {
            const double x = i == 0 ? midX - closed.width() / 2 - 6 - (h - 2) : midX + closed.width() / 2 + 6;
            bubbleRects_.append(hangingFromTop(screen, x, -h, h - 2, h));
        }
    }
}

bool IslandGeometry::closedAreaContains(QPointF point) const {
    return hotRect_.contains(point) || bubbleAt(point).has_value();
}

std::optional<int> IslandGeometry::bubbleAt(QPointF point) const {
    for (qsizetype i = 0; i < bubbleRects_.size(); ++i) {
        if (bubbleHitRect(bubbleRects_[i]).contains(point)) {
            return static_cast<int>(i);
        }
    }
    return std::nullopt;
}

bool IslandGeometry::interactiveAreaContains(QPointF point) const {
    return isOpen_ ? openRectContains(point, 2) : closedAreaContains(point);
}

QRegion IslandGeometry::interactiveRegion() const {
    if (isOpen_) {
        return QRegion(grown(openRect_, 2, 2).toAlignedRect());
    }
    QRegion region(hotRect_.toAlignedRect());
    for (const QRectF& bubble : bubbleRects_) {
        region += bubbleHitRect(bubble).toAlignedRect();
    }
    return region;
}

} // namespace mirrowisp
