#include "integration/AgentPlugins.h"

#include "integration/HookInstaller.h"
#include "integration/HookTestSupport.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

using namespace mirrowisp;
using namespace Qt::StringLiterals;
using mirrowisp::test::HookTest;

namespace {

ProcessRun runNode(const QStringList& arguments, const QString& directory,
                   const QStringList& environment = {}) {
    return test::runProcess(QStandardPaths::findExecutable(u"node"_s), arguments, {}, directory, environment);
}

// Stands in for the bridge: logs "<arguments>\t<stdin>" and answers requests by tool.
const char* const standInBridge = R"(#!/bin/sh
input=$(cat)
printf '%s\t%s\n' "$*" "$input" >> "$MW_LOG"
case "$input" in
  *HANG*) exec tail -f /dev/null ;;
  *AskUserQuestion*) printf '%s' '{"hookSpecificOutput":{"decision":{"behavior":"allow","updatedInput":{"answers":{"Pick?":"A, B, ","One?":"x, y"}}}}}' ;;
  *'"tool_name":"Bash"'*) printf '%s' '{"hookSpecificOutput":{"decision":{"behavior":"allow","updatedPermissions":[{"type":"always"}]}}}' ;;
  *'"tool_name":"WebFetch"'*) printf '%s' '{"hookSpecificOutput":{"decision":{"behavior":"deny","message":"not that site"}}}' ;;
  *'"tool_name":"Write"'*) printf '%s' '{"hookSpecificOutput":{"decision":{"behavior":"allow"}}}' ;;
esac
)";

// Loads the Amp plugin as Amp would and feeds it one event of each kind.
const char* const ampHarness = R"(
const handlers = {}
const plugin = (await import(process.argv[2])).default
plugin({ system: { executor: { kind: "remote" } }, on: () => { throw new Error("a remote thread subscribed") } })
plugin({ on: (name, handler) => { handlers[name] = handler } })
const thread = { id: "T-1" }
handlers["session.start"]({ thread })
handlers["agent.start"]({ thread, message: [{ type: "text", text: " fix it " }, { text: "now" }] })
handlers["tool.call"]({ thread, tool: "edit_file", input: { path: "/a.txt", old_str: "x" } })
handlers["tool.call"]({ thread, tool: "Bash", input: { cmd: "ls", command: "kept" } })
handlers["tool.call"]({ tool: "mystery_tool", input: null })
handlers["tool.result"]({ thread, tool: "read_web_page" })
handlers["agent.end"]({ thread, status: "error", message: { content: "boom" } })
handlers["agent.end"]({ thread, status: "done", message: "all done" })
)";

// Loads the OpenCode plugin with a stand-in for Bun's spawn and for the client, and plays a session,
// a sub-session, two permissions, a question and a permission answered in OpenCode itself.
const char* const openCodeHarness = R"(
import { spawn } from "node:child_process"
import { Readable } from "node:stream"
const alive = new Set()
let spawns = 0
globalThis.Bun = {
  spawn(argv) {
    spawns++
    const child = spawn(argv[0], argv.slice(1), { stdio: ["pipe", "pipe", "ignore"] })
    alive.add(child)
    child.on("error", () => {})
    child.stdin.on("error", () => {})
    const exited = new Promise((resolve) => child.on("close", (code) => { alive.delete(child); resolve(code) }))
    return {
      stdin: { write: (s) => child.stdin.write(s), end: () => child.stdin.end() },
      stdout: Readable.toWeb(child.stdout),
      exited,
      kill: () => child.kill(),
    }
  },
}
const posts = []
const client = { _client: { post: async (request) => { posts.push(request) } } }
const { Mirrowisp } = await import(process.argv[2])
const hooks = await Mirrowisp({ client, directory: "/work/project" })
const fire = (type, properties) => hooks.event({ event: { type, properties } })

await fire("session.created", { info: { id: "child", parentID: "s1" } })
await hooks["tool.execute.before"]({ tool: "bash", sessionID: "child" }, { args: { command: "ls" } })
await hooks["chat.message"]({ sessionID: "child" }, { parts: [{ type: "text", text: "hi" }] })
await fire("session.status", { sessionID: "child", status: { type: "idle" } })
await fire("permission.asked", { id: "pc", sessionID: "child", permission: "bash", patterns: ["ls"] })
await fire("session.deleted", { info: { id: "child", parentID: "s1" } })
const childSpawns = spawns

await fire("session.created", { info: { id: "s1", directory: "/tmp/proj" } })
await hooks["chat.message"]({ sessionID: "s1" }, { parts: [
  { type: "text", text: "hello" }, { type: "text", text: "hidden", synthetic: true }, { type: "file" }, { type: "text", text: "world" }] })
