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

struct FetchResult {
    QList<UsageMeter> meters;
    std::optional<Failure> failure;
};

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
