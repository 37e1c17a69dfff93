#pragma once

#include "base/Clock.h"
#include "usage/UsageMeter.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTimeZone>
#include <optional>

namespace mirrowisp::ClaudeUsageProbe {

// Why a probe gave no meters. `couldNotStart` stands for a launch error of the tool (gone, not
// executable, bad working directory): nothing is thrown across subsystems, so it is a case here.
enum class Failure { cliNotFound, notSignedIn, timedOut, unparseable, couldNotStart };

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

struct FetchResult {
    QList<UsageMeter> meters;
    std::optional<Failure> failure;
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

// The support directory's "probe" folder, created on every call; the tool runs in it.
QString probeDirectory();

// The `claude` tool: the usual install places, then the login shell's `command -v claude`.
std::optional<QString> findCLI();

// Runs `claude -p /usage` without hooks or a saved session and reads the meters from its text.
FetchResult fetch(const QString& cli);

// The meters in the tool's text, in the order of its lines; empty if no line matches.
QList<UsageMeter> parse(const QString& text, Timestamp now = SystemClock::shared().now());

// When a limit resets, read from texts such as "Mar 3 at 5pm", "Mar 3, 2027 5:30pm" or "7:30pm"
// in `zone` (the system's zone when invalid). Nothing when the text is no such date.
std::optional<Timestamp> resetDate(const QString& text, const QTimeZone& zone, Timestamp now);

} // namespace mirrowisp::ClaudeUsageProbe
