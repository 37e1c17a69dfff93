// Videos through the ffmpeg command, followed through its progress output and stopped on a cancel.
#include "shelf/ShelfConverter.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <algorithm>
#include <sys/stat.h>

namespace mirrowisp::ShelfConverter {

namespace {

// How often the cancel is looked at while ffmpeg works.
constexpr int pollMs = 100;
// Enough of ffmpeg's messages to find the input's duration and its last complaint.
constexpr qsizetype messageLimit = 64 * 1024;

std::optional<qint64> durationMicroseconds(const QByteArray& messages) {
    static const QRegularExpression pattern(QStringLiteral(R"(Duration: (\d+):(\d\d):(\d\d(?:\.\d+)?))"));
    const QRegularExpressionMatch match = pattern.match(QString::fromUtf8(messages));
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    const double seconds = match.captured(1).toDouble() * 3600 + match.captured(2).toDouble() * 60 +
                           match.captured(3).toDouble();
    return seconds > 0 ? std::optional(qint64(seconds * 1e6)) : std::nullopt;
}

// ffmpeg's last words, which say why it stopped.
QString lastMessage(const QByteArray& messages) {
    const QList<QByteArray> lines = messages.trimmed().split('\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        const QString text = QString::fromUtf8(line->trimmed());
        if (!text.isEmpty() && text != QLatin1StringView("Conversion failed!")) {
            return text;
        }
    }
    return {};
}

// Reads "key=value" lines of `-progress` output as they come; a partial line waits for its end.
class ProgressReader {
public:
    // The fraction done, when these lines moved it.
    std::optional<double> take(const QByteArray& bytes, std::optional<qint64> duration) {
        pending_ += bytes;
        std::optional<double> fraction;
        qsizetype end = 0;
        while ((end = pending_.indexOf('\n')) >= 0) {
            const QByteArray line = pending_.left(end).trimmed();
            pending_.remove(0, end + 1);
            bool ok = false;
            if (line.startsWith("out_time_us=") && duration) {
                const qint64 done = line.mid(12).toLongLong(&ok);
                if (ok && done >= 0) {
                    fraction = std::clamp(double(done) / double(*duration), 0.0, 1.0);
                }
            } else if (line == "progress=end") {
                fraction = 1.0;
            }
        }
        return fraction;
    }

private:
    QByteArray pending_;
};

bool isRegularFile(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 && S_ISREG(info.st_mode);
}

} // namespace

Result exportVideo(const QString& path, bool smaller, const Watch& watch) {
    if (!isRegularFile(path)) {
        return Result::failed(QFileInfo::exists(path) ? QStringLiteral("not a regular file")
                                                      : QStringLiteral("the file is gone"));
    }
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        return Result::failed(QStringLiteral("ffmpeg is not installed"));
    }
    const auto target = destination(
        path, QFileInfo(path).completeBaseName() + (smaller ? QStringLiteral(" (smaller)") : QString()),
        QStringLiteral("mp4"));
    if (!target) {
        return Result::failed(QStringLiteral("no folder to write into"));
    }
    // The name is taken now, so what is removed on failure is only ever ffmpeg's own output.
    if (QFile reserved(*target); !reserved.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        return Result::failed(QStringLiteral("cannot write ") + *target + QStringLiteral(": ") +
                              reserved.errorString());
    }
    // Progress four times a second, for a bar that moves smoothly.
    QStringList arguments{QStringLiteral("-nostdin"), QStringLiteral("-hide_banner"),
                          QStringLiteral("-nostats")};
    arguments << QStringLiteral("-progress") << QStringLiteral("pipe:1") << QStringLiteral("-stats_period")
              << QStringLiteral("0.25") << QStringLiteral("-i") << path;
    if (smaller) {
        // Fits 1280 by 720 with its own proportions, never enlarged, sides kept even for H.264.
        arguments << QStringLiteral("-vf")
                  << QStringLiteral("scale='min(1280,iw)':'min(720,ih)':force_original_aspect_ratio=decrease:"
                                    "force_divisible_by=2");
    }
    // Subtitles and data streams are left out: MP4 takes few of their kinds, and one would fail it all.
    arguments << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-crf")
              << QStringLiteral("20") << QStringLiteral("-pix_fmt") << QStringLiteral("yuv420p")
              << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-sn")
              << QStringLiteral("-dn") << QStringLiteral("-movflags") << QStringLiteral("+faststart")
              << QStringLiteral("-y") << *target;

    QProcess process;
    process.start(ffmpeg, arguments);
    if (!process.waitForStarted(-1)) {
        QFile::remove(*target);
        return Result::failed(QStringLiteral("ffmpeg did not start: ") + process.errorString());
    }
    QByteArray messages;
    std::optional<qint64> duration;
    ProgressReader progress;
    watch.report(0);
    for (bool running = true; running;) {
        running = !process.waitForFinished(pollMs) && process.state() != QProcess::NotRunning;
        messages += process.readAllStandardError();
        if (!duration) {
            duration = durationMicroseconds(messages);
        }
        if (messages.size() > messageLimit) {
            messages = messages.right(messageLimit / 2);
        }
        if (const auto fraction = progress.take(process.readAllStandardOutput(), duration)) {
            watch.report(*fraction);
        }
        if (running && watch.isCancelled()) {
            process.kill();
            process.waitForFinished(-1);
            QFile::remove(*target);
            return Result::failed(QStringLiteral("cancelled"));
        }
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        QFile::remove(*target);
        const QString why = lastMessage(messages);
        return Result::failed(QStringLiteral("ffmpeg failed") +
                              (why.isEmpty() ? QString() : QStringLiteral(": ") + why));
    }
    return Result::made(*target);
}

} // namespace mirrowisp::ShelfConverter
