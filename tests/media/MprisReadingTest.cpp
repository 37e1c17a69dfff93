#include "media/MprisReading.h"

#include "MockPlayer.h"

#include <gtest/gtest.h>

using namespace mirrowisp;
using namespace Qt::StringLiterals;

namespace {

struct ReadingCase {
    const char* name;
    std::function<void(QVariantMap& properties, QVariantMap& metadata)> change;
    std::optional<double> duration; // nothing: no track
    double position = 0;
    bool canRepeat = true;
    qsizetype titleLength = 5;
};

class MprisReadingTest : public testing::TestWithParam<ReadingCase> {};

} // namespace

TEST_P(MprisReadingTest, ReadsWhatIsUsableAndNothingElse) {
    QVariantMap metadata = test::metadata(u"Title"_s, u"Artist"_s, 200);
    QVariantMap properties = test::playerProperties(u"Paused"_s, {}, 30);
    GetParam().change(properties, metadata);
    properties.insert(u"Metadata"_s, metadata);
    const MprisReading reading = readMprisProperties(u"org.mpris.MediaPlayer2.x"_s, properties);
    ASSERT_EQ(reading.track.has_value(), GetParam().duration.has_value());
    if (reading.track) {
        EXPECT_EQ(reading.track->duration, *GetParam().duration);
        EXPECT_EQ(reading.track->position, GetParam().position);
        EXPECT_EQ(reading.track->canRepeat, GetParam().canRepeat);
        EXPECT_EQ(reading.track->title.size(), GetParam().titleLength);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Properties, MprisReadingTest,
    testing::Values(
        ReadingCase{"plain", [](QVariantMap&, QVariantMap&) {}, 200, 30},
        ReadingCase{
            "stopped", [](QVariantMap& p, QVariantMap&) { p[u"PlaybackStatus"_s] = u"Stopped"_s; }, {}},
        ReadingCase{
            "statusOfWrongType", [](QVariantMap& p, QVariantMap&) { p[u"PlaybackStatus"_s] = 1; }, {}},
        ReadingCase{"titleOfWrongType", [](QVariantMap&, QVariantMap& m) { m[u"xesam:title"_s] = 7; }, {}},
        ReadingCase{"lengthOfWrongType",
                    [](QVariantMap&, QVariantMap& m) { m[u"mpris:length"_s] = u"long"_s; }, 0, 30},
        ReadingCase{"negativeLength", [](QVariantMap&, QVariantMap& m) { m[u"mpris:length"_s] = -5; }, 0, 30},
        ReadingCase{"positionBeyondLength",
                    [](QVariantMap& p, QVariantMap&) { p[u"Position"_s] = qlonglong(900e6); }, 200, 200},
        ReadingCase{"noLoopStatus", [](QVariantMap& p, QVariantMap&) { p.remove(u"LoopStatus"_s); }, 200, 30,
                    false},
        ReadingCase{"hugeTitle",
                    [](QVariantMap&, QVariantMap& m) { m[u"xesam:title"_s] = QString(100'000, u'x'); }, 200,
                    30, true, 512}),
    [](const testing::TestParamInfo<ReadingCase>& param) { return param.param.name; });

TEST(MprisReadingNotAMapTest, MetadataThatIsNoDictionaryGivesNoTrack) {
    QVariantMap properties = test::playerProperties(u"Playing"_s, {});
    properties[u"Metadata"_s] = QStringList{u"xesam:title"_s};
    EXPECT_FALSE(readMprisProperties(u"p"_s, properties).track);
}
