#include "integration/HookInstaller.h"

#include "base/AtomicJsonFile.h"
#include "base/UserDefaults.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AgentPlugins.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStringDecoder>

namespace mirrowisp::HookInstaller {

namespace {

QString str(const char* text) {
    return QString::fromLatin1(text);
}

QStringList events(std::initializer_list<const char*> names) {
    QStringList list;
    for (const char* name : names) {
        list.append(str(name));
    }
    return list;
}

bool isBlank(const QByteArray& bytes) {
    for (const char c : bytes) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            return false;
        }
    }
    return true;
}

// Qt's parser lets raw control characters through inside strings; strict JSON does not, and a file
// another program would reject must not be rewritten by us as if it were fine.
bool hasRawControlInString(const QByteArray& bytes) {
    bool inString = false;
    bool escaped = false;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (!inString) {
            inString = c == '"';
            continue;
        }
        if (escaped) {
            escaped = false;
        } else if (c == '\\') {
            escaped = true;
        } else if (c == '"') {
            inString = false;
        } else if (byte < 0x20) {
            return true;
        }
    }
    return false;
}

std::optional<QString> readUtf8(const QString& path) {
    QFile file(path);
    if (QFileInfo(path).isDir() || !file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return std::nullopt;
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError()) {
        return std::nullopt;
    }
    return text;
}

bool holdsMarker(const QJsonValue& value) {
    return value.isString() && value.toString().contains(marker);
}

// A list whose every element is an object: the only shape of hook list we touch.
std::optional<QJsonArray> objectList(const QJsonValue& value) {
    if (!value.isArray()) {
        return std::nullopt;
    }
    const QJsonArray list = value.toArray();
    for (const QJsonValue& element : list) {
        if (!element.isObject()) {
            return std::nullopt;
        }
    }
    return list;
}

QJsonObject hooksOf(const QJsonObject& root) {
    const QJsonValue hooks = root.value(QStringLiteral("hooks"));
    return hooks.isObject() ? hooks.toObject() : QJsonObject();
}

QJsonObject claudeHook(AgentKind kind, const QString& event) {
    QJsonObject hook{
        {QStringLiteral("type"), QStringLiteral("command")},
        {QStringLiteral("command"), command(kind, false)},
    };
    if (kind == AgentKind::gemini) {
        hook.insert(QStringLiteral("timeout"), 10000); // milliseconds there
        hook.insert(QStringLiteral("name"), QStringLiteral("Mirrowisp"));
    } else {
        // A permission request waits for the user, who may be away for a long time.
        hook.insert(QStringLiteral("timeout"), event == QStringLiteral("PermissionRequest") ? 86400 : 10);
    }
    if (const auto message = statusMessage(event, kind)) {
        hook.insert(QStringLiteral("statusMessage"), *message);
    }
    return hook;
}

QJsonObject entryFor(AgentKind kind, Integration::Kind integration, const QString& event) {
    switch (integration) {
    case Integration::Kind::claudeHooks: {
        QJsonObject group{{QStringLiteral("hooks"), QJsonArray{claudeHook(kind, event)}}};
        if (kind == AgentKind::devin) {
            group.insert(QStringLiteral("matcher"), QString());
        }
        return group;
    }
    case Integration::Kind::cursorHooks:
        return {{QStringLiteral("command"), command(kind, false)}, {QStringLiteral("timeout"), 10}};
    case Integration::Kind::copilotHooks:
        return {{QStringLiteral("type"), QStringLiteral("command")},
                {QStringLiteral("bash"), command(kind, false)},
                {QStringLiteral("timeoutSec"), 10}};
    case Integration::Kind::plugin:
        break;
    }
    return {};
}

void append(QJsonObject& hooks, const QString& key, const QJsonObject& entry) {
    // A user's value under one of our events that is no list can't take our entry beside it.
    const QJsonValue existing = hooks.value(key);
    QJsonArray list = existing.isArray() ? existing.toArray() : QJsonArray();
    list.append(entry);
    hooks.insert(key, list);
}

