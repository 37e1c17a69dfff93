// The home tab's volume slider in the real app, against a PulseAudio daemon of the test's own.
#include "X11Desktop.h"
#include "support/RealApp.h"
#include "system/PulseServer.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScreen>
#include <gtest/gtest.h>

namespace mirrowisp::test {
namespace {

QJsonObject island(const RealApp& app) {
    return QJsonDocument::fromJson(app.ctl({QStringLiteral("island")}).out).array().first().toObject();
}

std::optional<QRect> slider(const RealApp& app, const QString& name) {
    for (const QJsonValue& value : island(app)[QStringLiteral("buttons")].toArray()) {
        const QJsonObject b = value.toObject();
        if (b[QStringLiteral("name")].toString() == name) {
            return QRect(qRound(b[QStringLiteral("x")].toDouble()), qRound(b[QStringLiteral("y")].toDouble()),
                         qRound(b[QStringLiteral("width")].toDouble()),
                         qRound(b[QStringLiteral("height")].toDouble()));
        }
    }
    return std::nullopt;
}

int sinkPercent() {
    QByteArray out;
    PulseServer::pactl({QStringLiteral("get-sink-volume"), QStringLiteral("wired")}, &out);
    const qsizetype slash = out.indexOf('/');
    return slash < 0 ? -1 : out.mid(slash + 1, out.indexOf('%', slash) - slash - 1).trimmed().toInt();
}

} // namespace

TEST(HomeLevels, AClickOnTheVolumeSliderSetsTheSink) {
    PulseServer server;
    ASSERT_TRUE(server.start()) << "pulseaudio did not start";
    ASSERT_TRUE(PulseServer::pactl(
        {QStringLiteral("set-sink-volume"), QStringLiteral("wired"), QStringLiteral("50%")}));
    RealApp app{true};
    writeFile(app.home().path() + QStringLiteral("/.config/mirrowisp/defaults.json"),
              R"({"didCompleteOnboarding": true})");
    ASSERT_TRUE(app.start());

    const int centreX = QGuiApplication::primaryScreen()->geometry().center().x();
    ASSERT_TRUE(moveTo({centreX, 6}));
    ASSERT_TRUE(waitUntil([&] { return island(app)[QStringLiteral("isOpen")].toBool(); }));
    ASSERT_EQ(island(app)[QStringLiteral("tab")].toString(), QStringLiteral("home"));
    std::optional<QRect> bar;
    ASSERT_TRUE(waitUntil([&] { return (bar = slider(app, QStringLiteral("volumeSlider"))).has_value(); }))
        << "no volume slider on the home tab";

    // Near the right end of the bar: far above the half the sink had.
    ASSERT_TRUE(clickAt({bar->right() - 4, bar->center().y()}));
    EXPECT_TRUE(waitUntil([] { return sinkPercent() >= 85; })) << sinkPercent();
}

} // namespace mirrowisp::test
