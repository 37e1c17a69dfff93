#include "integration/LineDiff.h"

#include <QList>
#include <algorithm>
#include <vector>

namespace mirrowisp::LineDiff {

namespace {

// Past this many cells the comparison table would cost too much: settings files are far smaller.
constexpr qsizetype maxCells = 4'000'000;

QList<QByteArray> lines(const QByteArray& text) {
    QList<QByteArray> list = text.split('\n');
    if (!list.isEmpty() && list.last().isEmpty()) {
        list.removeLast();
    }
    return list;
}

struct Edit {
    char op; // ' ', '-', '+'
    QByteArray line;
};

std::vector<Edit> edits(const QList<QByteArray>& a, const QList<QByteArray>& b) {
    std::vector<Edit> out;
    const auto n = static_cast<std::size_t>(a.size());
    const auto m = static_cast<std::size_t>(b.size());
    if (static_cast<qsizetype>((n + 1) * (m + 1)) > maxCells) {
        for (const QByteArray& line : a) {
            out.push_back({'-', line});
        }
        for (const QByteArray& line : b) {
            out.push_back({'+', line});
        }
        return out;
    }
    // Longest common subsequence from the end, then walked from the start.
    std::vector<int> table((n + 1) * (m + 1), 0);
    auto at = [&](std::size_t i, std::size_t j) -> int& { return table[i * (m + 1) + j]; };
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t j = m; j-- > 0;) {
            at(i, j) = a[static_cast<qsizetype>(i)] == b[static_cast<qsizetype>(j)]
                           ? at(i + 1, j + 1) + 1
                           : std::max(at(i + 1, j), at(i, j + 1));
        }
    }
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < n || j < m) {
        if (i < n && j < m && a[static_cast<qsizetype>(i)] == b[static_cast<qsizetype>(j)]) {
            out.push_back({' ', a[static_cast<qsizetype>(i)]});
            ++i;
            ++j;
        } else if (i < n && (j == m || at(i + 1, j) >= at(i, j + 1))) {
            // Removals first, as diff(1) prints them.
            out.push_back({'-', a[static_cast<qsizetype>(i)]});
            ++i;
        } else {
            out.push_back({'+', b[static_cast<qsizetype>(j)]});
            ++j;
        }
    }
    return out;
}

} // namespace

QString unified(const QByteArray& before, const QByteArray& after, const QString& beforeName,
                const QString& afterName, int context) {
    if (before == after) {
        return {};
    }
    const std::vector<Edit> all = edits(lines(before), lines(after));
    QByteArray out = "--- " + beforeName.toUtf8() + "\n+++ " + afterName.toUtf8() + "\n";
    const auto size = all.size();
    std::size_t index = 0;
    while (index < size) {
        if (all[index].op == ' ') {
            ++index;
            continue;
        }
        // A hunk: from `context` lines before this change to `context` after the last change that
        // lies within 2 * context of the one before it.
        const std::size_t start =
            index >= static_cast<std::size_t>(context) ? index - static_cast<std::size_t>(context) : 0;
        std::size_t end = index;
        std::size_t quiet = 0;
        for (std::size_t k = index; k < size; ++k) {
            if (all[k].op == ' ') {
                if (++quiet > static_cast<std::size_t>(2 * context)) {
                    break;
                }
            } else {
                quiet = 0;
                end = k;
            }
        }
        const std::size_t stop = std::min(size, end + 1 + static_cast<std::size_t>(context));
        int oldStart = 1;
        int newStart = 1;
        for (std::size_t k = 0; k < start; ++k) {
            oldStart += all[k].op != '+' ? 1 : 0;
            newStart += all[k].op != '-' ? 1 : 0;
        }
        int oldCount = 0;
        int newCount = 0;
        for (std::size_t k = start; k < stop; ++k) {
            oldCount += all[k].op != '+' ? 1 : 0;
            newCount += all[k].op != '-' ? 1 : 0;
        }
        out += "@@ -" + QByteArray::number(oldCount == 0 ? oldStart - 1 : oldStart) + ',' +
               QByteArray::number(oldCount) + " +" +
               QByteArray::number(newCount == 0 ? newStart - 1 : newStart) + ',' +
               QByteArray::number(newCount) + " @@\n";
        for (std::size_t k = start; k < stop; ++k) {
            out += all[k].op + all[k].line + '\n';
        }
        index = stop;
    }
    return QString::fromUtf8(out);
}

} // namespace mirrowisp::LineDiff
