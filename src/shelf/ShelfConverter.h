#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace mirrowisp::ShelfConverter {

// What a shelf file can become. `type` names the image format (a MIME type) for `image`.
struct Conversion {
    enum class Kind { image, smallerImage, video, smallerVideo, zip, combinePDF };
    Kind kind = Kind::image;
    QString type;

    // The menu's words: "JPEG", "PNG", "WEBP", "PDF", "Smaller (half size)"...
    QString title() const;
    // The command line's word: "jpeg", "png", "webp", "pdf", "smaller", "mp4", "smaller-mp4", "zip",
    // "combine-pdf".
    QString key() const;
    static std::optional<Conversion> fromKey(const QString& key);
    bool operator==(const Conversion&) const = default;
};

// The conversions that suit the files: for images every format this machine writes but the one they
// all share, then half size; for videos MP4 (unless all are MP4 already) and 720p MP4. Files whose
// type is unknown don't count; anything else gives nothing.
QList<Conversion> formats(const QStringList& paths);
// Two or more files, each an image or a PDF.
bool canCombine(const QStringList& paths);

// Each gives the new file's path, or nothing when it failed (and then leaves no file behind).
std::optional<QString> convertImage(const QString& path, const QString& mimeType);
std::optional<QString> smallerImage(const QString& path);
std::optional<QString> exportVideo(const QString& path, bool smaller);
std::optional<QString> zip(const QStringList& paths);
std::optional<QString> combinePDF(const QStringList& paths);

// Where a result goes: beside the source when its folder is writable, else in the Downloads folder;
// "name.ext", or "name 2.ext", "name 3.ext"... when that is taken.
std::optional<QString> destination(const QString& source, const QString& name, const QString& extension);

// Does the work on the calling thread and answers the files made; what failed is left out.
QStringList convert(const Conversion& conversion, const QStringList& paths);
// The same on a worker thread; `done` gets the results on the main thread.
void run(const Conversion& conversion, const QStringList& paths, std::function<void(QStringList)> done);

} // namespace mirrowisp::ShelfConverter
