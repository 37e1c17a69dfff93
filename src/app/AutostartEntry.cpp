#include "app/AutostartEntry.h"

#include "base/AtomicJsonFile.h"
#include "base/RegularFile.h"
#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

namespace mirrowisp {

namespace {

QString runningExecutable() {
    const QString path = QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
    // Without a path of our own, the launcher looks the name up in PATH.
    return path.isEmpty() ? QStringLiteral("mirrowisp") : path;
}

} // namespace

AutostartEntry::AutostartEntry() : AutostartEntry(defaultEntryPath(), runningExecutable()) {}

AutostartEntry::AutostartEntry(QString entryPath, QString executablePath)
    : entryPath_(std::move(entryPath)), executablePath_(std::move(executablePath)) {}

QString AutostartEntry::defaultEntryPath() {
    return UserDefaults::configHome() + QStringLiteral("/autostart/mirrowisp.desktop");
}

bool AutostartEntry::isEnabled() const {
    // A desktop entry is a few lines; anything but a small regular file is none.
    const FileRead read = readRegularFile(entryPath_, 1024 * 1024);
    if (!read.ok()) {
        return false;
    }
    bool inMainGroup = false;
    bool sawMainGroup = false;
    bool enabled = true;
    for (const QByteArray& raw : read.bytes.split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) {
            continue;
        }
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            inMainGroup = line == QLatin1StringView("[Desktop Entry]");
            sawMainGroup = sawMainGroup || inMainGroup;
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (!inMainGroup || equals < 0) {
            continue;
        }
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == QLatin1StringView("Hidden") && value == QLatin1StringView("true")) {
            enabled = false;
        } else if (key == QLatin1StringView("X-GNOME-Autostart-enabled") &&
                   value == QLatin1StringView("false")) {
            enabled = false;
        }
    }
    // Session managers ignore a file that isn't a desktop entry.
    return sawMainGroup && enabled;
}

std::optional<QString> AutostartEntry::setEnabled(bool enabled) {
    if (enabled) {
        return writeFileAtomically(entryPath_, contents(executablePath_));
    }
    QFile file(entryPath_);
    if (file.remove()) {
        return std::nullopt;
    }
    const QFileInfo info(entryPath_);
    if (!info.exists() && !info.isSymLink()) {
        return std::nullopt; // already off
    }
    return file.errorString();
}

QByteArray AutostartEntry::contents(const QString& executablePath) {
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Mirrowisp\n"
                                        "Exec=%1\n"
                                        "Icon=io.mirrowisp.Mirrowisp\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execValue(executablePath));
    return text.toUtf8();
}

QString AutostartEntry::execValue(const QString& executablePath) {
    // Two layers, applied in this order: the Exec quoting rules (inside double quotes, a backslash
    // goes before each of " ` $ and the backslash itself; % doubles, as it starts field codes), then
    // the escapes of every string value (\\, \n, \t, \r). A literal backslash thus becomes four.
    QString quoted = QStringLiteral("\"");
    for (const QChar c : executablePath) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') ||
            c == QLatin1Char('\\')) {
            quoted += QLatin1Char('\\');
        } else if (c == QLatin1Char('%')) {
            quoted += QLatin1Char('%');
        }
        quoted += c;
    }
    quoted += QLatin1Char('"');

    QString value;
    value.reserve(quoted.size());
    for (const QChar c : quoted) {
        if (c == QLatin1Char('\\')) {
            value += QStringLiteral("\\\\");
        } else if (c == QLatin1Char('\n')) {
            value += QStringLiteral("\\n");
        } else if (c == QLatin1Char('\t')) {
            value += QStringLiteral("\\t");
        } else if (c == QLatin1Char('\r')) {
            value += QStringLiteral("\\r");
        } else {
            value += c;
        }
    }
    return value;
}

} // namespace mirrowisp
