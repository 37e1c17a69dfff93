#include "shelf/ShelfConverter.h"

#include "shelf/ShelfConversionJob.h"
#include "shelf/ShelfHeif.h"
#include "shelf/ShelfPdfBuilder.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>
#include <QMimeDatabase>
#include <QStandardPaths>
#include <algorithm>
#include <sys/stat.h>
#include <zip.h>

namespace mirrowisp::ShelfConverter {

namespace {

using Kind = Conversion::Kind;

constexpr int quality = 85;

struct ImageFormat {
    const char* key;
    const char* mimeType;
    const char* extension;
    const char* writerFormat; // Qt's name; "heif" goes through libheif, none is PDF
};

// In the menu's order; HEIC and WebP only where this machine has a writer for them.
constexpr ImageFormat imageFormats[] = {
    {"jpeg", "image/jpeg", "jpg", "jpeg"},      {"heic", "image/heif", "heic", "heif"},
    {"webp", "image/webp", "webp", "webp"},     {"png", "image/png", "png", "png"},
    {"pdf", "application/pdf", "pdf", nullptr},
};

bool isHeifFormat(const QByteArray& writerFormat) {
    return writerFormat == "heif";
}

const ImageFormat* formatFor(const QString& mimeType) {
    for (const ImageFormat& format : imageFormats) {
        if (mimeType == QLatin1StringView(format.mimeType)) {
            return &format;
        }
    }
    return nullptr;
}

bool canWrite(const QByteArray& writerFormat) {
    return isHeifFormat(writerFormat) ? ShelfHeif::canWrite()
                                      : QImageWriter::supportedImageFormats().contains(writerFormat);
}

bool canWrite(const ImageFormat& format) {
    return format.writerFormat == nullptr || canWrite(QByteArray(format.writerFormat));
}

// The file's type by content and name; nothing when neither tells. Not a regular file (a FIFO, a
// device) is typed as such by its mode, so nothing here ever blocks reading one.
std::optional<QMimeType> typeOf(const QString& path) {
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path);
    if (!type.isValid() || type.isDefault()) {
        return std::nullopt;
    }
    return type;
}

bool isHeif(const QMimeType& type) {
    return type.inherits(QStringLiteral("image/heif"));
}

bool isImage(const QMimeType& type) {
    if (isHeif(type)) {
        return ShelfHeif::canRead();
    }
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

QString named(const QString& path, const QString& why) {
    return QFileInfo(path).fileName() + QStringLiteral(": ") + why;
}

// Why a source can't be opened for reading, if it can't: only regular files are, so that a FIFO or
// a device on the shelf never blocks a conversion.
std::optional<QString> unusable(const QString& path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        return QStringLiteral("the file is gone");
    }
    if (!S_ISREG(info.st_mode)) {
        return QStringLiteral("not a regular file");
    }
    return std::nullopt;
}

struct Picture {
    QImage image;
    QByteArray format; // Qt's name of the source's format; "heif" for libheif's
    QString error;
};

// The image with the camera's orientation applied; with `halve`, its longer side halved (while
// decoding where the format allows it, so a large JPEG is never decoded whole to be halved).
Picture readImage(const QString& path, bool halve = false) {
    if (const auto why = unusable(path)) {
        return {{}, {}, *why};
    }
    if (const auto type = typeOf(path); type && isHeif(*type)) {
        ShelfHeif::Decoded decoded = ShelfHeif::read(path);
        if (!decoded.image.isNull() && halve) {
            const int side = std::max(1, std::max(decoded.image.width(), decoded.image.height()) / 2);
            decoded.image = decoded.image.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        }
        return {decoded.image, QByteArrayLiteral("heif"), decoded.error};
    }
    QImageReader reader(path);
    reader.setAutoTransform(true);
    const QByteArray format = reader.format();
    if (halve) {
        const QSize size = reader.size();
        if (size.isValid() && size.width() > 0 && size.height() > 0) {
            const int maxSide = std::max(1, std::max(size.width(), size.height()) / 2);
            const double scale = static_cast<double>(maxSide) / std::max(size.width(), size.height());
            reader.setScaledSize(
                QSize(std::max(1, qRound(size.width() * scale)), std::max(1, qRound(size.height() * scale))));
        }
    }
    const QImage image = reader.read();
    if (image.isNull()) {
        return {{}, {}, QStringLiteral("not an image that can be read (") + reader.errorString() + u')'};
    }
    return {image, format, {}};
}

Result writeImage(const QImage& image, const QString& target, const QByteArray& format) {
    if (isHeifFormat(format)) {
        if (const auto error = ShelfHeif::write(image, target, quality)) {
            return Result::failed(*error);
        }
        return Result::made(target);
    }
    // Through a file of our own: the writers don't all tell of a full disk, the file does once closed.
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        return Result::failed(QStringLiteral("could not write ") + QFileInfo(target).fileName() +
                              QStringLiteral(" (") + file.errorString() + u')');
    }
    QImageWriter writer(&file, format);
    if (format != "png") {
        writer.setQuality(quality);
    }
    const bool written = writer.write(image);
    file.close();
    if (!written || file.error() != QFileDevice::NoError) {
        const QString why = written ? file.errorString() : writer.errorString();
        file.remove();
        return Result::failed(QStringLiteral("could not write ") + QFileInfo(target).fileName() +
                              QStringLiteral(" (") + why + u')');
    }
    return Result::made(target);
}