await hooks["chat.message"]({ sessionID: "s1" }, { parts: [{ type: "text", text: "only", synthetic: true }] })
await hooks["tool.execute.before"]({ tool: "edit", sessionID: "s1" }, { args: { filePath: "/a", oldString: "x", newString: "y" } })
await hooks["tool.execute.after"]({ tool: "patch", sessionID: "s1" }, {})
await fire("permission.asked", { id: "p1", sessionID: "s1", permission: "bash", patterns: ["git status", "git log"], metadata: {}, always: ["git *"] })
await fire("permission.asked", { id: "p2", sessionID: "s1", permission: "webfetch", patterns: ["https://example.com"], metadata: {}, always: [] })
await fire("permission.asked", { id: "p4", sessionID: "s1", permission: "write", patterns: [], metadata: { filepath: "/b" } })
await fire("question.asked", { id: "q1", sessionID: "s1", questions: [
  { question: "Pick?", header: "Choose", multiple: true, options: [{ label: "A", description: "first" }, { label: "B" }] },
  { question: "One?", header: "Single", options: [{ label: "x, y" }] }] })
await fire("permission.asked", { id: "p3", sessionID: "s1", permission: "read", patterns: [], metadata: { filepath: "/HANG" } })
await fire("permission.replied", { sessionID: "s1", requestID: "p3", reply: "once" })
await fire("session.status", { sessionID: "s1", status: { type: "busy" } })
await fire("session.status", { sessionID: "s1", status: { type: "idle" } })
await fire("session.error", { sessionID: "s1" })
await fire("session.deleted", { info: { id: "s1" } })

// Every bridge run must end (the withdrawn one by being killed) and the three answers be posted.
const deadline = Date.now() + 20000
while ((alive.size > 0 || posts.length < 4) && Date.now() < deadline) {
  await new Promise((resolve) => setTimeout(resolve, 10))
}
await new Promise((resolve) => setTimeout(resolve, 50))
console.log(JSON.stringify({ childSpawns, spawns, alive: alive.size, posts }))
)";

QJsonObject jsonObject(const QByteArray& text) {
    return QJsonDocument::fromJson(text).object();
}

// The events the stand-in received, by hook event name in arrival order.
QList<QPair<QString, QJsonObject>> logged(const QString& log) {
    QList<QPair<QString, QJsonObject>> events;
    const QList<QByteArray> lines = readFile(log).split('\n');
    for (const QByteArray& line : lines) {
        if (!line.isEmpty()) {
            const qsizetype tab = line.indexOf('\t');
            events.append({QString::fromUtf8(line.left(tab)), jsonObject(line.mid(tab + 1))});
        }
    }
    return events;
}

QList<QJsonObject> named(const QList<QPair<QString, QJsonObject>>& events, const char* name) {
    QList<QJsonObject> found;
    for (const auto& [arguments, event] : events) {
        if (event.value(u"hook_event_name"_s).toString() == QLatin1String(name)) {
            found.append(event);
        }
    }
    return found;
}

class PluginTest : public HookTest {
protected:
    void SetUp() override {
        HookTest::SetUp();
        node_ = QStandardPaths::findExecutable(u"node"_s);
    }
    // The plugin as a module node can load, pointing at the stand-in bridge.
    QString writeModule(AgentKind kind) {
        bridge_ = home() + u"/tools/bridge stand-in"_s;
        writeFile(bridge_, standInBridge, true);
        const QString module = home() + u"/plugin-"_s + AgentKinds::rawValue(kind) + u".mjs"_s;
        writeFile(module, AgentPlugins::source(kind, bridge_)->toUtf8());
        return module;
    }
    QString node_;
    QString bridge_;
};

} // namespace

TEST_F(PluginTest, OnlyOpenCodeAndAmpHavePluginsMarkedAndNamingTheBridgeInOneLiteral) {
    const QString odd = u"/home/o'neil/\"quoted\" \\dir\n/mirrowisp-bridge"_s;
    for (const AgentKind kind : AgentKinds::all) {
        SCOPED_TRACE(AgentKinds::rawValue(kind).toStdString());
        const auto source = AgentPlugins::source(kind, odd);
        ASSERT_EQ(source.has_value(), kind == AgentKind::opencode || kind == AgentKind::amp);
        if (!source) {
            continue;
        }
        // Marked even when the tool lives at a path that doesn't name it.
        EXPECT_TRUE(AgentPlugins::source(kind, u"/opt/tool"_s)->contains(HookInstaller::marker));
        EXPECT_TRUE(source->contains(
            u"const BRIDGE = \"/home/o'neil/\\\"quoted\\\" \\\\dir\\n/mirrowisp-bridge\"\n"_s));
        if (node_.isEmpty()) {
            continue;
        }
        // node reads the literal back to the very path.
        const QString module = home() + u"/quoted.mjs"_s;
        writeFile(module, source->toUtf8());
        const ProcessRun run = runNode(
            {u"--input-type=module"_s, u"-e"_s,
             QStringLiteral("const s = (await import('node:fs')).readFileSync(process.argv[1], 'utf8');"
                            "const m = s.match(/const BRIDGE = (.*)\\n/); console.log(JSON.parse(m[1]))"),
             module},
            home());
        EXPECT_EQ(run.exitCode, 0) << run.err.constData();
        EXPECT_EQ(QString::fromUtf8(run.out), odd + QLatin1Char('\n'));
    }
}

