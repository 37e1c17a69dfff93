#include "island/NotchScreen.h"

#include "island/QtScreenSource.h"

#include <QGuiApplication>
#include <QScreen>
#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

NotchScreen underPanel(int panel) {
    return {1, QRect(0, 0, 1920, 1080), QRect(0, panel, 1920, 1080 - panel), 0, QStringLiteral("DP-1")};
}

TEST(NotchScreen, AFakeNotchIsAsHighAsTheTopPanelButNeverBelow26) {
    EXPECT_EQ(notchSize(underPanel(0), 140), QSizeF(140, 26));
    EXPECT_EQ(notchSize(underPanel(20), 140), QSizeF(140, 26));
    EXPECT_EQ(notchSize(underPanel(30), 140), QSizeF(140, 30));
    EXPECT_EQ(notchSize(underPanel(48), 185), QSizeF(185, 48));
    // A screen placed below another keeps its own top as reference.
    const NotchScreen lower{2, QRect(0, 1080, 1920, 1080), QRect(0, 1112, 1920, 1048), 0, {}};
    EXPECT_EQ(notchSize(lower, 140), QSizeF(140, 32));
    EXPECT_FALSE(lower.hasPhysicalNotch());
}

TEST(QtScreenSource, DescribesQtScreensWithThePrimaryFirst) {
    QtScreenSource source;
    const QList<NotchScreen> screens = source.screens();
    ASSERT_EQ(screens.size(), QGuiApplication::screens().size());
    ASSERT_FALSE(screens.isEmpty());
    const QScreen* primary = QGuiApplication::primaryScreen();
    EXPECT_EQ(screens.first().frame, primary->geometry());
    EXPECT_EQ(screens.first().availableGeometry, primary->availableGeometry());
    EXPECT_EQ(screens.first().displayID, QtScreenSource::displayID(primary->name()));
    EXPECT_EQ(source.primaryScreen(), screens.first());
    EXPECT_FALSE(screens.first().hasPhysicalNotch());
}

TEST(QtScreenSource, DisplayIdsAreStablePerName) {
    EXPECT_EQ(QtScreenSource::displayID(QStringLiteral("HDMI-1")),
              QtScreenSource::displayID(QStringLiteral("HDMI-1")));
    EXPECT_NE(QtScreenSource::displayID(QStringLiteral("HDMI-1")),
              QtScreenSource::displayID(QStringLiteral("HDMI-2")));
    EXPECT_EQ(QtScreenSource::displayID(QString()), 0u);
}

} // namespace
