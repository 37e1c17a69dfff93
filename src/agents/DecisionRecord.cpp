#include "agents/DecisionRecord.h"

#include "bridge/JsonScanner.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <array>
#include <utility>

namespace mirrowisp {

namespace {

constexpr std::array outcomeNames{
    std::pair{DecisionOutcome::allowed, "allowed"},
    std::pair{DecisionOutcome::alwaysAllowed, "alwaysAllowed"},
    std::pair{DecisionOutcome::denied, "denied"},
    std::pair{DecisionOutcome::answered, "answered"},
    std::pair{DecisionOutcome::planApproved, "planApproved"},
    std::pair{DecisionOutcome::planApprovedAutoEdit, "planApprovedAutoEdit"},
    std::pair{DecisionOutcome::keptPlanning, "keptPlanning"},
    std::pair{DecisionOutcome::terminal, "terminal"},
    std::pair{DecisionOutcome::withdrawn, "withdrawn"},
    std::pair{DecisionOutcome::stale, "stale"},
    std::pair{DecisionOutcome::expired, "expired"},
};

constexpr std::array routeNames{
    std::pair{DecisionRoute::island, "island"}, std::pair{DecisionRoute::key, "key"},
    std::pair{DecisionRoute::ctl, "ctl"},       std::pair{DecisionRoute::setupGuide, "setupGuide"},
    std::pair{DecisionRoute::agent, "agent"},
};

template <typename Enum, std::size_t N>
QString nameOf(const std::array<std::pair<Enum, const char*>, N>& names, Enum value) {
    for (const auto& [candidate, name] : names) {
        if (candidate == value) {
            return QString::fromLatin1(name);
        }
    }
    return {};
}

template <typename Enum, std::size_t N>
std::optional<Enum> valueOf(const std::array<std::pair<Enum, const char*>, N>& names, QStringView raw) {
    for (const auto& [value, name] : names) {
        if (raw == QLatin1StringView(name)) {
            return value;
        }
    }
    return std::nullopt;
}

// Long texts are cut before masking so a huge input costs little; a secret cut in half is still
// masked, since the value pattern runs to the end of the text.
QString cut(const QString& text, qsizetype limit) {
    return text.size() > limit ? text.left(limit) + QStringLiteral("…") : text;
}

} // namespace

namespace DecisionNames {
QString outcome(DecisionOutcome value) {
    return nameOf(outcomeNames, value);
}
std::optional<DecisionOutcome> outcome(QStringView raw) {
    return valueOf(outcomeNames, raw);
}
QString route(DecisionRoute value) {
    return nameOf(routeNames, value);
}
std::optional<DecisionRoute> route(QStringView raw) {
    return valueOf(routeNames, raw);
}
} // namespace DecisionNames

namespace DecisionText {

QString maskSecrets(const QString& text) {
    // One set per thread: the log writes on its own thread, tests and readers call this elsewhere.
    static thread_local const QRegularExpression assignment(
        QStringLiteral(R"((\b[A-Z_][A-Z0-9_]*=)("[^"]*"|'[^']*'|[^\s"'\\]+))"));
    static thread_local const QRegularExpression option(
        QStringLiteral(
            R"((--?[A-Za-z0-9-]*(?:token|password|passwd|secret|api-?key|auth)[A-Za-z0-9-]*)(=|\s+)([^\s"'\\]+))"),
        QRegularExpression::CaseInsensitiveOption);
    static thread_local const QRegularExpression header(QStringLiteral(R"((authorization\s*:\s*)[^"'\\\n]+)"),
                                                        QRegularExpression::CaseInsensitiveOption);
    QString masked = text;
    masked.replace(assignment, QStringLiteral("\\1***"));
    masked.replace(option, QStringLiteral("\\1\\2***"));
    masked.replace(header, QStringLiteral("\\1***"));
    return masked;
}

QString inputSummary(const QJsonObject& input) {
    if (input.isEmpty()) {
        return {};
    }
    const QString json = QString::fromUtf8(QJsonDocument(input).toJson(QJsonDocument::Compact));
    return cut(maskSecrets(cut(json, 8 * inputLimit)), inputLimit);
}

} // namespace DecisionText

QByteArray DecisionRecord::toJsonLine() const {
    const QJsonObject object{
        {QStringLiteral("askedAt"), askedAt},
        {QStringLiteral("endedAt"), endedAt},
        {QStringLiteral("agent"), AgentKinds::rawValue(agent)},
        {QStringLiteral("session"), sessionID},
        {QStringLiteral("cwd"), cwd},
        {QStringLiteral("kind"), kind},
        {QStringLiteral("tool"), tool},
        {QStringLiteral("summary"), DecisionText::maskSecrets(cut(summary, 400))},
        {QStringLiteral("input"),
         inputSummary.isEmpty() ? DecisionText::inputSummary(toolInput) : inputSummary},
        {QStringLiteral("outcome"), DecisionNames::outcome(outcome)},
        {QStringLiteral("route"), DecisionNames::route(route)},
        {QStringLiteral("answer"), DecisionText::maskSecrets(cut(answer, 400))},
    };
    QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact);
    line.append('\n');
    return line;
}

std::optional<DecisionRecord> DecisionRecord::fromJsonLine(QByteArrayView line) {
    // The bridge's pull scanner: `ctl log` reads every record of up to five 10 MB files, and building a
    // JSON document for each line would cost several times more.
    JsonScanner scanner(line);
    if (!scanner.beginObject()) {
        return std::nullopt;
    }
    DecisionRecord record;
    std::optional<double> asked;
    std::optional<double> ended;
    std::optional<AgentKind> agent;
    std::optional<DecisionOutcome> outcome;
    std::optional<DecisionRoute> route;
    QByteArray key;
    QByteArray value;
    bool first = true;
    auto text = [&](QString& into) {
        if (!scanner.readString(value)) {
            return false;
        }
        into = QString::fromUtf8(value);
        return true;
    };
    for (;;) {
        const auto next = scanner.nextKey(key, first);
        if (next == JsonScanner::Next::end) {
            break;
        }
        if (next == JsonScanner::Next::error) {
            return std::nullopt;
        }
        bool ok = true;
        double number = 0;
        if (key == "askedAt" || key == "endedAt") {
            ok = scanner.readNumber(number);
            (key == "askedAt" ? asked : ended) = number;
        } else if (key == "agent") {
            ok = scanner.readString(value);
            agent = AgentKinds::fromRawValue(QByteArrayView(value));
        } else if (key == "outcome" || key == "route") {
            QString name;
            ok = text(name);
            if (key == "outcome") {
                outcome = DecisionNames::outcome(name);
            } else {
                route = DecisionNames::route(name);
            }
        } else if (key == "session") {
            ok = text(record.sessionID);
        } else if (key == "cwd") {
            ok = text(record.cwd);
        } else if (key == "kind") {
            ok = text(record.kind);
        } else if (key == "tool") {
            ok = text(record.tool);
        } else if (key == "summary") {
            ok = text(record.summary);
        } else if (key == "input") {
            ok = text(record.inputSummary);
        } else if (key == "answer") {
            ok = text(record.answer);
        } else {
            ok = scanner.skipValue();
        }
        if (!ok) {
            return std::nullopt;
        }
    }
    if (!scanner.finish() || !asked || !ended || !agent || !outcome || !route) {
        return std::nullopt;
    }
    record.askedAt = *asked;
    record.endedAt = *ended;
    record.agent = *agent;
    record.outcome = *outcome;
    record.route = *route;
    return record;
}

} // namespace mirrowisp