QJsonObject installed(AgentKind kind, const Integration& wiring, QJsonObject root) {
    QJsonObject hooks = stripOurs(hooksOf(root));
    for (const QString& event : wiring.events) {
        append(hooks, event, entryFor(kind, wiring.kind, event));
    }
    if (wiring.kind == Integration::Kind::copilotHooks) {
        append(hooks, QStringLiteral("notification"),
               {{QStringLiteral("type"), QStringLiteral("command")},
                {QStringLiteral("bash"), command(kind, false)},
                {QStringLiteral("matcher"), QStringLiteral("permission_prompt|elicitation_dialog")},
                {QStringLiteral("timeoutSec"), 10}});
    }
    root.insert(QStringLiteral("hooks"), hooks);

    if (wiring.kind == Integration::Kind::cursorHooks || wiring.kind == Integration::Kind::copilotHooks) {
        if (!root.contains(QStringLiteral("version"))) {
            root.insert(QStringLiteral("version"), 1);
        }
    }
    // A user's own status line stays; we then go without the session's status-line data.
    const QString statusLineKey = QStringLiteral("statusLine");
    if (kind == AgentKind::claude && (!root.contains(statusLineKey) || isOurs(root.value(statusLineKey)))) {
        root.insert(statusLineKey, QJsonObject{{QStringLiteral("type"), QStringLiteral("command")},
                                               {QStringLiteral("command"), command(kind, true)},
                                               {QStringLiteral("padding"), 0}});
    }
    return root;
}

QString shellQuotedPath() {
    QString path = bridgeLinkPath();
    path.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return path;
}

} // namespace

Integration integration(AgentKind kind) {
    const Locations locations = AgentEnvironment::current();
    const QString dir = locations.dir(kind);
    switch (kind) {
    case AgentKind::claude:
        return {Integration::Kind::claudeHooks, dir + QStringLiteral("/settings.json"),
                events({"SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse", "PostToolUse",
                        "PostToolUseFailure", "PermissionRequest", "Notification", "Stop", "StopFailure",
                        "SubagentStart", "SubagentStop", "PreCompact", "PostCompact"})};
    case AgentKind::codex:
        return {Integration::Kind::claudeHooks, dir + QStringLiteral("/hooks.json"),
                events({"SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse", "PostToolUse",
                        "PermissionRequest", "Stop", "SubagentStart", "SubagentStop", "PreCompact",
                        "PostCompact"})};
    case AgentKind::cursor:
        return {Integration::Kind::cursorHooks, dir + QStringLiteral("/hooks.json"),
                events({"sessionStart", "sessionEnd", "beforeSubmitPrompt", "preToolUse", "postToolUse",
                        "postToolUseFailure", "afterAgentResponse", "stop", "subagentStop", "preCompact"})};
    case AgentKind::opencode:
    case AgentKind::amp:
        return {Integration::Kind::plugin, dir + QStringLiteral("/plugins/mirrowisp.ts"), {}};
    case AgentKind::devin:
        return {Integration::Kind::claudeHooks, dir + QStringLiteral("/config.json"),
                events({"SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse", "PostToolUse",
                        "PermissionRequest", "Stop"})};
    case AgentKind::gemini:
        return {Integration::Kind::claudeHooks, dir + QStringLiteral("/settings.json"),
                events({"SessionStart", "SessionEnd", "BeforeAgent", "AfterAgent", "BeforeTool", "AfterTool",
                        "Notification", "PreCompress"})};
    case AgentKind::copilot:
        return {Integration::Kind::copilotHooks, dir + QStringLiteral("/hooks/mirrowisp.json"),
                events({"SessionStart", "SessionEnd", "UserPromptSubmit", "PreToolUse", "PostToolUse",
                        "PostToolUseFailure", "Stop", "PreCompact"})};
    }
    return {};
}

ConfigFile readConfig(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists()) {
        return {ConfigFile::State::missing, {}};
    }
    QFile file(path);
    if (info.isDir() || !file.open(QIODevice::ReadOnly)) {
        return {ConfigFile::State::unreadable, {}};
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return {ConfigFile::State::unreadable, {}};
    }
    // A blank file is treated as no file, and is replaced on install.
    if (isBlank(bytes)) {
        return {ConfigFile::State::missing, {}};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject() || hasRawControlInString(bytes)) {
        return {ConfigFile::State::unreadable, {}};
    }
    return {ConfigFile::State::parsed, document.object()};
}

