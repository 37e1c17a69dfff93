#include "shelf/ShelfConverter.h"

#include "base/MainQueue.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QMimeDatabase>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QStandardPaths>
#include <QThreadPool>
#include <algorithm>
#include <zip.h>

namespace mirrowisp::ShelfConverter {

namespace {

using Kind = Conversion::Kind;

constexpr int quality = 85;

struct ImageFormat {
    const char* key;
    const char* mimeType;
    const char* extension;
    const char* writerFormat;
};

// In the menu's order; HEIC and WebP only where this machine's Qt has a writer for them.
constexpr ImageFormat imageFormats[] = {
    {"jpeg", "image/jpeg", "jpg", "jpeg"},      {"heic", "image/heif", "heic", "heif"},
    {"webp", "image/webp", "webp", "webp"},     {"png", "image/png", "png", "png"},
    {"pdf", "application/pdf", "pdf", nullptr},
};

const ImageFormat* formatFor(const QString& mimeType) {
    for (const ImageFormat& format : imageFormats) {
        if (mimeType == QLatin1StringView(format.mimeType)) {
            return &format;
        }
    }
    return nullptr;
}

bool canWrite(const ImageFormat& format) {
    return format.writerFormat == nullptr ||
           QImageWriter::supportedImageFormats().contains(format.writerFormat);
}

// The file's type by content and name; nothing when neither tells.
std::optional<QMimeType> typeOf(const QString& path) {
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    if (!type.isValid() || type.isDefault()) {
        return std::nullopt;
    }
    return type;
}

bool isImage(const QMimeType& type) {
    return type.name().startsWith(QLatin1StringView("image/")) &&
           QImageReader::supportedMimeTypes().contains(type.name().toLatin1());
}

bool isMovie(const QMimeType& type) {
    return type.name().startsWith(QLatin1StringView("video/"));
}

bool isPDF(const QMimeType& type) {
    return type.inherits(QStringLiteral("application/pdf"));
}

QString stem(const QString& path) {
    return QFileInfo(path).completeBaseName();
}

std::optional<QImage> readImage(const QString& path, std::optional<int> maxSide = std::nullopt) {
    QImageReader reader(path);
    reader.setAutoTransform(true); // the camera's EXIF orientation, applied
    if (maxSide) {
        const QSize size = reader.size();
        if (size.isValid() && size.width() > 0 && size.height() > 0) {
            const double scale = static_cast<double>(*maxSide) / std::max(size.width(), size.height());
            reader.setScaledSize(
                QSize(std::max(1, qRound(size.width() * scale)), std::max(1, qRound(size.height() * scale))));
        }
    }
    QImage image = reader.read();
    if (image.isNull()) {
        return std::nullopt;
    }
    return image;
}

// One page per image, each page the image's size at 72 dpi.
bool writePDF(const QString& target, const QList<QImage>& images) {
    QPdfWriter writer(target);
    writer.setResolution(72);
    writer.setPageMargins(QMarginsF(0, 0, 0, 0));
    writer.setPageSize(QPageSize(images.front().size(), QPageSize::Point));
    QPainter painter;
    if (!painter.begin(&writer)) {
        return false;
    }
    for (qsizetype i = 0; i < images.size(); ++i) {
        if (i > 0) {
            writer.setPageSize(QPageSize(images[i].size(), QPageSize::Point));
            writer.newPage();
        }
        painter.drawImage(QRectF(QPointF(0, 0), QSizeF(images[i].size())), images[i]);
    }
    return painter.end();
}

std::optional<QString> writeImage(const QImage& image, const QString& target, const QByteArray& format) {
    QImageWriter writer(target, format);
    if (format != "png") {
        writer.setQuality(quality);
    }
    if (!writer.write(image)) {
        QFile::remove(target);
        return std::nullopt;
    }
    return target;
}

bool addToZip(zip_t* archive, const QString& path, const QString& nameInZip) {
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink()) {
        if (zip_dir_add(archive, nameInZip.toUtf8().constData(), ZIP_FL_ENC_UTF_8) < 0) {
            return false;
        }
        QDirIterator children(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        while (children.hasNext()) {
            const QString child = children.next();
            if (!addToZip(archive, child, nameInZip + QLatin1Char('/') + QFileInfo(child).fileName())) {
                return false;
            }
        }
        return true;
    }
    if (!info.isFile()) {
        return true; // a FIFO, socket or device has no content to keep
    }
    zip_source_t* source = zip_source_file(archive, QFile::encodeName(path).constData(), 0, -1);
    if (source == nullptr) {
        return false;
    }
    if (zip_file_add(archive, nameInZip.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0) {
        zip_source_free(source);
        return false;
    }
    return true;
}

} // namespace

QString Conversion::title() const {
    switch (kind) {
    case Kind::image:
        if (const ImageFormat* format = formatFor(type)) {
            return QString::fromLatin1(format->key).toUpper();
        }
        return type;
    case Kind::smallerImage:
        return QStringLiteral("Smaller (half size)");
    case Kind::video:
        return QStringLiteral("MP4");
    case Kind::smallerVideo:
        return QStringLiteral("Smaller MP4 (720p)");
    case Kind::zip:
        return QStringLiteral("Compress to ZIP");
    case Kind::combinePDF:
        return QStringLiteral("Combine into PDF");
    }
    return {};
}

QString Conversion::key() const {
    switch (kind) {
    case Kind::image:
        if (const ImageFormat* format = formatFor(type)) {
            return QString::fromLatin1(format->key);
        }
        return type;
    case Kind::smallerImage:
        return QStringLiteral("smaller");
    case Kind::video:
        return QStringLiteral("mp4");
    case Kind::smallerVideo:
        return QStringLiteral("smaller-mp4");
    case Kind::zip:
        return QStringLiteral("zip");
    case Kind::combinePDF:
        return QStringLiteral("combine-pdf");
    }
    return {};
}

std::optional<Conversion> Conversion::fromKey(const QString& key) {
    for (const ImageFormat& format : imageFormats) {
        if (key == QLatin1StringView(format.key)) {
            return Conversion{Kind::image, QString::fromLatin1(format.mimeType)};
        }
    }
    for (Kind kind : {Kind::smallerImage, Kind::video, Kind::smallerVideo, Kind::zip, Kind::combinePDF}) {
        if (Conversion{kind, {}}.key() == key) {
            return Conversion{kind, {}};
        }
    }
    return std::nullopt;
}

QList<Conversion> formats(const QStringList& paths) {
    QList<QMimeType> types;
    for (const QString& path : paths) {
        if (QFileInfo(path).isDir()) {
            return {}; // a folder is neither; only a ZIP suits it
        }
        if (const auto type = typeOf(path)) {
            types.append(*type);
        }
    }
    if (types.isEmpty()) {
        return {};
    }
    const auto all = [&](auto test) { return std::all_of(types.begin(), types.end(), test); };
    const bool oneType = all([&](const QMimeType& type) { return type == types.front(); });
    QList<Conversion> list;
    if (all(isImage)) {
        for (const ImageFormat& format : imageFormats) {
            const bool alreadyIs = oneType && types.front().inherits(QString::fromLatin1(format.mimeType));
            if (!alreadyIs && canWrite(format)) {
                list.append(Conversion{Kind::image, QString::fromLatin1(format.mimeType)});
            }
        }
        list.append(Conversion{Kind::smallerImage, {}});
    } else if (all(isMovie)) {
        if (!all([](const QMimeType& type) { return type.inherits(QStringLiteral("video/mp4")); })) {
            list.append(Conversion{Kind::video, {}});
        }
        list.append(Conversion{Kind::smallerVideo, {}});
    }
    return list;
}

bool canCombine(const QStringList& paths) {
    return paths.size() >= 2 && std::all_of(paths.begin(), paths.end(), [](const QString& path) {
               const auto type = typeOf(path);
               return type && !QFileInfo(path).isDir() && (isImage(*type) || isPDF(*type));
           });
}

std::optional<QString> destination(const QString& source, const QString& name, const QString& extension) {
    const QFileInfo folderInfo(QFileInfo(source).absolutePath());
    QString folder = folderInfo.absoluteFilePath();
    if (!folderInfo.isDir() || !folderInfo.isWritable()) {
        folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
        if (folder.isEmpty() || !QDir().mkpath(folder)) {
            return std::nullopt;
        }
    }
    const QString suffix = QLatin1Char('.') + extension;
    QString candidate = folder + QLatin1Char('/') + name + suffix;
    for (int n = 2; QFileInfo::exists(candidate) || QFileInfo(candidate).isSymLink(); ++n) {
        candidate = folder + QLatin1Char('/') + name + QStringLiteral(" %1").arg(n) + suffix;
    }
    return candidate;
}

std::optional<QString> convertImage(const QString& path, const QString& mimeType) {
    const ImageFormat* format = formatFor(mimeType);
    if (format == nullptr || !canWrite(*format)) {
        return std::nullopt;
    }
    const auto image = readImage(path);
    if (!image) {
        return std::nullopt;
    }
    const auto target = destination(path, stem(path), QString::fromLatin1(format->extension));
    if (!target) {
        return std::nullopt;
    }
    if (format->writerFormat == nullptr) {
        if (!writePDF(*target, {*image})) {
            QFile::remove(*target);
            return std::nullopt;
        }
        return target;
    }
    return writeImage(*image, *target, format->writerFormat);
}

std::optional<QString> smallerImage(const QString& path) {
    QImageReader probe(path);
    const QSize size = probe.size();
    const QByteArray format = probe.format();
    if (!size.isValid() || format.isEmpty() || !QImageWriter::supportedImageFormats().contains(format)) {
        return std::nullopt;
    }
    const int maxSide = std::max(1, std::max(size.width(), size.height()) / 2);
    const auto image = readImage(path, maxSide);
    if (!image) {
        return std::nullopt;
    }
    const auto target =
        destination(path, stem(path) + QStringLiteral(" (smaller)"), QFileInfo(path).suffix());
    if (!target) {
        return std::nullopt;
    }
    return writeImage(*image, *target, format);
}

std::optional<QString> exportVideo(const QString& path, bool smaller) {
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty() || !QFileInfo(path).isFile()) {
        return std::nullopt;
    }
    const auto target = destination(path, stem(path) + (smaller ? QStringLiteral(" (smaller)") : QString()),
                                    QStringLiteral("mp4"));
    if (!target) {
        return std::nullopt;
    }
    QStringList arguments{QStringLiteral("-nostdin"), QStringLiteral("-v"), QStringLiteral("error"),
                          QStringLiteral("-i"), path};
    if (smaller) {
        // Fits 1280 by 720 with its own proportions, never enlarged, sides kept even for H.264.
        arguments << QStringLiteral("-vf")
                  << QStringLiteral("scale='min(1280,iw)':'min(720,ih)':force_original_aspect_ratio=decrease:"
                                    "force_divisible_by=2");
    }
    arguments << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-crf")
              << QStringLiteral("20") << QStringLiteral("-pix_fmt") << QStringLiteral("yuv420p")
              << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-movflags")
              << QStringLiteral("+faststart") << QStringLiteral("-n") << *target;
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(ffmpeg, arguments);
    const bool finished = process.waitForFinished(-1);
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        QFile::remove(*target);
        return std::nullopt;
    }
    return target;
}

