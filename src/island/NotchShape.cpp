#include "island/NotchShape.h"

#include <algorithm>

namespace mirrowisp {

namespace NotchShape {

QPainterPath path(const QRectF& rect, double topRadius, double bottomRadius) {
    const double t = std::max(0.0, std::min(topRadius, rect.width() / 4));
    const double b = std::max(0.0, std::min({bottomRadius, rect.height() / 2, (rect.width() - 2 * t) / 2}));
    const double minX = rect.left();
    const double minY = rect.top();
    const double maxX = rect.right();
    const double maxY = rect.bottom();

    QPainterPath outline;
    outline.moveTo(minX, minY);
    outline.quadTo(minX + t, minY, minX + t, minY + t);
    outline.lineTo(minX + t, maxY - b);
    outline.quadTo(minX + t, maxY, minX + t + b, maxY);
    outline.lineTo(maxX - t - b, maxY);
    outline.quadTo(maxX - t, maxY, maxX - t, maxY - b);
    outline.lineTo(maxX - t, minY + t);
    outline.quadTo(maxX - t, minY, maxX, minY);
    outline.closeSubpath();
    return outline;
}

Radii radii(bool isOpen, bool isHovering) {
    if (isOpen) {
        return {14, 36};
    }
    return isHovering ? Radii{6, 13} : Radii{6, 10};
}

} // namespace NotchShape

namespace IslandBackground {

double notchFraction(double notchWidth, double targetWidth) {
    return targetWidth > 0 ? notchWidth / targetWidth : 1.0;
}

double gradientStop(double notchFraction) {
    return std::clamp(notchFraction, 0.0, 0.9);
}

} // namespace IslandBackground

} // namespace mirrowisp
