#include "island/NotchViewModel.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

using namespace mirrowisp;

TEST(NotchViewModel, OpenSizeFallsBackPerTabAndIgnoresSubPixelNoise) {
    NotchViewModel model(1, {140, 26}, false);
    QSignalSpy sizes(&model, &NotchViewModel::openSizesChanged);
    model.setOpenSize({668, 300}, NotchTab::agents);
    EXPECT_EQ(sizes.count(), 1);
    model.setOpenSize({668.4, 300.4}, NotchTab::agents);
    model.setOpenSize({668, 299.5}, NotchTab::agents);
    EXPECT_EQ(sizes.count(), 1) << "a change within half a point is layout noise";
    EXPECT_EQ(model.openSize(NotchTab::agents), QSizeF(668, 300));
    model.setOpenSize({668, 300.6}, NotchTab::agents);
    EXPECT_EQ(sizes.count(), 2);
    EXPECT_EQ(model.animation(), QStringLiteral("resize"));
}

TEST(NotchViewModel, TargetSizeFollowsOpenStateAndTab) {
    NotchViewModel model(1, {140, 26}, false);
    QSignalSpy target(&model, &NotchViewModel::targetSizeChanged);
    model.setClosedSize({228, 26});
    EXPECT_EQ(model.targetSize(), QSizeF(228, 26));
    model.setOpenSize({668, 240}, NotchTab::agents);
    EXPECT_EQ(target.count(), 1) << "a closed island's target does not follow the panel";
    model.setIsOpen(true);
    EXPECT_EQ(model.targetSize(), QSizeF(668, 186));
    model.setTab(NotchTab::agents);
    EXPECT_EQ(model.targetSize(), QSizeF(668, 240));
    EXPECT_EQ(target.count(), 3);
    model.selectTabNamed(QStringLiteral("nonsense"));
    EXPECT_EQ(model.tab(), NotchTab::agents);
}