// The harnesses load each plugin as node would, so a plugin that is no valid module fails here too.
TEST_F(PluginTest, TheAmpPluginSendsClaudeShapedEventsOneWay) {
    if (node_.isEmpty()) {
        GTEST_SKIP() << "node is not installed";
    }
    const QString module = writeModule(AgentKind::amp);
    const QString harness = home() + u"/amp-harness.mjs"_s;
    writeFile(harness, ampHarness);
    const QString log = home() + u"/amp.log"_s;
    const ProcessRun run = runNode({harness, module}, home(), {u"MW_LOG="_s + log});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();

    const auto events = logged(log);
    ASSERT_EQ(events.size(), 8);
    for (const auto& [arguments, event] : events) {
        EXPECT_EQ(arguments, u"--agent amp"_s);
        EXPECT_EQ(event.value(u"cwd"_s).toString(), home());
    }
    const auto expect = [&](const char* name, const char* json) {
        const QList<QJsonObject> found = named(events, name);
        QJsonObject want = jsonObject(QByteArray(json));
        want.insert(u"hook_event_name"_s, QString::fromLatin1(name));
        want.insert(u"cwd"_s, home());
        EXPECT_TRUE(found.contains(want)) << name << ": " << QJsonDocument(want).toJson().constData();
    };
    expect("SessionStart", R"({"session_id": "T-1"})");
    expect("UserPromptSubmit", R"({"session_id": "T-1", "prompt": "fix it  now"})");
    expect("PreToolUse", R"({"session_id": "T-1", "tool_name": "Edit",
                             "tool_input": {"path": "/a.txt", "file_path": "/a.txt", "old_str": "x"}})");
    expect("PreToolUse",
           R"({"session_id": "T-1", "tool_name": "Bash", "tool_input": {"cmd": "ls", "command": "kept"}})");
    expect("PreToolUse", R"({"session_id": "amp", "tool_name": "mystery_tool", "tool_input": {}})");
    expect("PostToolUse", R"({"session_id": "T-1", "tool_name": "WebFetch"})");
    expect("StopFailure", R"({"session_id": "T-1", "last_assistant_message": "boom"})");
    expect("Stop", R"({"session_id": "T-1", "last_assistant_message": "all done"})");
}

