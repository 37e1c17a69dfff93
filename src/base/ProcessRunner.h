#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// The one blocking child-process runner: the login-shell probe, the usage readers and the terminal
// drivers all start their tools through it, on a background thread.
namespace mirrowisp::ProcessRunner {

enum class RunError { couldNotStart, timedOut };

// What `run` brings back: the child's combined output, or why there is none.
struct RunResult {
    QString output;
    std::optional<RunError> error;
    bool truncated = false; // the child wrote more than `outputLimitBytes`; the start was dropped
    // The child's exit code when it ended by itself; nothing when a signal ended it. Tools that
    // report success only by their status (the terminal drivers) read it.
    std::optional<int> exitStatus;

    bool ok() const { return !error; }
};

// At most this much of a child's output is kept. The rest is still read, so a child that floods
// the pipe never blocks on it, but only the last bytes stay: the probe's own lines come last.
inline constexpr qsizetype outputLimitBytes = 1 << 20;

// Runs `executable` and blocks until it ends or `timeoutSeconds` pass. The child gets the app's
// environment less CLAUDE_CODE_* and CLAUDECODE, plus NO_COLOR=1; one pipe for its standard output
// and error; the null device as input; its own session, so that a time-out kills it together with
// everything it started. The exit status is ignored: errors arrive in the text. Never call it on the
// main thread.
RunResult run(const QString& executable, const QStringList& arguments, double timeoutSeconds,
              const std::optional<QString>& directory = std::nullopt);

} // namespace mirrowisp::ProcessRunner
