#include "island/SessionRowText.h"

#include "agents/AgentSession.h"
#include "agents/AgentStoreText.h"
#include "jump/TerminalJumper.h"

#include <QDir>
#include <algorithm>

namespace mirrowisp::SessionRowText {

namespace {

bool present(const std::optional<QString>& value) {
    return value && !value->isEmpty();
}

} // namespace

QString subtitle(const QString& cwd, const QString& home) {
    QString root = home;
    while (root.size() > 1 && root.endsWith(QLatin1Char('/'))) {
        root.chop(1);
    }
    if (root.isEmpty() || root == QLatin1String("/")) {
        return cwd; // every path would start with such a home; showing "~" would hide where it is
    }
    if (cwd == root) {
        return QStringLiteral("~");
    }
    if (cwd.startsWith(root) && cwd.at(root.size()) == QLatin1Char('/')) {
        return QLatin1Char('~') + cwd.mid(root.size());
    }
    return cwd;
}

QString project(const AgentSession& session) {
    if (!session.isRemote()) {
        return session.projectName();
    }
    // "ann@box" shows as "box": the user knows who they are there.
    const QString& host = session.host();
    return session.projectName() + QStringLiteral(" · ") + host.mid(host.lastIndexOf(QLatin1Char('@')) + 1);
}

QString subtitle(const AgentSession& session) {
    return subtitle(session.cwd(), QDir::homePath());
}

QString activityLine(const AgentSession& session) {
    const AgentStatus& status = session.status();
    if (status.kind == AgentStatus::Case::compacting) {
        return QStringLiteral("Compacting the conversation…");
    }
    if (status.kind == AgentStatus::Case::runningTool) {
        return session.activity().value_or(AgentStoreText::activity(status.tool, session.toolDetail()));
    }
    // While the agent works, what it does now says most; once quiet, what it said last.
    const std::optional<QString>& first = status.isWorking() ? session.activity() : session.lastMessage();
    const std::optional<QString>& second = status.isWorking() ? session.lastMessage() : session.activity();
    for (const std::optional<QString>* text : {&first, &second, &session.lastPrompt()}) {
        if (present(*text)) {
            return **text;
        }
    }
    return {};
}

QString ago(Timestamp updatedAt, Timestamp now) {
    // A clock that stepped back shows as recent rather than as a negative age.
    const double seconds = std::max(0.0, now - updatedAt);
    if (seconds < 60) {
        return QStringLiteral("now");
    }
    if (seconds < 3600) {
        return QStringLiteral("%1m").arg(static_cast<qint64>(seconds / 60));
    }
    if (seconds < 86400) {
        return QStringLiteral("%1h").arg(static_cast<qint64>(seconds / 3600));
    }
    return QStringLiteral("%1d").arg(static_cast<qint64>(seconds / 86400));
}

QString hostName(const AgentSession& session) {
    const ProcessContext& context = session.context();
    if (present(context.value(QStringLiteral("CMUX_SURFACE_ID")))) {
        return QStringLiteral("cmux");
    }
    if (context.entrypoint == QLatin1String("claude-desktop")) {
        return QStringLiteral("Claude");
    }
    const QString app = TerminalJumper::appID(context).value_or(QString()).toLower();
    if (app == QLatin1String("com.openai.codex")) {
        return QStringLiteral("Codex");
    }
    if (app.contains(QLatin1String("ghostty"))) {
        return QStringLiteral("Ghostty");
    }
    if (app == QLatin1String("org.gnome.terminal") || app == QLatin1String("gnome-terminal")) {
        return QStringLiteral("Terminal");
    }
    // Cursor reports itself as VS Code; only its own variables tell them apart.
    if (app.contains(QLatin1String("cursor")) ||
        (app == QLatin1String("code") && present(context.value(QStringLiteral("CURSOR_TRACE_ID"))))) {
        return QStringLiteral("Cursor");
    }
    if (!app.isEmpty() || present(context.termProgram) || present(context.tty) || present(context.tmuxPane)) {
        return QStringLiteral("the terminal");
    }
    return AgentKinds::displayName(session.agent());
}

RowBadge badge(const AgentSession& session) {
    if (session.needsUser()) {
        return RowBadge::needsYou;
    }
    if (session.status().kind == AgentStatus::Case::done) {
        return RowBadge::done;
    }
    if (session.status().isWorking()) {
        return RowBadge::working;
    }
    return RowBadge::none;
}

QString badgeName(RowBadge badge) {
    switch (badge) {
    case RowBadge::needsYou:
        return QStringLiteral("needsYou");
    case RowBadge::done:
        return QStringLiteral("done");
    case RowBadge::working:
        return QStringLiteral("working");
    case RowBadge::none:
        break;
    }
    return {};
}

std::optional<qint64> subagentCount(const AgentSession& session) {
    // An ended session runs nothing, whatever its last count said.
    if (session.activeSubagents() <= 0 || session.status().kind == AgentStatus::Case::ended) {
        return std::nullopt;
    }
    return session.activeSubagents();
}

bool approvesInHost(const AgentSession& session) {
    return session.status().kind == AgentStatus::Case::needsAttention && session.pending().empty();
}

} // namespace mirrowisp::SessionRowText
