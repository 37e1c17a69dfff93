#include "shelf/ShelfBookmark.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <dirent.h>
#include <sys/stat.h>

namespace mirrowisp {

namespace {

const QByteArray magic = QByteArrayLiteral("mwbm1");

// Enough to find a file renamed in place or moved one or two folders down, without letting a drop
// from a huge folder stall the main thread.
constexpr int searchDepth = 2;
constexpr int searchBudget = 5000;

struct Token {
    QByteArray path; // in the file system's encoding
    dev_t device = 0;
    ino_t inode = 0;
};

std::optional<Token> parse(const QByteArray& bookmark) {
    const QList<QByteArray> parts = bookmark.split('\0');
    if (parts.size() != 4 || parts[0] != magic || parts[3].isEmpty()) {
        return std::nullopt;
    }
    bool deviceOk = false;
    bool inodeOk = false;
    Token token{parts[3], static_cast<dev_t>(parts[1].toULongLong(&deviceOk)),
                static_cast<ino_t>(parts[2].toULongLong(&inodeOk))};
    if (!deviceOk || !inodeOk) {
        return std::nullopt;
    }
    return token;
}

bool sameFile(const QByteArray& path, const Token& token) {
    struct stat info {};
    return ::stat(path.constData(), &info) == 0 && info.st_dev == token.device && info.st_ino == token.inode;
}

// Breadth-first through `folder`, without following links, for the token's inode.
std::optional<QByteArray> search(const QByteArray& folder, const Token& token) {
    QList<QByteArray> level{folder};
    int budget = searchBudget;
    for (int depth = 0; depth < searchDepth && !level.isEmpty(); ++depth) {
        QList<QByteArray> next;
        for (const QByteArray& dir : level) {
            DIR* stream = ::opendir(dir.constData());
            if (!stream) {
                continue;
            }
            while (const dirent* entry = ::readdir(stream)) {
                if (--budget < 0) {
                    ::closedir(stream);
                    return std::nullopt;
                }
                const QByteArray name(entry->d_name);
                if (name == "." || name == "..") {
                    continue;
                }
                const QByteArray path = dir + '/' + name;
                if (entry->d_ino == token.inode && sameFile(path, token)) {
                    ::closedir(stream);
                    return path;
                }
                if (entry->d_type == DT_DIR) {
                    next.append(path);
                }
            }
            ::closedir(stream);
        }
        level = std::move(next);
    }
    return std::nullopt;
}

} // namespace

std::optional<QByteArray> makeShelfBookmark(const QString& path) {
    const QByteArray encoded = QFile::encodeName(QDir::cleanPath(QDir(path).absolutePath()));
    struct stat info {};
    if (encoded.isEmpty() || encoded.contains('\0') || ::stat(encoded.constData(), &info) != 0) {
        return std::nullopt;
    }
    return magic + '\0' + QByteArray::number(static_cast<qulonglong>(info.st_dev)) + '\0' +
           QByteArray::number(static_cast<qulonglong>(info.st_ino)) + '\0' + encoded;
}

std::optional<QString> resolveShelfBookmark(const QByteArray& bookmark) {
    const auto token = parse(bookmark);
    if (!token) {
        return std::nullopt;
    }
    struct stat info {};
    const bool present = ::stat(token->path.constData(), &info) == 0;
    if (present && info.st_dev == token->device && info.st_ino == token->inode) {
        return QFile::decodeName(token->path);
    }
    const qsizetype slash = token->path.lastIndexOf('/');
    const QByteArray folder = slash <= 0 ? QByteArray("/") : token->path.left(slash);
    if (const auto moved = search(folder, *token)) {
        return QFile::decodeName(*moved);
    }
    if (present) {
        return QFile::decodeName(token->path);
    }
    return std::nullopt;
}

QString shelfBookmarkPath(const QByteArray& bookmark) {
    const auto token = parse(bookmark);
    return token ? QFile::decodeName(token->path) : QString();
}

} // namespace mirrowisp