std::optional<QString> zip(const QStringList& paths) {
    if (paths.isEmpty()) {
        return std::nullopt;
    }
    const QFileInfo first(paths.front());
    const QString name = paths.size() == 1 ? (first.isDir() ? first.fileName() : stem(paths.front()))
                                           : QStringLiteral("Archive");
    const auto target = destination(paths.front(), name, QStringLiteral("zip"));
    if (!target) {
        return std::nullopt;
    }
    int error = 0;
    zip_t* archive = zip_open(QFile::encodeName(*target).constData(), ZIP_CREATE | ZIP_EXCL, &error);
    if (archive == nullptr) {
        return std::nullopt;
    }
    // Several files travel inside a folder "Archive", one file or folder under its own name.
    bool ok = true;
    for (const QString& path : paths) {
        const QString inside = QFileInfo(path).fileName();
        ok = ok && addToZip(archive, path, paths.size() == 1 ? inside : QStringLiteral("Archive/") + inside);
    }
    if (!ok || zip_get_num_entries(archive, 0) == 0) {
        zip_discard(archive);
        QFile::remove(*target);
        return std::nullopt;
    }
    // The files are read now; one that went away meanwhile fails the whole archive.
    if (zip_close(archive) != 0) {
        zip_discard(archive);
        QFile::remove(*target);
        return std::nullopt;
    }
    return target;
}

