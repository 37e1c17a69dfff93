#pragma once

#include "remote/RemoteHost.h"

#include <QByteArray>
#include <QString>
#include <optional>

// One command on a remote host through the system's `ssh` (found on PATH), blocking: run it off the
// main thread.
namespace mirrowisp::RemoteShell {

struct Result {
    std::optional<int> exitCode; // nothing when ssh could not start, timed out or died of a signal
    QByteArray out;
    QByteArray err;
    bool timedOut = false;

    bool ok() const { return exitCode == 0; }
};

inline constexpr int defaultTimeoutMs = 60'000;

// Runs `command` (a line for the remote user's shell: every value in it quoted with Ssh::quote) with
// `input` on its standard input.
Result run(const RemoteHost& host, const QString& command, const QByteArray& input = {},
           int timeoutMs = defaultTimeoutMs);

// Why ssh itself failed, as one sentence for the user: no answer, a refused key, a password asked
// for, an unknown host key. Nothing when ssh connected (the remote command may still have failed).
std::optional<QString> connectionProblem(const Result& result, const RemoteHost& host);

} // namespace mirrowisp::RemoteShell
