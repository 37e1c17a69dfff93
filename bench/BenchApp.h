#pragma once

#include <QCoreApplication>
#include <QProcess>
#include <QStringList>
#include <algorithm>
#include <cstdio>

namespace mirrowisp::bench {

// The value of "--seconds N" on the command line, at least `minimum`; `fallback` without it.
inline int secondsOption(int fallback, int minimum) {
    const QStringList args = QCoreApplication::arguments();
    if (const qsizetype at = args.indexOf(QStringLiteral("--seconds")); at >= 0 && at + 1 < args.size()) {
        return std::max(minimum, args[at + 1].toInt());
    }
    return fallback;
}

// Starts the app under measurement in `env`, its output dropped and its errors shown; false (said on
// standard error, under the bench's `name`) when it does not start.
inline bool startApp(QProcess& app, const QProcessEnvironment& env, const char* name) {
    app.setProcessEnvironment(env);
    app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    app.setStandardOutputFile(QProcess::nullDevice());
    app.start(QStringLiteral(MIRROWISP_APP_PATH), {});
    if (!app.waitForStarted(5000)) {
        std::fprintf(stderr, "%s: the app did not start\n", name);
        return false;
    }
    return true;
}

} // namespace mirrowisp::bench
