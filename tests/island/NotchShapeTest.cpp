#include "island/NotchShape.h"

#include "island/NotchShapeItem.h"

#include <QImage>
#include <QPainter>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

// The points the outline passes through, in order: segment ends, not curve controls. Repeated
// points (zero-length sides) count once.
QList<QPointF> corners(const QPainterPath& path) {
    QList<QPointF> points;
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element element = path.elementAt(i);
        QPointF point = element;
        if (element.isCurveTo()) {
            point = path.elementAt(i + 2);
            i += 2;
        }
        if (points.isEmpty() || points.last() != point) {
            points.append(point);
        }
    }
    return points;
}

} // namespace

TEST(NotchShape, OutlineHangsFromTheTopWithFlaresAndRoundedFoot) {
    const QPainterPath path = NotchShape::path({0, 0, 200, 40}, 6, 10);
    EXPECT_EQ(corners(path),
              QList<QPointF>(
                  {{0, 0}, {6, 6}, {6, 30}, {16, 40}, {184, 40}, {194, 30}, {194, 6}, {200, 0}, {0, 0}}));
    // The flare's control point lies on the top edge, the foot's on the bottom corner.
    ASSERT_TRUE(path.elementAt(1).isCurveTo());
    EXPECT_EQ(path.boundingRect(), QRectF(0, 0, 200, 40));
    EXPECT_TRUE(path.contains(QPointF(100, 20)));
    EXPECT_FALSE(path.contains(QPointF(2, 30))) << "the body is inset by the flare";

    const QPainterPath moved = NotchShape::path({50, 10, 200, 40}, 6, 10);
    EXPECT_EQ(corners(moved).first(), QPointF(50, 10));
    EXPECT_EQ(corners(moved)[3], QPointF(66, 50));
}

TEST(NotchShape, RadiiAreClampedForNarrowAndFlatRects) {
    // Narrower than four top radii: the flare takes a quarter, the foot half of what remains.
    EXPECT_EQ(corners(NotchShape::path({0, 0, 16, 40}, 6, 10)),
              QList<QPointF>({{0, 0}, {4, 4}, {4, 36}, {8, 40}, {12, 36}, {12, 4}, {16, 0}, {0, 0}}));
    // A foot radius beyond half the height rounds the whole lower half.
    EXPECT_EQ(corners(NotchShape::path({0, 0, 200, 20}, 6, 36)),
              QList<QPointF>(
                  {{0, 0}, {6, 6}, {6, 10}, {16, 20}, {184, 20}, {194, 10}, {194, 6}, {200, 0}, {0, 0}}));
    // Negative radii from an undershooting spring do not turn the outline inside out.
    EXPECT_EQ(corners(NotchShape::path({0, 0, 100, 20}, -3, -5)),
              QList<QPointF>({{0, 0}, {0, 20}, {100, 20}, {100, 0}, {0, 0}}));
}

TEST(NotchShape, AZeroWidthRectGivesADegenerateClosedPath) {
    const QPainterPath path = NotchShape::path({10, 0, 0, 30}, 14, 36);
    ASSERT_GT(path.elementCount(), 0);
    const QList<QPointF> points = corners(path);
    for (const QPointF& point : points) {
        EXPECT_EQ(point.x(), 10);
    }
    EXPECT_EQ(points.first(), points.last());
    EXPECT_EQ(path.boundingRect().width(), 0);
}

TEST(NotchShape, GlassFractionFallsBackToWholeAndItsStopKeepsSomeGlass) {
    EXPECT_DOUBLE_EQ(IslandBackground::notchFraction(180, 668), 180.0 / 668);
    EXPECT_EQ(IslandBackground::notchFraction(180, 0), 1);
    EXPECT_EQ(IslandBackground::gradientStop(IslandBackground::notchFraction(180, 180)), 0.9);
}

TEST(NotchShapeItem, PaintsSolidBlackOrGlassThatStaysBlackUnderTheNotch) {
    NotchShapeItem item;
    item.setSize({200, 40});
    const auto render = [&] {
        QImage image(200, 40, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        item.paint(&painter);
        return image;
    };

    QImage black = render();
    EXPECT_EQ(black.pixelColor(100, 20), QColor(Qt::black));
    EXPECT_EQ(black.pixelColor(10, 20), QColor(Qt::black));
    EXPECT_EQ(black.pixelColor(1, 38).alpha(), 0) << "outside the flare";

    item.setGlass(true);
    item.setOpen(true);
    item.setNotchFraction(0.5);
    QImage glass = render();
    EXPECT_EQ(glass.pixelColor(100, 20).alpha(), 255) << "under the notch";
    const int side = glass.pixelColor(10, 20).alpha();
    EXPECT_GT(side, 150) << "the material keeps text on the glass readable";
    EXPECT_LT(side, 255) << "towards the sides the desktop shows through";
    EXPECT_LT(glass.pixelColor(10, 20).red(), 40) << "the glass stays dark";
}