QString command(AgentKind kind, bool statusLine) {
    const QString path = shellQuotedPath();
    QString args = QStringLiteral("--agent ") + AgentKinds::rawValue(kind);
    if (statusLine) {
        args += QStringLiteral(" --statusline");
    }
    // The whole command is one single-quoted argument to sh, hence the quoting of ' in the path.
    if (kind == AgentKind::cursor) {
        // Cursor wants JSON on standard output from every hook, even when the tool is gone.
        return QStringLiteral("/bin/sh -c '[ -x \"") + path + QStringLiteral("\" ] && exec \"") + path +
               QStringLiteral("\" ") + args + QStringLiteral(" || echo \"{}\"'");
    }
    return QStringLiteral("/bin/sh -c '[ ! -x \"") + path + QStringLiteral("\" ] || exec \"") + path +
           QStringLiteral("\" ") + args + QStringLiteral("'");
}

std::optional<QString> statusMessage(const QString& event, AgentKind agent) {
    const bool permission = event == QStringLiteral("PermissionRequest");
    switch (agent) {
    case AgentKind::claude:
        if (permission) {
            return QStringLiteral("Mirrowisp: approvals in the notch");
        }
        return std::nullopt;
    case AgentKind::codex:
        return permission ? QStringLiteral("Waiting for your approval in Mirrowisp")
                          : QStringLiteral("Mirrowisp: session status");
    default:
        return std::nullopt;
    }
}

QJsonObject stripOurs(const QJsonObject& hooks) {
    QJsonObject cleaned;
    for (auto it = hooks.begin(); it != hooks.end(); ++it) {
        const std::optional<QJsonArray> list = objectList(it.value());
        if (!list) {
            cleaned.insert(it.key(), it.value());
            continue;
        }
        QJsonArray kept;
        for (const QJsonValue& element : *list) {
            QJsonObject entry = element.toObject();
            if (holdsMarker(entry.value(QStringLiteral("command"))) ||
                holdsMarker(entry.value(QStringLiteral("bash")))) {
                continue;
            }
            if (const auto inner = objectList(entry.value(QStringLiteral("hooks")))) {
                QJsonArray theirs;
                for (const QJsonValue& hook : *inner) {
                    if (!holdsMarker(hook.toObject().value(QStringLiteral("command")))) {
                        theirs.append(hook);
                    }
                }
                if (theirs.isEmpty()) {
                    continue;
                }
                // The group keeps the user's hooks and every other key of theirs, such as a matcher.
                if (theirs.size() != inner->size()) {
                    entry.insert(QStringLiteral("hooks"), theirs);
                }
            }
            kept.append(entry);
        }
        if (!kept.isEmpty()) {
            cleaned.insert(it.key(), kept);
        }
    }
    return cleaned;
}

bool containsMarker(const QJsonObject& entry) {
    if (holdsMarker(entry.value(QStringLiteral("command"))) ||
        holdsMarker(entry.value(QStringLiteral("bash")))) {
        return true;
    }
    if (const auto inner = objectList(entry.value(QStringLiteral("hooks")))) {
        for (const QJsonValue& hook : *inner) {
            if (holdsMarker(hook.toObject().value(QStringLiteral("command")))) {
                return true;
            }
        }
    }
    return false;
}

bool isOurs(const QJsonValue& value) {
    return value.isObject() && holdsMarker(value.toObject().value(QStringLiteral("command")));
}

HookResult install(AgentKind kind, UserDefaults& defaults) {
    refreshBridgeLink();
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::plugin) {
        return installPlugin(kind, wiring.file);
    }
    const ConfigFile config = readConfig(wiring.file);
    if (config.state == ConfigFile::State::unreadable) {
        return HookError::unreadable(wiring.file);
    }
    const QJsonObject next = installed(kind, wiring, config.object);
    // The steady state on every launch: no backup, no write, the file's time untouched, and Codex's
    // trust in an unchanged file left alone.
    if (config.state == ConfigFile::State::parsed && next == config.object) {
        return std::nullopt;
    }
    if (auto error = backup(wiring.file)) {
        return error;
    }
    if (kind == AgentKind::codex) {
        markCodexTrustStale(defaults);
    }
    return writeJSON(next, wiring.file);
}

