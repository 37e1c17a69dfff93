#include "control/CtlLog.h"

#include "agents/DecisionLogReader.h"
#include "base/Clock.h"
#include "bridge/BridgeProtocol.h"

#include <cstdio>
#include <ctime>
#include <string>

namespace mirrowisp {

namespace {

constexpr int exitUsage = 64;

QString lastComponent(const QString& path) {
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'), path.endsWith(QLatin1Char('/')) ? -2 : -1);
    return slash < 0 ? path : path.mid(slash + 1);
}

QString column(const QString& text, qsizetype width) {
    QString cell = text.simplified();
    if (cell.size() > width) {
        cell = cell.left(width - 1) + QStringLiteral("…");
    }
    return cell.leftJustified(width);
}

QString waited(double seconds) {
    if (seconds < 60) {
        return QString::number(seconds, 'f', 1) + QLatin1Char('s');
    }
    if (seconds < 3600) {
        return QString::number(seconds / 60, 'f', 1) + QLatin1Char('m');
    }
    return QString::number(seconds / 3600, 'f', 1) + QLatin1Char('h');
}

// strftime over the C library's cached zone: QDateTime's local-time conversion costs more than the
// parsing of a record.
QString localTime(Timestamp time) {
    const auto seconds = static_cast<time_t>(time);
    struct tm parts {};
    char text[32];
    if (localtime_r(&seconds, &parts) == nullptr ||
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) == 0) {
        return QStringLiteral("?").leftJustified(19);
    }
    return QString::fromLatin1(text);
}

// Written straight to stdout as it is read: a big log is never held whole.
void print(const QString& line) {
    const QByteArray bytes = line.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fputc('\n', stdout);
}

} // namespace

int runCtlLog(QStringList args) {
    DecisionLogReader::Filter filter;
    bool asJson = false;
    while (!args.isEmpty()) {
        const QString option = args.takeFirst();
        if (option == QLatin1StringView("--json")) {
            asJson = true;
        } else if (option == QLatin1StringView("--since") && !args.isEmpty()) {
            const auto seconds = DecisionLogReader::parseDuration(args.takeFirst());
            if (!seconds) {
                std::fputs("mirrowisp ctl: --since wants a duration such as 90s, 30m, 12h, 7d or 2w\n",
                           stderr);
                return exitUsage;
            }
            filter.since = SystemClock::shared().now() - *seconds;
        } else if (option == QLatin1StringView("--agent") && !args.isEmpty()) {
            filter.agent = AgentKinds::fromRawValue(QStringView(args.takeFirst()));
            if (!filter.agent) {
                std::fputs("mirrowisp ctl: --agent wants one of claude, codex, cursor, opencode, amp, devin, "
                           "gemini, copilot\n",
                           stderr);
                return exitUsage;
            }
        } else {
            std::fputs("usage: mirrowisp ctl log [--since DURATION] [--agent KIND] [--json]\n", stderr);
            return exitUsage;
        }
    }
    if (!asJson) {
        print(QStringLiteral("%1  %2  %3  %4  %5  %6  %7  %8")
                  .arg(column(QStringLiteral("ASKED"), 19), column(QStringLiteral("AGENT"), 8),
                       column(QStringLiteral("OUTCOME"), 20), column(QStringLiteral("BY"), 10),
                       column(QStringLiteral("WAITED"), 6), column(QStringLiteral("PROJECT"), 16),
                       column(QStringLiteral("TOOL"), 12), QStringLiteral("SUMMARY")));
    }
    DecisionLogReader::read(BridgeProtocol::supportDirectory(), filter,
                            [asJson](const DecisionRecord& record, QByteArrayView line) {
                                if (asJson) {
                                    std::fwrite(line.data(), 1, static_cast<size_t>(line.size()), stdout);
                                    std::fputc('\n', stdout);
                                    return true;
                                }
                                QString summary = record.summary;
                                if (!record.answer.isEmpty()) {
                                    summary += QStringLiteral(" → ") + record.answer;
                                }
                                print(QStringLiteral("%1  %2  %3  %4  %5  %6  %7  %8")
                                          .arg(localTime(record.askedAt),
                                               column(AgentKinds::rawValue(record.agent), 8),
                                               column(DecisionNames::outcome(record.outcome), 20),
                                               column(DecisionNames::route(record.route), 10),
                                               column(waited(record.endedAt - record.askedAt), 6),
                                               column(lastComponent(record.cwd), 16), column(record.tool, 12),
                                               column(summary, 100).trimmed()));
                                return true;
                            });
    std::fflush(stdout);
    return 0;
}

} // namespace mirrowisp
