#include "island/NotchAnimation.h"

#include "island/Spring.h"

#include <gtest/gtest.h>
#include <numbers>

using namespace mirrowisp;

namespace {

double peak(const Spring& spring) {
    double highest = 0;
    for (double t = 0; t < 3; t += 0.0005) {
        highest = std::max(highest, spring.value(t));
    }
    return highest;
}

} // namespace

TEST(Spring, StartsAtRestSettlesOnOneAndOnlyUnderDampedOnesOvershoot) {
    const Spring open{0.46, 0.74, 0};
    EXPECT_EQ(open.value(0), 0);
    EXPECT_NEAR(open.value(0.001), 0, 1e-3) << "starts at rest, no jump";
    EXPECT_GT(peak(open), 1.01);
    EXPECT_NEAR(open.value(5), 1, 1e-9);

    const Spring close{0.34, 1.0, 0};
    EXPECT_LE(peak(close), 1.0) << "critical damping never overshoots";
    EXPECT_NEAR(close.value(0.34), 1 - std::exp(-2 * std::numbers::pi) * (1 + 2 * std::numbers::pi), 1e-12);

    const Spring heavy{0.3, 1.5, 0};
    EXPECT_LE(peak(heavy), 1.0);
    EXPECT_NEAR(heavy.value(4), 1, 1e-6);
}

TEST(Spring, SettlingTimeIsTheLastMomentOutsideTheBand) {
    for (const Spring& spring : {Spring{0.46, 0.74, 0}, Spring{0.34, 1.0, 0}, Spring{0.26, 0.72, 0}}) {
        const double settle = spring.settlingTime();
        for (double t = settle; t < settle + 2; t += 0.001) {
            ASSERT_LT(std::abs(spring.value(t) - 1), 0.001) << "stays in the band after " << settle;
        }
        bool outsideJustBefore = false;
        for (double t = settle - 0.01; t < settle; t += 0.0005) {
            outsideJustBefore = outsideJustBefore || std::abs(spring.value(t) - 1) >= 0.001;
        }
        EXPECT_TRUE(outsideJustBefore) << "not settled much earlier than " << settle;
    }
    EXPECT_LT(Spring({0.34, 1.0, 0}).settlingTime(), Spring({0.46, 0.74, 0}).settlingTime());
}

TEST(NotchAnimation, NamedMotionsGiveDurationDelayAndCurve) {
    NotchAnimation animation;
    const int settle = animation.duration(QStringLiteral("activity"));
    EXPECT_NEAR(settle, NotchAnimation::spring(u"activity")->settlingTime() * 1000, 1);

    // Every spring curve runs from 0 to exactly 1 and follows its spring in between.
    for (const QString& name : NotchAnimation::names()) {
        const QEasingCurve curve = animation.curve(name);
        EXPECT_NEAR(curve.valueForProgress(0), 0, 1e-9) << name.toStdString();
        EXPECT_EQ(curve.valueForProgress(1), 1) << name.toStdString();
    }
    const QEasingCurve activity = animation.curve(QStringLiteral("activity"));
    const Spring spring = *NotchAnimation::spring(u"activity");
    EXPECT_NEAR(activity.valueForProgress(0.3), spring.value(0.3 * spring.settlingTime()), 1e-9);
    double highest = 0;
    for (double p = 0; p <= 1; p += 0.01) {
        highest = std::max(highest, activity.valueForProgress(p));
    }
    EXPECT_GT(highest, 1) << "the curve keeps the spring's overshoot";
    EXPECT_NE(animation.curve(QStringLiteral("open")).valueForProgress(0.2),
              animation.curve(QStringLiteral("close")).valueForProgress(0.2));
}

TEST(NotchAnimation, UnknownNamesPlayAsAnInstantLinearChange) {
    NotchAnimation animation;
    EXPECT_EQ(NotchAnimation::durationOf(u"wobble"), std::nullopt);
    EXPECT_EQ(animation.duration(QStringLiteral("wobble")), 0);
    EXPECT_EQ(animation.delay(QStringLiteral("wobble")), 0);
    EXPECT_EQ(animation.curve(QStringLiteral("wobble")).type(), QEasingCurve::Linear);
}
