#pragma once

#include <QList>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QRegion>
#include <QSizeF>
#include <optional>

namespace mirrowisp {

class NotchViewModel;

// The rectangles that decide where the island hovers, takes clicks and stays open, in Qt's global
// coordinates. A snapshot: the controller makes a new one whenever the model or the screen changes,
// so pointer events only compare points against stored rectangles.
class IslandGeometry {
public:
    IslandGeometry() = default;
    IslandGeometry(const QRect& screenFrame, const NotchViewModel& model);

    bool isOpen() const { return isOpen_; }
    // The island at its target size, centred at the top of the screen.
    const QRectF& openRect() const { return openRect_; }
    // The closed island with a margin: hover, clicks and hit testing while closed.
    const QRectF& closedIslandHotRect() const { return hotRect_; }
    // The bubbles beside the closed island, left one first; none while open.
    const QList<QRectF>& bubbleRects() const { return bubbleRects_; }

    bool closedAreaContains(QPointF point) const;
    // Index of the first bubble that a click at `point` hits.
    std::optional<int> bubbleAt(QPointF point) const;
    bool openRectContains(QPointF point, double grownBy) const {
        return grown(openRect_, grownBy, grownBy).contains(point);
    }
    // Where a drag from another application opens the shelf: 520 x 180 at the top centre.
    const QRectF& dragZone() const { return dragZone_; }
    // Where the panel takes the pointer now: the open island grown by 2, or the closed area.
    bool interactiveAreaContains(QPointF point) const;
    QRegion interactiveRegion() const;

    static QRectF grown(const QRectF& rect, double dx, double dy) { return rect.adjusted(-dx, -dy, dx, dy); }

private:
    bool isOpen_ = false;
    QRectF openRect_;
    QRectF hotRect_;
    QRectF dragZone_;
    QList<QRectF> bubbleRects_;
};

} // namespace mirrowisp
