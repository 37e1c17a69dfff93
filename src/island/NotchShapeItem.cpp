#include "island/NotchShapeItem.h"

#include "island/NotchShape.h"

#include <QLinearGradient>
#include <QPainter>

namespace mirrowisp {

namespace {
constexpr double glassTintOpacity = 0.35;
} // namespace

NotchShapeItem::NotchShapeItem(QQuickItem* parent) : QQuickPaintedItem(parent) {
    setAntialiasing(true);
    // Size changes repaint on their own; the fill never depends on anything outside the item.
    connect(this, &QQuickItem::widthChanged, this, [this] { update(); });
    connect(this, &QQuickItem::heightChanged, this, [this] { update(); });
}

template <typename T> void NotchShapeItem::assign(T& member, T value, void (NotchShapeItem::*changed)()) {
    if (member != value) {
        member = value;
        Q_EMIT(this->*changed)();
        update();
    }
}

void NotchShapeItem::setTopRadius(double radius) {
    assign(topRadius_, radius, &NotchShapeItem::topRadiusChanged);
}

void NotchShapeItem::setBottomRadius(double radius) {
    assign(bottomRadius_, radius, &NotchShapeItem::bottomRadiusChanged);
}

void NotchShapeItem::setOpen(bool open) {
    assign(open_, open, &NotchShapeItem::openChanged);
}

void NotchShapeItem::setGlass(bool glass) {
    assign(glass_, glass, &NotchShapeItem::glassChanged);
}

void NotchShapeItem::setNotchFraction(double fraction) {
    assign(notchFraction_, fraction, &NotchShapeItem::notchFractionChanged);
}

void NotchShapeItem::paint(QPainter* painter) {
    const QRectF bounds(0, 0, width(), height());
    const QPainterPath outline = NotchShape::path(bounds, topRadius_, bottomRadius_);
    painter->setRenderHint(QPainter::Antialiasing, true);
    painter->setPen(Qt::NoPen);
    // A closed island reads as part of the notch, so only the open panel shows the glass.
    if (!glass_ || !open_) {
        painter->fillPath(outline, Qt::black);
        return;
    }
    // Black across the middle share that lies under the notch, fading to clear towards the sides.
    const double stop = IslandBackground::gradientStop(notchFraction_);
    QLinearGradient underlay(bounds.topLeft(), bounds.topRight());
    underlay.setColorAt(0, Qt::transparent);
    underlay.setColorAt((1 - stop) / 2, Qt::black);
    underlay.setColorAt((1 + stop) / 2, Qt::black);
    underlay.setColorAt(1, Qt::transparent);
    painter->fillPath(outline, underlay);
    // No blur behind windows on X11: a dark, mostly opaque material keeps the panel's text readable
    // over any desktop, and the black tint goes over it as it would over a blurred backdrop.
    painter->fillPath(outline, QColor(28, 28, 30, 200));
    QColor tint(Qt::black);
    tint.setAlphaF(static_cast<float>(glassTintOpacity));
    painter->fillPath(outline, tint);
}

} // namespace mirrowisp
