#pragma once

// The real app's island as a test under a private X server sees it: its state through `ctl island`,
// and its picture for the README.

#include "support/RealApp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPixmap>
#include <QRect>
#include <QScreen>
#include <functional>
#include <gtest/gtest.h>
#include <optional>

namespace mirrowisp::test {

// The first island's state as `mirrowisp ctl island` prints it.
inline QJsonObject islandOf(const RealApp& real) {
    return QJsonDocument::fromJson(real.ctl({QStringLiteral("island")}).out).array().first().toObject();
}

// The island's frame once its springs settled, saved as NAME.png where the README's pictures are made
// (MIRROWISP_SCREENSHOT_DIR).
inline void saveIslandScreenshot(const char* name) {
    QElapsedTimer quiet;
    quiet.start();
    waitUntil([&] { return quiet.elapsed() > 1500; }, 3000);
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QImage image =
        QGuiApplication::primaryScreen()->grabWindow(0, screen.center().x() - 410, 0, 820, 300).toImage();
    const QString dir =
        qEnvironmentVariable("MIRROWISP_SCREENSHOT_DIR", QStringLiteral(MIRROWISP_SCREENSHOT_DIR));
    QDir().mkpath(dir);
    EXPECT_TRUE(image.save(dir + QLatin1Char('/') + QString::fromUtf8(name) + QStringLiteral(".png")));
}

// The named button's rectangle in an island's state, as `buttons` lists them; nothing when absent.
inline std::optional<QRect> buttonIn(const QJsonObject& island, const char* name) {
    for (const QJsonValue& value : island[QStringLiteral("buttons")].toArray()) {
        const QJsonObject b = value.toObject();
        if (b[QStringLiteral("name")].toString() == QString::fromUtf8(name)) {
            return QRect(qRound(b[QStringLiteral("x")].toDouble()), qRound(b[QStringLiteral("y")].toDouble()),
                         qRound(b[QStringLiteral("width")].toDouble()),
                         qRound(b[QStringLiteral("height")].toDouble()));
        }
    }
    return std::nullopt;
}

// Where a rectangle rests once it has not moved for 400 ms (an opening spring settled), not where it
// passes on the way; nothing when it never rests within ten seconds.
inline std::optional<QRect> restingRect(const std::function<std::optional<QRect>()>& seenNow) {
    std::optional<QRect> last;
    QElapsedTimer still;
    const bool rested = waitUntil(
        [&] {
            const auto seen = seenNow();
            if (!seen || seen != last) {
                last = seen;
                still.start();
            }
            return seen.has_value() && still.elapsed() >= 400;
        },
        10000);
    return rested ? last : std::nullopt;
}

} // namespace mirrowisp::test
