#include "widgets/DesktopLauncher.h"

#include "base/RegularFile.h"

#include <QDesktopServices>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

namespace mirrowisp {

namespace {
constexpr qint64 entryLimit = 256 * 1024;
}

bool SystemDesktopLauncher::openUrl(const QString& url) {
    return QDesktopServices::openUrl(QUrl(url));
}

QStringList SystemDesktopLauncher::execCommand(const QByteArray& entry) {
    bool inEntry = false;
    for (const QByteArray& raw : entry.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line.startsWith('[')) {
            inEntry = line == "[Desktop Entry]";
        } else if (inEntry && line.startsWith("Exec=")) {
            QStringList words = QProcess::splitCommand(QString::fromUtf8(line.mid(5)));
            words.removeIf(
                [](const QString& word) { return word.size() == 2 && word.startsWith(QLatin1Char('%')); });
            return words;
        }
    }
    return {};
}

std::optional<QString> SystemDesktopLauncher::launchFirst(const QStringList& desktopIDs) {
    for (const QString& id : desktopIDs) {
        const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, id);
        if (path.isEmpty()) {
            continue;
        }
        const FileRead read = readRegularFile(path, entryLimit);
        QStringList command = read.ok() ? execCommand(read.bytes) : QStringList();
        if (command.isEmpty()) {
            continue;
        }
        const QString program = command.takeFirst();
        if (QProcess::startDetached(program, command)) {
            return id;
        }
    }
    return std::nullopt;
}

} // namespace mirrowisp