HookResult uninstall(AgentKind kind) {
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::plugin) {
        const std::optional<QString> text = readUtf8(wiring.file);
        if (!text || !text->contains(marker)) {
            return std::nullopt; // nothing of ours, or a file of someone else's
        }
        QFile file(wiring.file);
        if (!file.remove()) {
            return HookError::fileSystem(wiring.file, file.errorString());
        }
        return std::nullopt;
    }

    const ConfigFile config = readConfig(wiring.file);
    if (config.state == ConfigFile::State::missing) {
        return std::nullopt;
    }
    if (config.state == ConfigFile::State::unreadable) {
        return HookError::unreadable(wiring.file);
    }
    if (auto error = backup(wiring.file)) {
        return error;
    }
    QJsonObject root = config.object;
    const QJsonObject hooks = stripOurs(hooksOf(root));
    // Copilot's file is ours alone: with nothing of the user's left it goes.
    if (wiring.kind == Integration::Kind::copilotHooks && hooks.isEmpty()) {
        QFile file(wiring.file);
        if (!file.remove()) {
            return HookError::fileSystem(wiring.file, file.errorString());
        }
        return std::nullopt;
    }
    if (hooks.isEmpty()) {
        root.remove(QStringLiteral("hooks"));
    } else {
        root.insert(QStringLiteral("hooks"), hooks);
    }
    if (kind == AgentKind::claude && isOurs(root.value(QStringLiteral("statusLine")))) {
        root.remove(QStringLiteral("statusLine"));
    }
    return writeJSON(root, wiring.file);
}

QString disconnectedKey(AgentKind kind) {
    return QStringLiteral("disconnected.") + AgentKinds::rawValue(kind);
}

HookResult connect(AgentKind kind, UserDefaults& defaults) {
    defaults.remove(disconnectedKey(kind));
    return install(kind, defaults);
}

HookResult disconnect(AgentKind kind, UserDefaults& defaults) {
    if (auto error = uninstall(kind)) {
        return error;
    }
    defaults.set(disconnectedKey(kind), true);
    return std::nullopt;
}

bool isDisconnectedByUser(AgentKind kind, const UserDefaults& defaults) {
    return defaults.boolValue(disconnectedKey(kind)).value_or(false);
}

bool isInstalled(AgentKind kind) {
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::plugin) {
        const std::optional<QString> text = readUtf8(wiring.file);
        return text && text->contains(marker);
    }
    const ConfigFile config = readConfig(wiring.file);
    if (config.state != ConfigFile::State::parsed) {
        return false;
    }
    const QJsonObject hooks = hooksOf(config.object);
    for (const QJsonValue& value : hooks) {
        if (const auto list = objectList(value)) {
            for (const QJsonValue& entry : *list) {
                if (containsMarker(entry.toObject())) {
                    return true;
                }
            }
        }
    }
    return false;
}

HookResult writeJSON(const QJsonObject& object, const QString& path) {
    if (auto error = writeJsonAtomically(path, QJsonDocument(object))) {
        return HookError::fileSystem(path, *error);
    }
    return std::nullopt;
}

HookResult installPlugin(AgentKind kind, const QString& path) {
    const std::optional<QString> source = AgentPlugins::source(kind, bridgeLinkPath());
    if (!source) {
        return std::nullopt;
    }
    if (QFileInfo::exists(path)) {
        // A file of that name that isn't ours is not replaced.
        const std::optional<QString> text = readUtf8(path);
        if (!text || !text->contains(marker)) {
            return HookError::unreadable(path);
        }
        if (*text == *source) {
            return std::nullopt;
        }
    }
    // Plugin files are ours alone, so they get no backup.
    if (auto error = writeFileAtomically(path, source->toUtf8())) {
        return HookError::fileSystem(path, *error);
    }
    return std::nullopt;
}

QString bridgeLinkPath() {
    return BridgeProtocol::supportDirectory() + QStringLiteral("/bin/mirrowisp-bridge");
}

QString backupsDirectory() {
    return BridgeProtocol::supportDirectory() + QStringLiteral("/backups");
}

} // namespace mirrowisp::HookInstaller