Result writePDF(const QImage& image, const QString& target) {
    ShelfPdfBuilder builder(target);
    if (!builder.addImage(image) || !builder.finish()) {
        return Result::failed(QStringLiteral("could not write ") + QFileInfo(target).fileName());
    }
    return Result::made(target);
}

// Adds `path` under `nameInZip`, a folder with everything in it; the error, or nothing.
std::optional<QString> addToZip(zip_t* archive, const QString& path, const QString& nameInZip) {
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink()) {
        if (zip_dir_add(archive, nameInZip.toUtf8().constData(), ZIP_FL_ENC_UTF_8) < 0) {
            return QString::fromUtf8(zip_strerror(archive));
        }
        QDirIterator children(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
        while (children.hasNext()) {
            const QString child = children.next();
            if (auto error =
                    addToZip(archive, child, nameInZip + QLatin1Char('/') + QFileInfo(child).fileName())) {
                return error;
            }
        }
        return std::nullopt;
    }
    if (!info.exists()) {
        return QStringLiteral("the file is gone");
    }
    if (!info.isFile()) {
        return std::nullopt; // a FIFO, socket or device has no content to keep
    }
    zip_source_t* source = zip_source_file(archive, QFile::encodeName(path).constData(), 0, -1);
    if (source == nullptr) {
        return QString::fromUtf8(zip_strerror(archive));
    }
    if (zip_file_add(archive, nameInZip.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0) {
        zip_source_free(source);
        return QString::fromUtf8(zip_strerror(archive));
    }
    return std::nullopt;
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
    } else if (all(isMovie) && !QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty()) {
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

Result convertImage(const QString& path, const QString& mimeType) {
    const ImageFormat* format = formatFor(mimeType);
    if (format == nullptr || !canWrite(*format)) {
        return Result::failed(QStringLiteral("this machine cannot write ") + mimeType);
    }
    const Picture picture = readImage(path);
    if (picture.image.isNull()) {
        return Result::failed(picture.error);
    }
    const auto target = destination(path, stem(path), QString::fromLatin1(format->extension));
    if (!target) {
        return Result::failed(QStringLiteral("no folder to write into"));
    }
    if (format->writerFormat == nullptr) {
        return writePDF(picture.image, *target);
    }
    return writeImage(picture.image, *target, format->writerFormat);
}

Result smallerImage(const QString& path) {
    const Picture picture = readImage(path, true);
    if (picture.image.isNull()) {
        return Result::failed(picture.error);
    }
    if (!canWrite(picture.format)) {
        return Result::failed(QStringLiteral("this machine cannot write ") +
                              QString::fromLatin1(picture.format));
    }
    const auto target =
        destination(path, stem(path) + QStringLiteral(" (smaller)"), QFileInfo(path).suffix());
    if (!target) {
        return Result::failed(QStringLiteral("no folder to write into"));
    }
    return writeImage(picture.image, *target, picture.format);
}

Result zip(const QStringList& paths, const Control& control) {
    if (paths.isEmpty()) {
        return Result::failed(QStringLiteral("nothing to compress"));
    }
    const QFileInfo first(paths.front());
    const QString name = paths.size() == 1 ? (first.isDir() ? first.fileName() : stem(paths.front()))
                                           : QStringLiteral("Archive");
    const auto target = destination(paths.front(), name, QStringLiteral("zip"));
    if (!target) {
        return Result::failed(QStringLiteral("no folder to write into"));
    }
    int error = 0;
    zip_t* archive = zip_open(QFile::encodeName(*target).constData(), ZIP_CREATE | ZIP_EXCL, &error);
    if (archive == nullptr) {
        zip_error_t reason;
        zip_error_init_with_code(&reason, error);
        const QString why = QString::fromUtf8(zip_error_strerror(&reason));
        zip_error_fini(&reason);
        return Result::failed(why);
    }
    // Several files travel inside a folder "Archive", one file or folder under its own name.
    std::optional<QString> failure;
    for (int i = 0; i < paths.size() && !failure; ++i) {
        const QString inside = QFileInfo(paths[i]).fileName();
        if (auto why = addToZip(archive, paths[i],
                                paths.size() == 1 ? inside : QStringLiteral("Archive/") + inside)) {
            failure = named(paths[i], *why);
        } else if (control.isCancelled()) {
            failure = QStringLiteral("cancelled");
        }
        control.report(i, 1.0);
    }
    if (!failure && zip_get_num_entries(archive, 0) == 0) {
        failure = QStringLiteral("nothing in the files to compress");
    }
    // The files are read now; one that went away meanwhile fails the whole archive, which libzip
    // writes beside its name first and so leaves nothing behind.
    if (!failure && zip_close(archive) != 0) {
        failure = QString::fromUtf8(zip_strerror(archive));
    }
    if (failure) {
        zip_discard(archive);
        return Result::failed(*failure);
    }
    return Result::made(*target);
}

Result combinePDF(const QStringList& paths, const Control& control, QStringList* skipped) {
    if (paths.isEmpty()) {
        return Result::failed(QStringLiteral("nothing to combine"));
    }
    const auto target = destination(paths.front(), QStringLiteral("Combined"), QStringLiteral("pdf"));
    if (!target) {
        return Result::failed(QStringLiteral("no folder to write into"));
    }
    ShelfPdfBuilder builder(*target);
    QString lastFailure;
    // A file that can't be read is left out; the others still make the document.
    for (int i = 0; i < paths.size() && !control.isCancelled(); ++i) {
        const auto type = typeOf(paths[i]);
        std::optional<QString> why = unusable(paths[i]);
        if (!why && type && isPDF(*type)) {
            why = builder.addPDF(paths[i], control.cancelled);
        } else if (!why) {
            const Picture picture = readImage(paths[i]);
            why = picture.image.isNull() ? std::optional(picture.error) : std::nullopt;
            if (!why && !builder.addImage(picture.image)) {
                why = QStringLiteral("could not be written into the PDF");
            }
        }
        if (why) {
            lastFailure = named(paths[i], *why);
            if (skipped != nullptr) {
                skipped->append(lastFailure);
            }
        }
        control.report(i, 1.0);
    }
    if (control.isCancelled()) {
        return Result::failed(QStringLiteral("cancelled"));
    }
    if (builder.pageCount() == 0) {
        return Result::failed(lastFailure);
    }
    if (!builder.finish()) {
        return Result::failed(QStringLiteral("could not write ") + QFileInfo(*target).fileName());
    }
    return Result::made(*target);
}

Report convert(const Conversion& conversion, const QStringList& paths, const Control& control) {
    Report report;
    const auto keep = [&](const Result& result, const QString& source) {
        if (result) {
            report.files.append(*result);
        } else if (!report.cancelled) {
            report.failures.append(source.isEmpty() ? result.error() : named(source, result.error()));
        }
    };
    const auto each = [&](const std::function<Result(const QString&, const Watch&)>& make) {
        for (int i = 0; i < paths.size(); ++i) {
            if (control.isCancelled()) {
                report.cancelled = true;
                break;
            }
            const Watch watch{[&](double fraction) { control.report(i, fraction); }, control.cancelled};
            const Result result = make(paths[i], watch);
            report.cancelled = control.isCancelled();
            keep(result, paths[i]);
            if (!report.cancelled) {
                control.report(i, 1.0);
            }
        }
    };
    switch (conversion.kind) {
    case Kind::image:
        each([&](const QString& path, const Watch&) { return convertImage(path, conversion.type); });
        break;
    case Kind::smallerImage:
        each([](const QString& path, const Watch&) { return smallerImage(path); });
        break;
    case Kind::video:
    case Kind::smallerVideo:
        each([&](const QString& path, const Watch& watch) {
            return exportVideo(path, conversion.kind == Kind::smallerVideo, watch);
        });
        break;
    case Kind::zip:
    case Kind::combinePDF: {
        QStringList skipped;
        const Result result =
            conversion.kind == Kind::zip ? zip(paths, control) : combinePDF(paths, control, &skipped);
        report.cancelled = control.isCancelled();
        keep(result, {});
        if (result) {
            report.failures += skipped; // left out of a document that was still made
        }
        break;
    }
    }
    return report;
}

void run(const Conversion& conversion, const QStringList& paths, std::function<void(QStringList)> done) {
    auto* job = new ShelfConversionJob(conversion, paths, QCoreApplication::instance());
    QObject::connect(job, &ShelfConversionJob::finished, job,
                     [job, done = std::move(done)](const Report& report) {
                         done(report.files);
                         job->deleteLater();
                     });
    job->start();
}

} // namespace mirrowisp::ShelfConverter
