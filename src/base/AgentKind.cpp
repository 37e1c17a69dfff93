#include "base/AgentKind.h"

namespace mirrowisp::AgentKinds {

namespace {

struct KindInfo {
    const char* raw;
    const char* name;
    AccentColor accent;
    const char* download;
};

// One row per case, in declared order.
constexpr std::array<KindInfo, 8> table = {{
    {"claude", "Claude Code", {0.851, 0.467, 0.341}, "https://www.anthropic.com/claude-code"},
    {"codex", "Codex", {0.45, 0.62, 1.0}, "https://developers.openai.com/codex/cli"},
    {"cursor", "Cursor", {0.86, 0.86, 0.86}, "https://cursor.com/downloads"},
    {"opencode", "OpenCode", {0.55, 0.86, 0.62}, "https://opencode.ai/download"},
    {"amp", "Amp", {0.96, 0.42, 0.36}, "https://ampcode.com/"},
    {"devin", "Devin", {0.45, 0.8, 0.95}, "https://devin.ai/"},
    {"gemini", "Gemini CLI", {0.42, 0.6, 1.0}, "https://github.com/google-gemini/gemini-cli"},
    {"copilot", "Copilot CLI", {0.72, 0.58, 0.98}, "https://github.com/features/copilot/cli"},
}};

const KindInfo& info(AgentKind kind) {
    return table[static_cast<std::size_t>(kind)];
}

} // namespace

QString rawValue(AgentKind kind) {
    return QString::fromLatin1(info(kind).raw);
}

std::optional<AgentKind> fromRawValue(QByteArrayView raw) {
    for (AgentKind kind : all) {
        if (raw == QByteArrayView(info(kind).raw)) {
            return kind;
        }
    }
    return std::nullopt;
}

std::optional<AgentKind> fromRawValue(QStringView raw) {
    for (AgentKind kind : all) {
        if (raw == QLatin1StringView(info(kind).raw)) {
            return kind;
        }
    }
    return std::nullopt;
}

QString displayName(AgentKind kind) {
    return QString::fromUtf8(info(kind).name);
}

QString getTitle(AgentKind kind) {
    return QStringLiteral("Get ") + displayName(kind);
}

AccentColor accent(AgentKind kind) {
    return info(kind).accent;
}

QString downloadURL(AgentKind kind) {
    return QString::fromLatin1(info(kind).download);
}

} // namespace mirrowisp::AgentKinds
