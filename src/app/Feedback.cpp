#include "app/Feedback.h"

#include "app/BuildInfo.h"
#include "base/AgentKind.h"
#include "base/RegularFile.h"
#include "integration/HookInstaller.h"

#include <QStringList>
#include <sys/utsname.h>

namespace mirrowisp::Feedback {

namespace {

constexpr qint64 smallFileLimit = 64 * 1024;
const QString supportAddress = QStringLiteral("feedback@mirrowisp.dev");

QString firstLine(const QString& path) {
    const FileRead read = readRegularFile(path, smallFileLimit);
    return read.ok() ? QString::fromUtf8(read.bytes).section(QLatin1Char('\n'), 0, 0).trimmed() : QString();
}

// The distribution's own name for itself, PRETTY_NAME of os-release, quotes taken off.
QString prettyName(const QString& osRelease) {
    const FileRead read = readRegularFile(osRelease, smallFileLimit);
    if (read.ok()) {
        for (const QByteArray& line : read.bytes.split('\n')) {
            if (line.startsWith("PRETTY_NAME=")) {
                QString value = QString::fromUtf8(line.mid(12)).trimmed();
                if (value.size() >= 2 &&
                    (value.front() == QLatin1Char('"') || value.front() == QLatin1Char('\''))) {
                    value = value.mid(1, value.size() - 2);
                }
                return value;
            }
        }
    }
    return QStringLiteral("Linux");
}

QString runningKernel() {
    utsname name{};
    return ::uname(&name) == 0 ? QString::fromUtf8(name.release) : QString();
}

// The maker and model as the firmware names them; placeholders some makers leave are skipped.
QString hardwareModel(const QString& dmi) {
    QStringList parts;
    for (const char* file : {"/sys_vendor", "/product_name"}) {
        const QString value = firstLine(dmi + QLatin1StringView(file));
        const bool placeholder = value.isEmpty() ||
                                 value.contains(QLatin1StringView("O.E.M."), Qt::CaseInsensitive) ||
                                 value.contains(QLatin1StringView("To be filled"), Qt::CaseInsensitive);
        if (!placeholder && !parts.contains(value)) {
            parts.append(value);
        }
    }
    return parts.isEmpty() ? QStringLiteral("unknown hardware") : parts.join(QLatin1Char(' '));
}

} // namespace

QString details(const QString& connectedAgents, const Sources& sources) {
    const QString kernel = sources.kernelRelease.isEmpty() ? runningKernel() : sources.kernelRelease;
    QString system = prettyName(sources.osRelease);
    if (!kernel.isEmpty()) {
        system += QLatin1Char(' ') + kernel;
    }
    return QStringList{QStringLiteral("Mirrowisp %1 (%2)").arg(BuildInfo::version(), BuildInfo::build()),
                       system + QStringLiteral(" · ") + hardwareModel(sources.dmiDirectory),
                       QStringLiteral("Agents: ") + connectedAgents}
        .join(QLatin1Char('\n'));
}

QString connectedAgents() {
    QStringList names;
    for (AgentKind kind : AgentKinds::all) {
        if (HookInstaller::isInstalled(kind)) {
            names.append(AgentKinds::displayName(kind));
        }
    }
    return names.isEmpty() ? QStringLiteral("none connected") : names.join(QStringLiteral(", "));
}

QUrl draftURL(const QString& details) {
    QUrl url;
    url.setScheme(QStringLiteral("mailto"));
    url.setPath(supportAddress);
    // Encoded by hand: every reserved character of the text stays text, "&" and "+" included.
    const QString body = QStringLiteral("\n\n---\n") + details;
    url.setQuery(QStringLiteral("subject=") +
                     QString::fromLatin1(QUrl::toPercentEncoding(QStringLiteral("Mirrowisp feedback"))) +
                     QStringLiteral("&body=") + QString::fromLatin1(QUrl::toPercentEncoding(body)),
                 QUrl::StrictMode);
    return url;
}

} // namespace mirrowisp::Feedback
