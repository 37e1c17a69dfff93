#include "integration/HookInstaller.h"

#include "base/AtomicJsonFile.h"
#include "base/RegularFile.h"
#include "base/UserDefaults.h"
#include "bridge/BridgeProtocol.h"
#include "integration/AgentPlugins.h"
#include "integration/Locations.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStringDecoder>
#include <algorithm>

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

// A plugin file: missing (no text, no refusal), ours as text, or refused.
struct PluginFile {
    HookResult refused;
    std::optional<QString> text;
};

PluginFile pluginFrom(const QString& path, const FileRead& read) {
    if (read.status == FileRead::Status::missing) {
        return {};
    }
    if (!read.ok()) {
        return {HookError::unreadable(path, read.reason()), {}};
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(read.bytes);
    // A file of that name that isn't ours is not ours to replace.
    if (decoder.hasError() || !text.contains(marker)) {
        return {HookError::unreadable(path), {}};
    }
    return {std::nullopt, std::move(text)};
}

PluginFile readPlugin(const QString& path) {
    return pluginFrom(path, readRegularFile(path));
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

QJsonObject claudeHook(AgentKind kind, const QString& event, const QString& tool) {
    QJsonObject hook{
        {QStringLiteral("type"), QStringLiteral("command")},
        {QStringLiteral("command"), command(kind, false, tool)},
    };
    if (kind == AgentKind::gemini) {
        hook.insert(QStringLiteral("timeout"), 10000); // milliseconds there
        hook.insert(QStringLiteral("name"), QStringLiteral("Mirrowisp"));
    } else {
        // A permission request waits for the user, who may be away for a long time.
        hook.insert(QStringLiteral("timeout"), event == QStringLiteral("PermissionRequest")
                                                   ? static_cast<int>(decisionTimeoutSeconds)
                                                   : 10);
    }
    if (const auto message = statusMessage(event, kind)) {
        hook.insert(QStringLiteral("statusMessage"), *message);
    }
    return hook;
}

QJsonObject entryFor(AgentKind kind, Integration::Kind integration, const QString& event,
                     const QString& tool) {
    switch (integration) {
    case Integration::Kind::claudeHooks: {
        QJsonObject group{{QStringLiteral("hooks"), QJsonArray{claudeHook(kind, event, tool)}}};
        if (kind == AgentKind::devin) {
            group.insert(QStringLiteral("matcher"), QString());
        }
        return group;
    }
    case Integration::Kind::cursorHooks:
        return {{QStringLiteral("command"), command(kind, false, tool)}, {QStringLiteral("timeout"), 10}};
    case Integration::Kind::copilotHooks:
        return {{QStringLiteral("type"), QStringLiteral("command")},
                {QStringLiteral("bash"), command(kind, false, tool)},
                {QStringLiteral("timeoutSec"), 10}};
    case Integration::Kind::plugin:
        break;
    }
    return {};
}

void append(QJsonObject& hooks, const QString& key, const QJsonObject& entry) {
    // Only a list of objects gets here: any other value under one of our events was refused before.
    QJsonArray list = hooks.value(key).toArray();
    list.append(entry);
    hooks.insert(key, list);
}

// The event keys our entries go under.
QStringList managedEvents(const Integration& wiring) {
    QStringList keys = wiring.events;
    if (wiring.kind == Integration::Kind::copilotHooks) {
        keys.append(QStringLiteral("notification"));
    }
    return keys;
}

// The value, if any, that stands where our entries go with a shape we don't manage. Replacing it would
// lose the user's setting, and leaving our entry out would be a silent half-install, so the whole
// change is refused.
std::optional<QString> unexpectedValue(const Integration& wiring, const QJsonObject& root) {
    const QString hooksKey = QStringLiteral("hooks");
    if (!root.contains(hooksKey)) {
        return std::nullopt;
    }
    const QJsonValue hooks = root.value(hooksKey);
    if (!hooks.isObject()) {
        return hooksKey;
    }
    const QJsonObject events = hooks.toObject();
    for (const QString& event : managedEvents(wiring)) {
        if (events.contains(event) && !objectList(events.value(event))) {
            return hooksKey + QLatin1Char('.') + event;
        }
    }
    return std::nullopt;
}

// The file as read, refused when it is unreadable or holds a value we must not replace.
HookResult refusal(const Integration& wiring, const ConfigFile& config) {
    if (config.state == ConfigFile::State::unreadable) {
        return HookError::unreadable(wiring.file, config.reason);
    }
    if (config.state == ConfigFile::State::parsed) {
        if (const auto key = unexpectedValue(wiring, config.object)) {
            return HookError::unexpected(wiring.file, *key);
        }
    }
    return std::nullopt;
}

// Writes the object over an agent's file, backing the old file up once the new content is ready to
// take its place: a file that can't be written gets no backup.
HookResult replaceBackedUp(const QByteArray& bytes, const QString& path) {
    std::optional<HookError> backupError;
    const auto error = writeFileAtomically(path, bytes, [&]() -> std::optional<QString> {
        backupError = backup(path);
        if (backupError) {
            return backupError->detail;
        }
        return std::nullopt;
    });
    if (backupError) {
        return backupError;
    }
    if (error) {
        return HookError::fileSystem(path, *error);
    }
    return std::nullopt;
}

QJsonObject installed(AgentKind kind, const Integration& wiring, QJsonObject root, const QString& tool) {
    QJsonObject hooks = stripOurs(hooksOf(root));
    for (const QString& event : wiring.events) {
        append(hooks, event, entryFor(kind, wiring.kind, event, tool));
    }
    if (wiring.kind == Integration::Kind::copilotHooks) {
        append(hooks, QStringLiteral("notification"),
               {{QStringLiteral("type"), QStringLiteral("command")},
                {QStringLiteral("bash"), command(kind, false, tool)},
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
                                               {QStringLiteral("command"), command(kind, true, tool)},
                                               {QStringLiteral("padding"), 0}});
    }
    return root;
}

QString shellQuotedPath(QString path) {
    path.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return path;
}

QByteArray jsonBytes(const QJsonObject& object) {
    // As writeJsonAtomically writes it.
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

// Applies an edit to a file of this machine.
HookResult apply(const FileEdit& edit, const QString& path) {
    switch (edit.action) {
    case FileEdit::Action::keep:
        return std::nullopt;
    case FileEdit::Action::write:
        if (!edit.backup) {
            if (auto error = writeFileAtomically(path, edit.bytes)) {
                return HookError::fileSystem(path, *error);
            }
            return std::nullopt;
        }
        return replaceBackedUp(edit.bytes, path);
    case FileEdit::Action::remove:
        break;
    }
    if (edit.backup) {
        if (auto error = backup(path)) {
            return error;
        }
    }
    QFile file(path);
    if (!file.remove()) {
        return HookError::fileSystem(path, file.errorString());
    }
    return std::nullopt;
}

} // namespace

Integration integration(AgentKind kind) {
    return integration(kind, AgentEnvironment::current());
}

Integration integration(AgentKind kind, const Locations& locations) {
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

std::optional<double> decisionTimeout(AgentKind kind) {
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::claudeHooks &&
        wiring.events.contains(QStringLiteral("PermissionRequest"))) {
        return decisionTimeoutSeconds;
    }
    return std::nullopt;
}

ConfigFile readConfig(const QString& path) {
    return parseConfig(readRegularFile(path));
}

ConfigFile parseConfig(const FileRead& read) {
    if (read.status == FileRead::Status::missing) {
        return {ConfigFile::State::missing, {}, {}};
    }
    if (!read.ok()) {
        return {ConfigFile::State::unreadable, {}, read.reason()};
    }
    const QByteArray& bytes = read.bytes;
    // A blank file is treated as no file, and is replaced on install.
    if (isBlank(bytes)) {
        return {ConfigFile::State::missing, {}, {}};
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject() || hasRawControlInString(bytes)) {
        return {ConfigFile::State::unreadable, {}, {}};
    }
    return {ConfigFile::State::parsed, document.object(), {}};
}

QString command(AgentKind kind, bool statusLine) {
    return command(kind, statusLine, bridgeLinkPath());
}

QString command(AgentKind kind, bool statusLine, const QString& toolPath) {
    const QString path = shellQuotedPath(toolPath);
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

FileEdit installEdit(AgentKind kind, const Integration& wiring, const FileRead& read,
                     const QString& toolPath) {
    FileEdit edit;
    if (wiring.kind == Integration::Kind::plugin) {
        const std::optional<QString> source = AgentPlugins::source(kind, toolPath);
        const PluginFile existing = pluginFrom(wiring.file, read);
        edit.refused = existing.refused;
        edit.backup = false;
        if (!edit.refused && source && existing.text != *source) {
            edit.action = FileEdit::Action::write;
            edit.bytes = source->toUtf8();
            edit.changes = true;
        }
        return edit;
    }
    const ConfigFile config = parseConfig(read);
    edit.refused = refusal(wiring, config);
    if (edit.refused) {
        return edit;
    }
    const QJsonObject next = installed(kind, wiring, config.object, toolPath);
    // The steady state on every launch: no backup, no write, the file's time untouched.
    if (config.state == ConfigFile::State::parsed && next == config.object) {
        return edit;
    }
    edit.action = FileEdit::Action::write;
    edit.bytes = jsonBytes(next);
    edit.changes = true;
    return edit;
}

FileEdit uninstallEdit(AgentKind kind, const Integration& wiring, const FileRead& read) {
    FileEdit edit;
    if (wiring.kind == Integration::Kind::plugin) {
        // Nothing of ours, or a file of someone else's: nothing to do.
        if (pluginFrom(wiring.file, read).text) {
            edit.action = FileEdit::Action::remove;
            edit.backup = false;
            edit.changes = true;
        }
        return edit;
    }
    const ConfigFile config = parseConfig(read);
    if (config.state == ConfigFile::State::missing) {
        return edit;
    }
    edit.refused = refusal(wiring, config);
    if (edit.refused) {
        return edit;
    }
    QJsonObject root = config.object;
    const QJsonObject hooks = stripOurs(hooksOf(root));
    // Copilot's file is ours alone: with nothing of the user's left it goes.
    if (wiring.kind == Integration::Kind::copilotHooks && hooks.isEmpty()) {
        edit.action = FileEdit::Action::remove;
        edit.changes = true;
        return edit;
    }
    if (hooks.isEmpty()) {
        root.remove(QStringLiteral("hooks"));
    } else {
        root.insert(QStringLiteral("hooks"), hooks);
    }
    if (kind == AgentKind::claude && isOurs(root.value(QStringLiteral("statusLine")))) {
        root.remove(QStringLiteral("statusLine"));
    }
    edit.action = FileEdit::Action::write;
    edit.bytes = jsonBytes(root);
    edit.changes = root != config.object;
    return edit;
}

FileChange installFile(AgentKind kind) {
    refreshBridgeLink();
    const Integration wiring = integration(kind);
    const FileEdit edit = installEdit(kind, wiring, readRegularFile(wiring.file), bridgeLinkPath());
    if (edit.refused) {
        return {edit.refused, {}};
    }
    if (edit.action == FileEdit::Action::keep) {
        return {};
    }
    // Codex's trust as it stood before the rewrite, which no longer applies after it.
    std::optional<QJsonObject> trust;
    if (kind == AgentKind::codex) {
        trust = codexTrustSnapshot();
    }
    if (auto error = apply(edit, wiring.file)) {
        return {error, {}};
    }
    return {std::nullopt, trust};
}

PlannedChange plan(AgentKind kind) {
    const Integration wiring = integration(kind);
    const FileRead read = readRegularFile(wiring.file);
    const FileEdit edit = installEdit(kind, wiring, read, bridgeLinkPath());
    PlannedChange planned;
    planned.file = wiring.file;
    planned.refused = edit.refused;
    if (wiring.kind == Integration::Kind::plugin) {
        const PluginFile existing = pluginFrom(wiring.file, read);
        planned.before = existing.text ? std::optional(existing.text->toUtf8()) : std::nullopt;
        planned.after = AgentPlugins::source(kind, bridgeLinkPath()).value_or(QString()).toUtf8();
        planned.changes = edit.changes;
        return planned;
    }
    if (read.ok()) {
        planned.before = read.bytes;
    }
    if (planned.refused) {
        return planned;
    }
    planned.changes = edit.changes;
    planned.after = planned.changes ? edit.bytes : planned.before.value_or(QByteArray());
    return planned;
}

QStringList installedEvents(AgentKind kind) {
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::plugin) {
        return {};
    }
    const ConfigFile config = readConfig(wiring.file);
    const QJsonObject hooks = hooksOf(config.object);
    QStringList found;
    for (const QString& event : wiring.events) {
        const auto list = objectList(hooks.value(event));
        if (list && std::any_of(list->begin(), list->end(),
                                [](const QJsonValue& entry) { return containsMarker(entry.toObject()); })) {
            found.append(event);
        }
    }
    return found;
}

bool hasPluginFile(AgentKind kind) {
    return readPlugin(integration(kind).file).text.has_value();
}

void publish(const FileChange& change, UserDefaults& defaults) {
    if (change.staleCodexTrust) {
        defaults.set(staleCodexTrustHashesKey, *change.staleCodexTrust);
    }
}

HookResult install(AgentKind kind, UserDefaults& defaults) {
    const FileChange change = installFile(kind);
    publish(change, defaults);
    return change.result;
}

HookResult uninstall(AgentKind kind) {
    const Integration wiring = integration(kind);
    const FileEdit edit = uninstallEdit(kind, wiring, readRegularFile(wiring.file));
    if (edit.refused) {
        return edit.refused;
    }
    return apply(edit, wiring.file);
}

HookResult problem(AgentKind kind) {
    const Integration wiring = integration(kind);
    if (wiring.kind == Integration::Kind::plugin) {
        return readPlugin(wiring.file).refused;
    }
    return refusal(wiring, readConfig(wiring.file));
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
        return readPlugin(wiring.file).text.has_value();
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

HookResult installPlugin(AgentKind kind, const QString& path) {
    Integration wiring = integration(kind);
    if (wiring.kind != Integration::Kind::plugin) {
        return std::nullopt;
    }
    wiring.file = path;
    const FileEdit edit = installEdit(kind, wiring, readRegularFile(path), bridgeLinkPath());
    if (edit.refused) {
        return edit.refused;
    }
    return apply(edit, path);
}

QString bridgeLinkPath() {
    return BridgeProtocol::supportDirectory() + QStringLiteral("/bin/mirrowisp-bridge");
}

QString backupsDirectory() {
    return BridgeProtocol::supportDirectory() + QStringLiteral("/backups");
}

} // namespace mirrowisp::HookInstaller
