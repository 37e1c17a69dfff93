#include "shelf/ShelfBookmark.h"

#include <QDir>
#include <QFile>
#include <QList>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace mirrowisp {

namespace {

// Version 2 adds the file's birth time: a file deleted and replaced by a new one that reuses its inode
// (which ext4 does at once) must not pass for the old one. Version 1 tokens still resolve.
const QByteArray magic = QByteArrayLiteral("mwbm2");
const QByteArray magicWithoutBirth = QByteArrayLiteral("mwbm1");

// Enough to find a file renamed in place or moved one or two folders down, without letting a drop
// from a huge folder stall the main thread.
constexpr int searchDepth = 2;
constexpr int searchBudget = 5000;

// Which file a path names: its device and inode, and its birth time in nanoseconds where the file
// system keeps one (0 where it doesn't).
struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    qulonglong born = 0;
};

std::optional<Identity> identityOf(const QByteArray& path) {
    struct statx info {};
    if (::statx(AT_FDCWD, path.constData(), 0, STATX_INO | STATX_BTIME, &info) != 0) {
        return std::nullopt;
    }
    const qulonglong born =
        (info.stx_mask & STATX_BTIME) != 0
            ? static_cast<qulonglong>(info.stx_btime.tv_sec) * 1'000'000'000ULL + info.stx_btime.tv_nsec
            : 0;
    return Identity{makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino, born};
}

struct Token {
    QByteArray path; // in the file system's encoding
    Identity identity;
};

std::optional<Token> parse(const QByteArray& bookmark) {
    const QList<QByteArray> parts = bookmark.split('\0');
    const bool withBirth = parts.size() == 5 && parts[0] == magic;
    if (!withBirth && (parts.size() != 4 || parts[0] != magicWithoutBirth)) {
        return std::nullopt;
    }
    if (parts.last().isEmpty()) {
        return std::nullopt;
    }
    bool deviceOk = false;
    bool inodeOk = false;
    bool bornOk = true;
    Token token{parts.last(),
                {static_cast<dev_t>(parts[1].toULongLong(&deviceOk)),
                 static_cast<ino_t>(parts[2].toULongLong(&inodeOk)),
                 withBirth ? parts[3].toULongLong(&bornOk) : 0}};
    if (!deviceOk || !inodeOk || !bornOk) {
        return std::nullopt;
    }
    return token;
}

// The same file: device and inode, and the birth time where both sides know one.
bool matches(const Identity& found, const Identity& expected) {
    return found.device == expected.device && found.inode == expected.inode &&
           (found.born == 0 || expected.born == 0 || found.born == expected.born);
}

bool sameFile(const QByteArray& path, const Token& token) {
    const auto found = identityOf(path);
    return found && matches(*found, token.identity);
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
                if (entry->d_ino == token.identity.inode && sameFile(path, token)) {
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
    if (encoded.isEmpty() || encoded.contains('\0')) {
        return std::nullopt;
    }
    const auto identity = identityOf(encoded);
    if (!identity) {
        return std::nullopt;
    }
    return magic + '\0' + QByteArray::number(static_cast<qulonglong>(identity->device)) + '\0' +
           QByteArray::number(static_cast<qulonglong>(identity->inode)) + '\0' +
           QByteArray::number(identity->born) + '\0' + encoded;
}

std::optional<QString> resolveShelfBookmark(const QByteArray& bookmark) {
    const auto token = parse(bookmark);
    if (!token) {
        return std::nullopt;
    }
    const auto found = identityOf(token->path);
    const bool present = found.has_value();
    if (present && matches(*found, token->identity)) {
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
