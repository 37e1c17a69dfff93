#include "shelf/ShelfConversionJob.h"
#include "shelf/ShelfConverter.h"
#include "support/ScopedEnvironment.h"
#include "support/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace mirrowisp {
namespace {

namespace SC = ShelfConverter;
using Kind = SC::Conversion::Kind;

QByteArray runTool(const QString& tool, const QStringList& arguments) {
    QProcess process;
    process.start(tool, arguments);
    process.waitForFinished(60'000);
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput();
}

// One 1080p clip with sound for the whole suite: two seconds, made by ffmpeg's own test sources.
class ShelfVideoTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        clipFolder = new QTemporaryDir;
        runTool(QStringLiteral("ffmpeg"),
                QStringLiteral("-v error -f lavfi -i testsrc2=size=1920x1080:rate=25:duration=2 -f lavfi -i "
                               "sine=frequency=440:duration=2 -c:v libx264 -preset ultrafast -c:a aac")
                        .split(u' ')
                    << clipFolder->filePath(QStringLiteral("clip.mkv")));
    }
    static void TearDownTestSuite() { delete clipFolder; }

    QString copyOfClip() {
        const QString path = dir.filePath(QStringLiteral("clip.mkv"));
        EXPECT_TRUE(QFile::copy(clipFolder->filePath(QStringLiteral("clip.mkv")), path));
        return path;
    }
    QStringList filesInFolder() const { return QDir(dir.path()).entryList(QDir::Files, QDir::Name); }

    static inline QTemporaryDir* clipFolder = nullptr;
    QTemporaryDir dir;
};

TEST_F(ShelfVideoTest, MakesA720pMp4WithRisingProgress) {
    const QString clip = copyOfClip();
    EXPECT_EQ(SC::formats({clip}), (QList<SC::Conversion>{{Kind::video, {}}, {Kind::smallerVideo, {}}}));
    QList<double> seen;
    const SC::Report report = SC::convert({Kind::smallerVideo, {}}, {clip},
                                          {[&](int source, double fraction) {
                                               EXPECT_EQ(source, 0);
                                               seen.append(fraction);
                                           },
                                           {}});
    ASSERT_EQ(report.files.size(), 1) << report.failures.join(u'\n').toStdString();
    EXPECT_EQ(QFileInfo(report.files.front()).fileName(), QStringLiteral("clip (smaller).mp4"));
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_TRUE(std::any_of(seen.begin(), seen.end(), [](double f) { return f > 0 && f < 1; }));
    EXPECT_EQ(seen.back(), 1.0);

    const QByteArray streams =
        runTool(QStringLiteral("ffprobe"),
                QStringLiteral("-v error -show_entries stream=codec_name,height -of csv=p=0").split(u' ')
                    << report.files.front());
    EXPECT_EQ(streams.trimmed().split('\n'), (QList<QByteArray>{"h264,720", "aac"}));
    // The index comes before the media, so a browser plays it while it loads.
    const QByteArray bytes = test::readFile(report.files.front());
    EXPECT_LT(bytes.indexOf("moov"), bytes.indexOf("mdat"));
}

TEST_F(ShelfVideoTest, CancelKillsFfmpegAndLeavesNothing) {
    const QString clip = copyOfClip();
    ShelfConversionJob job({Kind::video, {}}, {clip});
    std::optional<SC::Report> report;
    QObject::connect(&job, &ShelfConversionJob::progressed, &job, [&] { job.cancel(); });
    QObject::connect(&job, &ShelfConversionJob::finished, &job, [&](const SC::Report& r) { report = r; });
    job.start();
    ASSERT_TRUE(test::waitUntil([&] { return report.has_value(); }, 30'000));
    EXPECT_TRUE(report->cancelled);
    EXPECT_TRUE(report->files.isEmpty());
    EXPECT_EQ(filesInFolder(), QStringList{QStringLiteral("clip.mkv")});
}

struct VideoFailure {
    const char* label;
    const char* source; // "clip": the real clip; "text": words named .mp4; "fifo"; "gone"
    bool withoutFfmpeg;
    const char* why;
};

class ShelfVideoFailureTest : public ShelfVideoTest, public ::testing::WithParamInterface<VideoFailure> {};

TEST_P(ShelfVideoFailureTest, AddsNothingAndSaysWhy) {
    const VideoFailure& c = GetParam();
    const QString source = dir.filePath(QStringLiteral("in.mp4"));
    const QString kind = QString::fromLatin1(c.source);
    if (kind == QLatin1StringView("clip")) {
        QFile::copy(clipFolder->filePath(QStringLiteral("clip.mkv")), source);
    } else if (kind == QLatin1StringView("text")) {
        test::writeFile(source, "not a video at all");
    } else if (kind == QLatin1StringView("fifo")) {
        ASSERT_EQ(::mkfifo(QFile::encodeName(source).constData(), 0600), 0);
    }
    const QStringList before = filesInFolder();
    test::ScopedEnvironment environment;
    if (c.withoutFfmpeg) {
        environment.set("PATH", QFile::encodeName(dir.path()));
    }
    const SC::Report report = SC::convert({Kind::smallerVideo, {}}, {source});
    EXPECT_TRUE(report.files.isEmpty());
    ASSERT_EQ(report.failures.size(), 1);
    EXPECT_TRUE(report.failures.front().startsWith(QStringLiteral("in.mp4: ") + QString::fromLatin1(c.why)))
        << report.failures.front().toStdString();
    EXPECT_EQ(filesInFolder(), before);
}

INSTANTIATE_TEST_SUITE_P(Failures, ShelfVideoFailureTest,
                         ::testing::Values(VideoFailure{"FfmpegMissing", "clip", true,
                                                        "ffmpeg is not installed"},
                                           VideoFailure{"NotAVideo", "text", false, "ffmpeg failed: "},
                                           VideoFailure{"Fifo", "fifo", false, "not a regular file"},
                                           VideoFailure{"Gone", "gone", false, "the file is gone"}),
                         [](const auto& param) { return std::string(param.param.label); });

} // namespace
} // namespace mirrowisp
