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
#include <QScreen>
#include <gtest/gtest.h>

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

} // namespace mirrowisp::test
