#include "media/Palette.h"

#include <gtest/gtest.h>

using namespace mirrowisp;

namespace {

struct PaletteCase {
    const char* name;
    QColor top;    // the upper half of the cover
    QColor bottom; // the lower half
    float hue0, saturation0, value0;
    float hue1, saturation1, value1;
};

QImage cover(const PaletteCase& c) {
    QImage image(120, 120, QImage::Format_RGB32);
    image.fill(c.top);
    for (int y = 60; y < 120; ++y) {
        for (int x = 0; x < 120; ++x) {
            image.setPixelColor(x, y, c.bottom);
        }
    }
    return image;
}

class PaletteTest : public testing::TestWithParam<PaletteCase> {};

} // namespace

TEST_P(PaletteTest, GivesTheVividPrimaryAndASecondColourOrItsTint) {
    const PaletteCase& c = GetParam();
    const std::optional<QList<QColor>> colours = palette(cover(c));
    ASSERT_TRUE(colours);
    ASSERT_EQ(colours->size(), 2);
    const float expected[2][3] = {{c.hue0, c.saturation0, c.value0}, {c.hue1, c.saturation1, c.value1}};
    for (int i = 0; i < 2; ++i) {
        float h = 0, s = 0, v = 0;
        (*colours)[i].getHsvF(&h, &s, &v);
        if (expected[i][1] > 0) {
            EXPECT_NEAR(h, expected[i][0], 0.01) << "colour " << i;
        }
        EXPECT_NEAR(s, expected[i][1], 0.01) << "colour " << i;
        EXPECT_NEAR(v, expected[i][2], 0.01) << "colour " << i;
        EXPECT_EQ((*colours)[i].alphaF(), 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Covers, PaletteTest,
    testing::Values(
        // every score takes the dark penalty; the primary is grey: the accent is a light grey, then its tint
        PaletteCase{"black", Qt::black, Qt::black, 0, 0, 0.78F, 0, 0.2F, 1},
        // one hue only: the second colour is the primary's tint
        PaletteCase{"vivid", QColor::fromHsvF(0.6F, 0.9F, 0.9F), QColor::fromHsvF(0.6F, 0.9F, 0.9F), 0.6F,
                    0.85F, 0.9F, 0.6F, 0.495F, 1},
        // a grey primary of saturation 0.1: a tint of saturation 0.2 at full brightness
        PaletteCase{"grey", QColor::fromHsvF(0.3F, 0.1F, 0.5F), QColor::fromHsvF(0.3F, 0.1F, 0.5F), 0, 0,
                    0.78F, 0.3F, 0.2F, 1},
        // hues 0.99 and 0.02 lie 0.03 apart on the circle: one hue
        PaletteCase{"wrap", QColor::fromHsvF(0.99F, 0.8F, 0.9F), QColor::fromHsvF(0.02F, 0.6F, 0.9F), 0.99F,
                    0.85F, 0.9F, 0.99F, 0.44F, 1},
        // two hues far apart: each in its vivid form, the stronger first
        PaletteCase{"two", QColor::fromHsvF(0.3F, 0.3F, 0.5F), QColor::fromHsvF(0.7F, 0.8F, 0.6F), 0.7F,
                    0.85F, 0.82F, 0.3F, 0.45F, 0.82F}),
    [](const testing::TestParamInfo<PaletteCase>& param) { return param.param.name; });

TEST(PaletteEmptyTest, AnEmptyImageGivesNothing) {
    EXPECT_FALSE(palette(QImage()));
}
