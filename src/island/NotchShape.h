#pragma once

#include <QPainterPath>
#include <QRectF>

namespace mirrowisp {

// The island's outline: it hangs from the top edge of its rect, flaring outward at the top corners
// as a notch does at the screen's edge, with rounded bottom corners. y grows downwards.
namespace NotchShape {

struct Radii {
    double top = 0;
    double bottom = 0;
    bool operator==(const Radii&) const = default;
};

// The radii are clamped so the outline stays valid while a spring overshoots or the rect is tiny.
QPainterPath path(const QRectF& rect, double topRadius, double bottomRadius);

// Closed 6/10, closed and hovering 6/13, open 14/36.
Radii radii(bool isOpen, bool isHovering);

} // namespace NotchShape

namespace IslandBackground {
// The share of the island's width that lies under the notch; the glass fill keeps that part black.
double notchFraction(double notchWidth, double targetWidth);
// Where the glass gradient turns from black to glass: never past 0.9, so some glass always shows.
double gradientStop(double notchFraction);
} // namespace IslandBackground

} // namespace mirrowisp