std::optional<QString> combinePDF(const QStringList& paths) {
    QList<QImage> pages;
    for (const QString& path : paths) {
        if (auto image = readImage(path)) {
            pages.append(std::move(*image));
        }
    }
    if (pages.isEmpty()) {
        return std::nullopt;
    }
    const auto target = destination(paths.front(), QStringLiteral("Combined"), QStringLiteral("pdf"));
    if (!target) {
        return std::nullopt;
    }
    if (!writePDF(*target, pages)) {
        QFile::remove(*target);
        return std::nullopt;
    }
    return target;
}

QStringList convert(const Conversion& conversion, const QStringList& paths) {
    QStringList results;
    const auto keep = [&](const std::optional<QString>& result) {
        if (result) {
            results.append(*result);
        }
    };
    switch (conversion.kind) {
    case Kind::image:
        for (const QString& path : paths) {
            keep(convertImage(path, conversion.type));
        }
        break;
    case Kind::smallerImage:
        for (const QString& path : paths) {
            keep(smallerImage(path));
        }
        break;
    case Kind::video:
    case Kind::smallerVideo:
        for (const QString& path : paths) {
            keep(exportVideo(path, conversion.kind == Kind::smallerVideo));
        }
        break;
    case Kind::zip:
        keep(zip(paths));
        break;
    case Kind::combinePDF:
        keep(combinePDF(paths));
        break;
    }
    return results;
}

void run(const Conversion& conversion, const QStringList& paths, std::function<void(QStringList)> done) {
    QThreadPool::globalInstance()->start([conversion, paths, done = std::move(done)]() mutable {
        QStringList results = convert(conversion, paths);
        postToMain([done = std::move(done), results = std::move(results)] { done(results); });
    });
}

} // namespace mirrowisp::ShelfConverter
