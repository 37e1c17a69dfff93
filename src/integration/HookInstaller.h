#pragma once

#include "agents/CodexHookStatus.h"
#include "base/AgentKind.h"
#include "base/Clock.h"
#include "base/RegularFile.h"
#include "integration/AgentSetup.h"
#include "integration/HookError.h"
#include "integration/Locations.h"

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1String>
#include <QMap>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace mirrowisp {

class UserDefaults;

// Points each agent's own hook or plugin mechanism at the bridge tool, and takes that out again.
// These are other programs' files: a foreign entry always survives, a file we cannot parse is never
// written, every change to a shared file is preceded by a backup, and our own entries are told apart
// by one substring of their command text and nothing else, so moving the support folder changes
// nothing about recognition.
//
// Everything runs synchronously where it is called; callers keep it off the main thread where the file
// work matters and never run two operations on one file at once.
namespace HookInstaller {

inline constexpr QLatin1String marker{"mirrowisp-bridge"};

// How one agent is wired.
struct Integration {
    enum class Kind {
        claudeHooks,  // hooks -> event -> [{"hooks": [hook]}]
        cursorHooks,  // hooks -> event -> [{"command", "timeout"}], plus "version"
        copilotHooks, // hooks -> event -> [{"type", "bash", "timeoutSec"}], plus "version"
        plugin,       // a TypeScript file from AgentPlugins
    };
    Kind kind = Kind::claudeHooks;
    QString file;
    QStringList events; // in the order entries are added; empty for plugins
};

// The wiring of each agent, with paths from AgentEnvironment::current().
Integration integration(AgentKind kind);
// The same with the paths of `locations`, such as another machine's.
Integration integration(AgentKind kind, const Locations& locations);

// How long the agent's hook waits for a permission decision, where our hooks take them.
inline constexpr double decisionTimeoutSeconds = 86400;
std::optional<double> decisionTimeout(AgentKind kind);

// A JSON settings file as read: missing (or blank), a parsed object, or unreadable.
struct ConfigFile {
    enum class State { missing, parsed, unreadable };
    State state = State::missing;
    QJsonObject object; // parsed only
    QString reason;     // unreadable only, when there is more to say than "not JSON"
};

// Strict JSON only: comments, trailing commas, a top-level value that is not an object, bytes that
// are not UTF-8 or a file that can't be read make it unreadable, and so does anything but a regular
// file within the size limit (a FIFO, a device, a file over 16 MB). A blank file counts as missing.
ConfigFile readConfig(const QString& path);
// The same rules over a file already read, here or elsewhere.
ConfigFile parseConfig(const FileRead& read);

// The shell command an agent runs for a hook: the tool in the support folder, or a quiet success when
// it isn't there, so an app that is gone never breaks an agent.
QString command(AgentKind kind, bool statusLine);
// The same naming the tool at `toolPath`, such as the copy on another machine.
QString command(AgentKind kind, bool statusLine, const QString& toolPath);
// The text an agent shows while our hook runs, if any.
std::optional<QString> statusMessage(const QString& event, AgentKind agent);

// `hooks` without our entries: whole entries whose "command" or "bash" holds the marker, and our hooks
// inside a user's group. Values that are not lists of objects are kept as they are; a list left empty
// drops its key.
QJsonObject stripOurs(const QJsonObject& hooks);
// Whether an entry is ours or holds one of our hooks (the same tests as stripOurs).
bool containsMarker(const QJsonObject& entry);
// Whether a value is an object whose "command" is a string holding the marker.
bool isOurs(const QJsonValue& value);

// The outcome of an install, for the main thread to publish.
struct FileChange {
    HookResult result;
    // Codex's trust records from before its hooks.json was rewritten: no trust in the new file.
    std::optional<QJsonObject> staleCodexTrust;
};

// Adds or refreshes the hooks. Nothing is written, and no backup is made, when the file already says
// what we would write. A file that can't be read, or that holds a value of a shape we don't manage
// under `hooks` or one of our events, is refused and left as it is. Touches files only, so it may run
// off the main thread.
[[nodiscard]] FileChange installFile(AgentKind kind);
// What installFile would write, without writing: the file's bytes now (none when missing) and after.
// `changes` is false when install would leave the file alone; `refused` when it would refuse it.
struct PlannedChange {
    QString file;
    std::optional<QByteArray> before;
    QByteArray after;
    bool changes = false;
    HookResult refused;
};
[[nodiscard]] PlannedChange plan(AgentKind kind);
// The events under which the agent's file holds one of our hooks, in the wiring's order; for a plugin,
// all of them when it is ours.
QStringList installedEvents(AgentKind kind);
// Whether our plugin file for the agent is there, of any version.
bool hasPluginFile(AgentKind kind);

// What an install or an uninstall does to one agent's file, worked out from its bytes as read (here or
// on another machine through ssh) and the tool path the hooks name. Nothing is touched: the caller
// applies it where the file lives, with a backup first when `backup` says so.
struct FileEdit {
    enum class Action { keep, write, remove };
    Action action = Action::keep;
    QByteArray bytes;     // write only
    bool changes = false; // whether the file's content changes (an uninstall may rewrite it as it is)
    bool backup = true;   // plugin files are ours alone and get none
    HookResult refused;
};
[[nodiscard]] FileEdit installEdit(AgentKind kind, const Integration& wiring, const FileRead& read,
                                   const QString& toolPath);
[[nodiscard]] FileEdit uninstallEdit(AgentKind kind, const Integration& wiring, const FileRead& read);

// Stores what the change means for the user defaults (Codex's stale trust). Main thread.
void publish(const FileChange& change, UserDefaults& defaults);
// installFile, then publish.
[[nodiscard]] HookResult install(AgentKind kind, UserDefaults& defaults);
// Removes our entries. A readable file is written, even with nothing to remove; refused like install.
[[nodiscard]] HookResult uninstall(AgentKind kind);
// Why install would refuse the agent's file as it is now, if it would.
[[nodiscard]] HookResult problem(AgentKind kind);
// Clears the user's "disconnected" mark, then installs.
[[nodiscard]] HookResult connect(AgentKind kind, UserDefaults& defaults);
// Uninstalls, then marks the agent as disconnected by the user; on an error the mark is not set.
[[nodiscard]] HookResult disconnect(AgentKind kind, UserDefaults& defaults);
bool isDisconnectedByUser(AgentKind kind, const UserDefaults& defaults);
// Whether our hook or plugin is in place (not whether every event is present).
bool isInstalled(AgentKind kind);

// The user-defaults key of the disconnected mark, such as "disconnected.claude".
QString disconnectedKey(AgentKind kind);

// Copies `path` into the backups folder as <folder>-<name>-<UTC stamp>, with the file's own mode, and
// keeps the 20 newest backups across all agents and the oldest of each file, which holds the user's
// original. Nothing to do when the file doesn't exist or is the same as its newest backup. The backups
// folder and the support folder above it are private (0700).
[[nodiscard]] HookResult backup(const QString& path);
[[nodiscard]] HookResult backup(const QString& path, const QDateTime& now);
// The name, within the backups folder, of a backup of `path` taken at `now` (before any suffix), and
// the part of it that names the file: <folder>-<name>.
QString backupName(const QString& path, const QDateTime& now);
QString backupStem(const QString& path);
inline constexpr int keptBackups = 20;
// A file in the backups folder, by name, and when it was written.
struct BackupEntry {
    QString name;
    QDateTime modified;
};
// The names the keeping rule above drops from a folder holding `entries`.
QStringList backupsToPrune(QList<BackupEntry> entries);

// Writes the plugin for OpenCode or Amp, refusing to replace a file of that name that isn't ours.
[[nodiscard]] HookResult installPlugin(AgentKind kind, const QString& path);

// <support>/bin/mirrowisp-bridge, the stable path every hook names.
QString bridgeLinkPath();
// <support>/backups.
QString backupsDirectory();
// The installed tool: beside the app's executable.
QString bundledBridgeTool();
// Points the stable link at the tool, replacing whatever else is there. Never fails loudly: without
// the tool the hooks stay inert through their executable test.
void refreshBridgeLink();
void refreshBridgeLink(const QString& toolPath);

// Codex's trust in one hook event, from its config.toml.
struct CodexTrust {
    std::optional<QString> hash;
    bool enabled = true;
    bool operator==(const CodexTrust&) const = default;
};

// "PreToolUse" -> "pre_tool_use": the event names Codex's trust keys use.
QString snakeCase(const QString& name);
// The trust records for our hooks.json, by snake-case event name; empty when config.toml is missing
// or isn't UTF-8 text.
QMap<QString, CodexTrust> codexTrustStates();
// Whether our hooks are in Codex's file, and Codex's trust records: the files behind its status.
struct CodexTrustReading {
    bool installed = false;
    QMap<QString, CodexTrust> states;
    bool operator==(const CodexTrustReading&) const = default;
};
// Reads both files; may run off the main thread.
CodexTrustReading readCodexTrust();
// Whether Codex runs the hooks we installed, from a reading and the stale hashes in the defaults.
CodexHookStatus codexHookStatus(const CodexTrustReading& reading, const UserDefaults& defaults);
// The same, reading the files now.
CodexHookStatus codexHookStatus(const UserDefaults& defaults);
// The hashes Codex trusts now: after we rewrite hooks.json they no longer mean trust.
QJsonObject codexTrustSnapshot();
inline constexpr QLatin1String staleCodexTrustHashesKey{"staleCodexTrustHashes"};

// Whether the agent is on this machine in any form; AgentEnvironment answers it in the app.
using AgentPresence = std::function<bool(AgentKind)>;

// One agent's state for the setup pages. `lastSeen` is when the agent last sent an event in this run.
AgentSetup setup(AgentKind kind, std::optional<Timestamp> lastSeen, const UserDefaults& defaults,
                 const AgentPresence& agentIsInstalled);

} // namespace HookInstaller
} // namespace mirrowisp
