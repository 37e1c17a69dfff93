#include "base/AtomicJsonFile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cstdio>

namespace mirrowisp {

std::optional<QString> writeFileAtomically(const QString& path, const QByteArray& bytes,
                                           const BeforeReplacing& beforeReplacing) {
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) {
        return QStringLiteral("cannot create the folder ") + folder;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return file.errorString();
    }
    if (file.write(bytes) != bytes.size()) {
        const QString error = file.errorString();
        file.cancelWriting();
        return error;
    }
    // QSaveFile gives the new file the old one's permissions; a folder or read-only file fails above.
    if (!file.flush()) {
        const QString error = file.errorString();
        file.cancelWriting();
        return error;
    }
    if (beforeReplacing) {
        if (auto error = beforeReplacing()) {
            file.cancelWriting();
            return error;
        }
    }
    if (!file.commit()) {
        return file.errorString();
    }
    return std::nullopt;
}

std::optional<QString> writeJsonAtomically(const QString& path, const QJsonDocument& document,
                                           const BeforeReplacing& beforeReplacing) {
    return writeFileAtomically(path, document.toJson(QJsonDocument::Indented), beforeReplacing);
}

std::optional<QString> moveAside(const QString& path) {
    if (!QFileInfo::exists(path)) {
        return QString();
    }
    const QString stem = path + QStringLiteral(".unreadable-") +
                         QDateTime::currentDateTimeUtc().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"));
    QString aside = stem;
    for (int n = 2; QFileInfo::exists(aside); ++n) {
        aside = stem + QStringLiteral("-%1").arg(n);
    }
    if (::rename(QFile::encodeName(path).constData(), QFile::encodeName(aside).constData()) != 0) {
        return std::nullopt;
    }
    return aside;
}

} // namespace mirrowisp
