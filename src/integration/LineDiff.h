#pragma once

#include <QByteArray>
#include <QString>

namespace mirrowisp::LineDiff {

// A unified diff of two texts by lines, with `context` lines around each change, under the headers
// "--- <beforeName>" and "+++ <afterName>". Empty when the texts are equal. Texts too large to compare
// line by line cheaply come out as one hunk that replaces everything.
QString unified(const QByteArray& before, const QByteArray& after, const QString& beforeName,
                const QString& afterName, int context = 3);

} // namespace mirrowisp::LineDiff