TEST_F(PluginTest, TheOpenCodePluginAsksAnswersAndWithdraws) {
    if (node_.isEmpty()) {
        GTEST_SKIP() << "node is not installed";
    }
    const QString module = writeModule(AgentKind::opencode);
    const QString harness = home() + u"/opencode-harness.mjs"_s;
    writeFile(harness, openCodeHarness);
    const QString log = home() + u"/opencode.log"_s;
    const ProcessRun run = runNode({harness, module}, home(), {u"MW_LOG="_s + log});
    ASSERT_EQ(run.exitCode, 0) << run.err.constData();
    const QJsonObject result = jsonObject(run.out.trimmed());

    // A sub-session sends nothing at all.
    EXPECT_EQ(result.value(u"childSpawns"_s).toInt(), 0);
    // The withdrawn request's bridge was killed, so nothing is left running.
    EXPECT_EQ(result.value(u"alive"_s).toInt(), 0);

    const auto events = logged(log);
    for (const auto& [arguments, event] : events) {
        EXPECT_EQ(arguments, u"--agent opencode"_s);
        EXPECT_EQ(event.value(u"session_id"_s).toString(), u"s1"_s);
    }
    // Each of these once, with the field that shows it was translated (none: only counted).
    const struct {
        const char* name;
        const char* field;
        QJsonValue value;
    } once[] = {{"SessionStart", "cwd", u"/tmp/proj"_s},
                {"UserPromptSubmit", "prompt", u"hello\nworld"_s},
                {"PreToolUse", "tool_input",
                 jsonObject(R"({"filePath": "/a", "file_path": "/a", "oldString": "x", "old_string": "x",
                                "newString": "y", "new_string": "y"})")},
                {"PreToolUse", "tool_name", u"Edit"_s},
                {"PostToolUse", "tool_name", u"apply_patch"_s},
                {"Stop", nullptr, {}},
                {"StopFailure", nullptr, {}},
                {"SessionEnd", nullptr, {}}};
    for (const auto& c : once) {
        SCOPED_TRACE(c.name);
        const QList<QJsonObject> found = named(events, c.name);
        ASSERT_EQ(found.size(), 1);
        if (c.field) {
            EXPECT_EQ(found.first().value(QString::fromLatin1(c.field)), c.value);
        }
    }

    QJsonObject bash, question;
    for (const QJsonObject& event : named(events, "PermissionRequest")) {
        if (event.value(u"tool_name"_s) == u"Bash"_s) {
            bash = event;
        } else if (event.value(u"tool_name"_s) == u"AskUserQuestion"_s) {
            question = event;
        }
    }
    EXPECT_EQ(bash.value(u"tool_input"_s).toObject(),
              jsonObject(R"({"patterns": ["git status", "git log"], "command": "git status git log"})"));
    EXPECT_EQ(bash.value(u"permission_suggestions"_s).toArray(),
              QJsonArray{jsonObject(R"({"type": "always"})")});
    EXPECT_EQ(question.value(u"tool_input"_s).toObject(), jsonObject(R"({"questions": [
        {"question": "Pick?", "header": "Choose", "multiSelect": true,
         "options": [{"label": "A", "description": "first"}, {"label": "B"}]},
        {"question": "One?", "header": "Single", "multiSelect": false, "options": [{"label": "x, y"}]}]})"));

    QMap<QString, QJsonObject> posts;
    for (const QJsonValue& post : result.value(u"posts"_s).toArray()) {
        const QJsonObject request = post.toObject();
        EXPECT_EQ(request.value(u"headers"_s).toObject(),
                  jsonObject(R"({"Content-Type": "application/json"})"));
        posts.insert(request.value(u"url"_s).toString(), request.value(u"body"_s).toObject());
    }
    EXPECT_EQ(posts.keys(), (QStringList{u"/permission/p1/reply"_s, u"/permission/p2/reply"_s,
                                         u"/permission/p4/reply"_s, u"/question/q1/reply"_s}));
    EXPECT_EQ(posts.value(u"/permission/p1/reply"_s), jsonObject(R"({"reply": "always"})"));
    EXPECT_EQ(posts.value(u"/permission/p2/reply"_s),
              jsonObject(R"({"reply": "reject", "message": "not that site"})"));
    EXPECT_EQ(posts.value(u"/permission/p4/reply"_s), jsonObject(R"({"reply": "once"})"));
    EXPECT_EQ(posts.value(u"/question/q1/reply"_s), jsonObject(R"({"answers": [["A", "B"], ["x, y"]]})"));
}

// ---- Installing plugins ----

TEST_F(HookTest, APluginIsWrittenAsItsSourceAndReplacedOnlyIfOurs) {
    const QString path = HookInstaller::integration(AgentKind::opencode).file;
    ASSERT_FALSE(HookInstaller::install(AgentKind::opencode, defaults()));
    const QByteArray source =
        AgentPlugins::source(AgentKind::opencode, HookInstaller::bridgeLinkPath())->toUtf8();
    EXPECT_EQ(readFile(path), source);
    EXPECT_TRUE(HookInstaller::isInstalled(AgentKind::opencode));
    EXPECT_EQ(HookInstaller::setup(AgentKind::opencode, std::nullopt, defaults(), {}),
              AgentSetup::connected(std::nullopt));

    // An older plugin of ours is brought up to date, without a backup.
    writeFile(path, "// old mirrowisp-bridge plugin\n");
    ASSERT_FALSE(HookInstaller::install(AgentKind::opencode, defaults()));
    EXPECT_EQ(readFile(path), source);
    EXPECT_TRUE(backups().isEmpty());

    ASSERT_FALSE(HookInstaller::uninstall(AgentKind::opencode));
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_FALSE(HookInstaller::isInstalled(AgentKind::opencode));
    EXPECT_FALSE(HookInstaller::uninstall(AgentKind::opencode));
}

TEST_F(HookTest, AForeignPluginFileIsNeitherReplacedNorDeleted) {
    const QString path = HookInstaller::integration(AgentKind::amp).file;
    for (const QByteArray& foreign :
         {QByteArray("export default function (amp) {}\n"), QByteArray("\xff\xfe binary")}) {
        writeFile(path, foreign);
        EXPECT_EQ(HookInstaller::install(AgentKind::amp, defaults()), HookError::unreadable(path));
        EXPECT_FALSE(HookInstaller::uninstall(AgentKind::amp));
        EXPECT_FALSE(HookInstaller::isInstalled(AgentKind::amp));
        EXPECT_EQ(HookInstaller::setup(AgentKind::amp, std::nullopt, defaults(), {}),
                  AgentSetup::unreadableConfig(path));
        EXPECT_EQ(readFile(path), foreign);
    }
}
