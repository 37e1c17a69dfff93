#pragma once

#include "agents/DecisionRecord.h"

#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace mirrowisp {

// Reads the decision log back, oldest record first, one line at a time: memory stays bounded however
// large the files grow. Lines that do not parse (garbage, a cut last line, a line over `maxLineBytes`)
// are skipped; a file that is no regular file is not opened.
namespace DecisionLogReader {

inline constexpr qsizetype maxLineBytes = 64 * 1024;

struct Filter {
    std::optional<Timestamp> since; // asked at or after
    std::optional<AgentKind> agent;
    std::optional<DecisionOutcome> outcome;
};

// Answers false from `each` to stop early. `line` is the record as stored, without its newline.
using Visitor = std::function<bool(const DecisionRecord& record, QByteArrayView line)>;

// The number of records passed to `each`.
qint64 read(const QStringList& files, const Filter& filter, const Visitor& each);
// The log in the support directory `directory`.
qint64 read(const QString& directory, const Filter& filter, const Visitor& each);

// "90s", "30m", "12h", "7d", "2w" as seconds; nothing for anything else.
std::optional<double> parseDuration(QStringView text);

} // namespace DecisionLogReader
} // namespace mirrowisp
