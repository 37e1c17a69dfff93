#include "app/WhatsNew.h"

#include "app/BuildInfo.h"
#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>

namespace mirrowisp::WhatsNew {

namespace {

const QString lastLaunchedKey = QStringLiteral("lastLaunchedVersion");
const QString updatedToKey = QStringLiteral("updatedToVersion");
const QString updatedAtKey = QStringLiteral("updatedAt");
constexpr double recentSeconds = 259'200; // three days

// The leading number of a part ("10" of "10rc1"); a part without one counts as 0.
qulonglong leadingNumber(QStringView part) {
    qsizetype digits = 0;
    while (digits < part.size() && part[digits].isDigit()) {
        ++digits;
    }
    return part.left(digits).toULongLong();
}

} // namespace

int compareVersions(QStringView a, QStringView b) {
    const auto left = a.split(QLatin1Char('.'));
    const auto right = b.split(QLatin1Char('.'));
    for (qsizetype i = 0; i < std::max(left.size(), right.size()); ++i) {
        const qulonglong x = i < left.size() ? leadingNumber(left[i]) : 0;
        const qulonglong y = i < right.size() ? leadingNumber(right[i]) : 0;
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return 0;
}

std::optional<QString> checkAtLaunch(UserDefaults& defaults, const QString& current, Timestamp now) {
    const std::optional<QString> previous = defaults.stringValue(lastLaunchedKey);
    defaults.set(lastLaunchedKey, current);
    if (!previous || compareVersions(*previous, current) >= 0) {
        return std::nullopt;
    }
    defaults.set(updatedToKey, current);
    defaults.set(updatedAtKey, now);
    return current;
}

std::optional<QString> recentUpdate(const UserDefaults& defaults, const QString& current, Timestamp now) {
    const std::optional<QString> version = defaults.stringValue(updatedToKey);
    const std::optional<double> at = defaults.doubleValue(updatedAtKey);
    if (!version || !at || now - *at >= recentSeconds || *version != current) {
        return std::nullopt;
    }
    return version;
}

QUrl changelogURL(const QString& version) {
    const QString name = QStringLiteral("mirrowisp/CHANGELOG.md");
    QString path = QStandardPaths::locate(QStandardPaths::GenericDataLocation, name);
    // Installed under a prefix that is not among the data folders (~/.local, /opt/...).
    const QString besideProgram =
        QCoreApplication::applicationDirPath() + QStringLiteral("/../share/") + name;
    if (path.isEmpty() && QFileInfo(besideProgram).isFile()) {
        path = QFileInfo(besideProgram).canonicalFilePath();
    }
    if (path.isEmpty()) {
        path = BuildInfo::sourceDirectory() + QStringLiteral("/CHANGELOG.md");
    }
    QUrl url = QUrl::fromLocalFile(path);
    url.setFragment(QStringLiteral("v") + version);
    return url;
}

} // namespace mirrowisp::WhatsNew
