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
    // The command line's word: "jpeg", "png", "webp", "heic", "pdf", "smaller", "mp4", "smaller-mp4",
    // "zip", "combine-pdf".
    QString key() const;
    static std::optional<Conversion> fromKey(const QString& key);
    bool operator==(const Conversion&) const = default;
};

// One conversion's new file, or why there is none.
class Result {
public:
    static Result made(QString path) { return Result(std::move(path), {}); }
    static Result failed(QString why) { return Result({}, std::move(why)); }

    explicit operator bool() const { return !path_.isEmpty(); }
    const QString& operator*() const { return path_; }
    const QString* operator->() const { return &path_; }
    // Empty when the file was made.
    const QString& error() const { return error_; }

private:
    Result(QString path, QString error) : path_(std::move(path)), error_(std::move(error)) {}
    QString path_;
    QString error_;
};

// Follows one file's conversion: how much is done, 0..1, and whether the user gave up on it. Both are
// called on the converting thread; a cancelled conversion stops and leaves no partial file behind.
struct Watch {
    std::function<void(double fraction)> progress;
    std::function<bool()> cancelled;

    void report(double fraction) const {
        if (progress) {
            progress(fraction);
        }
    }
    bool isCancelled() const { return cancelled && cancelled(); }
};

// Follows a conversion of several files: each source's share done, 0..1, by its index in the list
// (for ZIP and PDF, as each source is taken in), and the user's cancel, asked between files and while
// a video encodes. Called on the converting thread.
struct Control {
    std::function<void(int source, double fraction)> progress;
    std::function<bool()> cancelled;

    void report(int source, double fraction) const {
        if (progress) {
            progress(source, fraction);
        }
    }
    bool isCancelled() const { return cancelled && cancelled(); }
};

// What a conversion of several files came to.
struct Report {
    QStringList files;    // the new files, in the order of their sources
    QStringList failures; // "name: why", for each source (or the whole) that failed
    bool cancelled = false;
};

// The conversions that suit the files: for images every format this machine writes but the one they
// all share, then half size; for videos, when ffmpeg is installed, MP4 (unless all are MP4 already) and
// 720p MP4. Files whose type is unknown don't count; anything else gives nothing.
QList<Conversion> formats(const QStringList& paths);
// Two or more files, each an image or a PDF.
bool canCombine(const QStringList& paths);

// Each gives the new file's path, or why it failed (and then leaves no file behind).
Result convertImage(const QString& path, const QString& mimeType);
Result smallerImage(const QString& path);
// Through the ffmpeg command: H.264 and AAC, the index at the front; `smaller` fits it into 1280 by 720.
Result exportVideo(const QString& path, bool smaller, const Watch& watch = {});
Result zip(const QStringList& paths, const Control& control = {});
// One page per image; a PDF brings its own pages. A file that can't go in is left out, and "name: why"
// for it goes to `skipped`; it fails only when no page is left.
Result combinePDF(const QStringList& paths, const Control& control = {}, QStringList* skipped = nullptr);

// Where a result goes: beside the source when its folder is writable, else in the Downloads folder;
// "name.ext", or "name 2.ext", "name 3.ext"... when that is taken.
std::optional<QString> destination(const QString& source, const QString& name, const QString& extension);

// Does the work on the calling thread. What failed is left out of the files and said in the failures.
Report convert(const Conversion& conversion, const QStringList& paths, const Control& control = {});

// The same on a worker thread; `done` gets the new files on the main thread. ShelfConversionJob
// follows a conversion with its progress, a cancel and the failures.
void run(const Conversion& conversion, const QStringList& paths, std::function<void(QStringList)> done);

} // namespace mirrowisp::ShelfConverter
