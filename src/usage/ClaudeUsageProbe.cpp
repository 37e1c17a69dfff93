#include "usage/ClaudeUsageProbe.h"

#include "base/ProcessRunner.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AgentEnvironment.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace mirrowisp::ClaudeUsageProbe {

using ProcessRunner::run;
using ProcessRunner::RunError;
using ProcessRunner::RunResult;

QString probeDirectory() {
    const QString path = BridgeProtocol::supportDirectory() + QStringLiteral("/probe");
    QDir().mkpath(path);
    return path;
}

std::optional<QString> findCLI() {
    const QString home = QDir::homePath();
    for (const QString& path : AgentEnvironment::cli(AgentKind::claude, home).fallbacks) {
        if (AgentEnvironment::isExecutableFile(path)) {
            return path;
        }
    }
    const RunResult result = run(AgentEnvironment::loginShell(),
                                 {QStringLiteral("-lc"), QStringLiteral("command -v claude")}, 5.0);
    if (!result.ok()) {
        return std::nullopt;
    }
    const QStringList lines = result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        const QString candidate = line->trimmed();
        if (candidate.isEmpty()) {
            continue;
        }
        return AgentEnvironment::isExecutableFile(candidate) ? std::optional(candidate) : std::nullopt;
    }
    return std::nullopt;
}

FetchResult fetch(const QString& cli) {
    const RunResult result =
        run(cli,
            {QStringLiteral("-p"), QStringLiteral("/usage"), QStringLiteral("--no-session-persistence"),
             QStringLiteral("--settings"), QStringLiteral("{\"disableAllHooks\":true}")},
            30.0, probeDirectory());
    if (!result.ok()) {
        return {{}, *result.error == RunError::timedOut ? Failure::timedOut : Failure::couldNotStart};
    }
    const QString lowered = result.output.toLower();
    for (const char* phrase : {"not logged in", "invalid api key", "please run /login"}) {
        if (lowered.contains(QLatin1String(phrase))) {
            return {{}, Failure::notSignedIn};
        }
    }
    QList<UsageMeter> meters = parse(result.output);
    if (meters.isEmpty()) {
        return {{}, Failure::unparseable};
    }
    return {std::move(meters), std::nullopt};
}

} // namespace mirrowisp::ClaudeUsageProbe
