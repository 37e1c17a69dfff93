// The shelf through `mirrowisp ctl shelf` against the real app, across a restart.
#include "support/RealApp.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace {

using mirrowisp::test::text;

QJsonArray entries(mirrowisp::test::RealApp& real) {
    const auto listed = real.ctl({text("shelf")});
    EXPECT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    return QJsonDocument::fromJson(listed.out).array();
}

TEST(ShelfControl, AddsConvertsAndRemovesAcrossARestart) {
    mirrowisp::test::RealApp real;
    ASSERT_TRUE(real.busStarted());
    ASSERT_TRUE(real.start());
    const QString picture = real.home().path() + text("/pictures/photo.png");
    const QString notes = real.home().path() + text("/notes.txt");
    mirrowisp::test::writeFile(notes, "notes");
    QImage pixels(64, 32, QImage::Format_RGB32);
    pixels.fill(Qt::blue);
    QDir().mkpath(QFileInfo(picture).path());
    ASSERT_TRUE(pixels.save(picture));

    const auto added = real.ctl({text("shelf"), text("add"), picture, notes, notes, text("/nowhere")});
    EXPECT_EQ(added.out.trimmed(), QByteArray("2")) << added.err.toStdString();
    EXPECT_EQ(real.ctl({text("shelf"), text("add"), notes}).out.trimmed(), QByteArray("0"));

    real.stop();
    ASSERT_TRUE(real.start());
    QJsonArray shelf = entries(real);
    ASSERT_EQ(shelf.size(), 1);
    const QJsonObject stack = shelf[0].toObject();
    EXPECT_TRUE(stack[text("stack")].toBool());
    const QJsonObject photo = stack[text("items")].toArray()[0].toObject();
    EXPECT_EQ(photo[text("path")].toString(), picture);

    const auto converted =
        real.ctl({text("shelf"), text("convert"), photo[text("id")].toString(), text("jpeg")});
    ASSERT_EQ(converted.exitCode, 0) << converted.err.toStdString();
    const QString jpeg = QJsonDocument::fromJson(converted.out).array()[0].toString();
    EXPECT_EQ(jpeg, real.home().path() + text("/pictures/photo.jpg"));
    shelf = entries(real);
    ASSERT_EQ(shelf.size(), 2);
    EXPECT_FALSE(shelf[0].toObject()[text("stack")].toBool());

    EXPECT_EQ(real.ctl({text("shelf"), text("remove"), stack[text("id")].toString()}).exitCode, 0);
    EXPECT_EQ(real.ctl({text("shelf"), text("remove"), stack[text("id")].toString()}).exitCode, 1);
    const auto unknownFormat =
        real.ctl({text("shelf"), text("convert"), shelf[0].toObject()[text("id")].toString(), text("gif")});
    EXPECT_NE(unknownFormat.exitCode, 0);
    EXPECT_TRUE(unknownFormat.err.contains("no conversion called gif"));
    EXPECT_EQ(entries(real).size(), 1);
    EXPECT_TRUE(QFileInfo::exists(picture) && QFileInfo::exists(notes));
}

} // namespace
