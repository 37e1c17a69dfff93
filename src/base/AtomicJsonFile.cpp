#include "base/AtomicJsonFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

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

} // namespace mirrowisp
