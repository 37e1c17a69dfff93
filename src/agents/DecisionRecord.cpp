#include "agents/DecisionRecord.h"

#include "agents/JsonValues.h"

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
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line.toByteArray(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    const QJsonValue asked = object.value(QLatin1StringView("askedAt"));
    const QJsonValue ended = object.value(QLatin1StringView("endedAt"));
    const auto agentName = json::string(object, QLatin1StringView("agent"));
    const auto outcomeName = json::string(object, QLatin1StringView("outcome"));
    const auto routeName = json::string(object, QLatin1StringView("route"));
    if (!asked.isDouble() || !ended.isDouble() || !agentName || !outcomeName || !routeName) {
        return std::nullopt;
    }
    const auto agent = AgentKinds::fromRawValue(QStringView(*agentName));
    const auto outcome = DecisionNames::outcome(*outcomeName);
    const auto route = DecisionNames::route(*routeName);
    if (!agent || !outcome || !route) {
        return std::nullopt;
    }
    auto text = [&](const char* key) {
        return json::string(object, QLatin1StringView(key)).value_or(QString());
    };
    DecisionRecord record;
    record.askedAt = asked.toDouble();
    record.endedAt = ended.toDouble();
    record.agent = *agent;
    record.sessionID = text("session");
    record.cwd = text("cwd");
    record.kind = text("kind");
    record.tool = text("tool");
    record.summary = text("summary");
    record.inputSummary = text("input");
    record.outcome = *outcome;
    record.route = *route;
    record.answer = text("answer");
    return record;
}

} // namespace mirrowisp
