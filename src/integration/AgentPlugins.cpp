#include "integration/AgentPlugins.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace mirrowisp::AgentPlugins {

namespace {

// The plugins carry no type annotations: both agents load plain TypeScript without checking types, and
// the text stays valid JavaScript, which keeps it checkable with nothing but node.

const char* const ampHead =
    R"ts(// Mirrowisp: shows this agent's sessions in your Mac's notch. Managed by Mirrowisp (mirrowisp-bridge); edits are replaced.
import { spawn } from "node:child_process"

)ts";

const char* const ampTail = R"ts(

// Amp's tool names, in the words the app knows from the other agents.
const TOOL_NAMES = {
  Bash: "Bash",
  Read: "Read",
  create_file: "Write",
  edit_file: "Edit",
  Grep: "Grep",
  glob: "Glob",
  read_web_page: "WebFetch",
  web_search: "WebSearch",
  Task: "Task",
  todo_write: "TodoWrite",
}

function toolName(name) {
  const raw = typeof name === "string" ? name : ""
  return Object.prototype.hasOwnProperty.call(TOOL_NAMES, raw) ? TOOL_NAMES[raw] : raw
}

function toolInput(input) {
  const copy = input && typeof input === "object" && !Array.isArray(input) ? { ...input } : {}
  if (copy.file_path === undefined && copy.path !== undefined) copy.file_path = copy.path
  if (copy.command === undefined && copy.cmd !== undefined) copy.command = copy.cmd
  return copy
}

function text(message) {
  if (typeof message === "string") return message
  if (Array.isArray(message)) return message.map(text).join(" ").trim()
  if (message && typeof message === "object") {
    if (message.content !== undefined) return text(message.content)
    if (message.text !== undefined) return text(message.text)
  }
  return ""
}

// One way only: Amp never waits for the app, and nothing that goes wrong here reaches Amp.
function send(payload) {
  try {
    const child = spawn(BRIDGE, ["--agent", "amp"], { stdio: ["pipe", "ignore", "ignore"] })
    child.on("error", () => {})
    child.stdin.on("error", () => {})
    child.stdin.end(JSON.stringify(payload))
  } catch {}
}

export default function (amp) {
  // Threads running in the cloud or on the web have no Mirrowisp to talk to.
  if (amp?.system?.executor?.kind === "remote") return
  const cwd = process.cwd()
  const event = (e, name) => ({ hook_event_name: name, session_id: e?.thread?.id ?? "amp", cwd })

  amp.on("session.start", (e) => {
    send(event(e, "SessionStart"))
  })
  amp.on("agent.start", (e) => {
    send({ ...event(e, "UserPromptSubmit"), prompt: text(e?.message) })
  })
  amp.on("tool.call", (e) => {
    send({ ...event(e, "PreToolUse"), tool_name: toolName(e?.tool), tool_input: toolInput(e?.input) })
  })
  amp.on("tool.result", (e) => {
    send({ ...event(e, "PostToolUse"), tool_name: toolName(e?.tool) })
  })
  amp.on("agent.end", (e) => {
    const name = e?.status === "error" ? "StopFailure" : "Stop"
    send({ ...event(e, name), last_assistant_message: text(e?.message) })
  })
}
)ts";

const char* const openCodeHead =
    R"ts(// Mirrowisp: shows OpenCode's sessions in your Mac's notch and answers its permission requests and questions there. Managed by Mirrowisp (mirrowisp-bridge); edits are replaced.

)ts";

const char* const openCodeTail = R"ts(

// OpenCode's tool names, in the words the app knows from the other agents.
const TOOL_NAMES = {
  bash: "Bash",
  read: "Read",
  write: "Write",
  edit: "Edit",
  multiedit: "MultiEdit",
  patch: "apply_patch",
  glob: "Glob",
  grep: "Grep",
  list: "LS",
  webfetch: "WebFetch",
  websearch: "WebSearch",
  task: "Task",
  todowrite: "TodoWrite",
  todoread: "TodoRead",
  question: "AskUserQuestion",
}

// OpenCode takes every export for a plugin function, so the helpers stay private to the module.
function toolName(name) {
  const raw = typeof name === "string" ? name : ""
  return Object.prototype.hasOwnProperty.call(TOOL_NAMES, raw) ? TOOL_NAMES[raw] : raw
}

function toolInput(args) {
  const copy = args && typeof args === "object" && !Array.isArray(args) ? { ...args } : {}
  if (copy.filePath !== undefined) copy.file_path = copy.filePath
  if (copy.oldString !== undefined) copy.old_string = copy.oldString
  if (copy.newString !== undefined) copy.new_string = copy.newString
  return copy
}

// Runs the bridge with the event on its standard input and answers its parsed reply: null for no
// reply or any error. `track` gets the process so that an answer given in OpenCode can withdraw it.
async function send(payload, track) {
  try {
    const proc = Bun.spawn([BRIDGE, "--agent", "opencode"], { stdin: "pipe", stdout: "pipe", stderr: "ignore" })
    if (track) track(proc)
    try {
      proc.stdin.write(JSON.stringify(payload))
      proc.stdin.end()
    } catch {}
    const out = (await new Response(proc.stdout).text()).trim()
    await proc.exited
    return out ? JSON.parse(out) : null
  } catch {
    return null
  }
}

export const Mirrowisp = async ({ client, directory }) => {
  const children = new Set()
  const waiting = new Map()
  const cwd = directory ?? process.cwd()
  const event = (sessionID, name) => ({ hook_event_name: name, session_id: sessionID, cwd })
  const ignored = (sessionID) => children.has(sessionID)

  const post = async (url, body) => {
    try {
      await client._client.post({ url, body, headers: { "Content-Type": "application/json" } })
    } catch {}
  }

  const ask = async (id, payload) => {
    try {
      return await send(payload, (proc) => waiting.set(id, proc))
    } finally {
      waiting.delete(id)
    }
  }

  // Answered in OpenCode itself: killing the waiting bridge withdraws the card in the notch.
  const withdraw = (id) => {
    const proc = waiting.get(id)
    if (!proc) return
    waiting.delete(id)
    try {
      proc.kill()
    } catch {}
  }

  const permission = async (p) => {
    const meta = p.metadata && typeof p.metadata === "object" ? p.metadata : {}
    const patterns = Array.isArray(p.patterns) ? p.patterns : []
    const input = { ...meta, patterns }
    if (p.permission === "bash") input.command = meta.command ?? patterns.join(" ")
    if (meta.filepath !== undefined) input.file_path = meta.filepath
    if (p.permission === "webfetch") input.url = meta.url ?? patterns[0]
    const payload = { ...event(p.sessionID, "PermissionRequest"), tool_name: toolName(p.permission), tool_input: input }
    if (Array.isArray(p.always) && p.always.length > 0) payload.permission_suggestions = [{ type: "always" }]
    const reply = await ask(p.id, payload)
    const d = reply?.hookSpecificOutput?.decision
    // No decision: OpenCode's own prompt decides.
    if (!d) return
    const allowed = d.behavior === "allow"
    const body = { reply: allowed ? (d.updatedPermissions ? "always" : "once") : "reject" }
    if (!allowed && d.message) body.message = d.message
    await post(`/permission/${p.id}/reply`, body)
  }

  const question = async (p) => {
    const questions = (Array.isArray(p.questions) ? p.questions : []).map((q) => ({
      question: q?.question,
      header: q?.header,
      multiSelect: q?.multiple === true,
      options: (Array.isArray(q?.options) ? q.options : []).map((o) => ({ label: o?.label, description: o?.description })),
    }))
    const payload = { ...event(p.sessionID, "PermissionRequest"), tool_name: "AskUserQuestion", tool_input: { questions } }
    const reply = await ask(p.id, payload)
    const answers = reply?.hookSpecificOutput?.decision?.updatedInput?.answers
    if (!answers || typeof answers !== "object") return
    // The notch joins multiple choices with ", "; a single answer may contain commas itself.
    const lists = questions.map((q) => {
      const value = typeof answers[q.question] === "string" ? answers[q.question] : ""
      if (q.multiSelect) return value.split(", ").filter((part) => part.length > 0)
      return value ? [value] : []
    })
    await post(`/question/${p.id}/reply`, { answers: lists })
  }

  return {
    event: async ({ event: e }) => {
      const p = e?.properties ?? {}
      switch (e?.type) {
        case "session.created":
          if (p.info?.parentID) {
            children.add(p.info.id)
            return
          }
          send({ ...event(p.info?.id, "SessionStart"), cwd: p.info?.directory ?? cwd })
          return
        case "session.status":
          if (p.status?.type === "idle" && !ignored(p.sessionID)) send(event(p.sessionID, "Stop"))
          return
        case "session.error":
          if (!ignored(p.sessionID)) send(event(p.sessionID, "StopFailure"))
          return
        case "session.deleted":
          if (ignored(p.info?.id)) {
            children.delete(p.info.id)
            return
          }
          send(event(p.info?.id, "SessionEnd"))
          return
        case "permission.asked":
          if (!ignored(p.sessionID)) permission(p)
          return
        case "question.asked":
          if (!ignored(p.sessionID)) question(p)
          return
        case "permission.replied":
        case "question.replied":
        case "question.rejected":
          withdraw(p.requestID ?? p.permissionID ?? p.id)
          return
      }
    },
    "chat.message": async (input, output) => {
      const sessionID = input?.sessionID ?? output?.message?.sessionID
      if (ignored(sessionID)) return
      const parts = Array.isArray(output?.parts) ? output.parts : []
      const prompt = parts
        .filter((part) => part?.type === "text" && !part.synthetic)
        .map((part) => part.text ?? "")
        .join("\n")
      if (!prompt) return
      send({ ...event(sessionID, "UserPromptSubmit"), prompt })
    },
    "tool.execute.before": async (input, output) => {
      if (ignored(input?.sessionID)) return
      send({ ...event(input?.sessionID, "PreToolUse"), tool_name: toolName(input?.tool), tool_input: toolInput(output?.args) })
    },
    "tool.execute.after": async (input) => {
      if (ignored(input?.sessionID)) return
      send({ ...event(input?.sessionID, "PostToolUse"), tool_name: toolName(input?.tool) })
    },
  }
}
)ts";

// A JSON string literal is a valid JavaScript one: quotes, backslashes and control characters in the
// path come out escaped.
QString jsString(const QString& text) {
    const QByteArray list = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(list.mid(1, list.size() - 2));
}

QString assemble(const char* head, const QString& bridgePath, const char* tail) {
    return QString::fromUtf8(head) + QStringLiteral("const BRIDGE = ") + jsString(bridgePath) +
           QString::fromUtf8(tail);
}

} // namespace

std::optional<QString> source(AgentKind kind, const QString& bridgePath) {
    switch (kind) {
    case AgentKind::amp:
        return assemble(ampHead, bridgePath, ampTail);
    case AgentKind::opencode:
        return assemble(openCodeHead, bridgePath, openCodeTail);
    default:
        return std::nullopt;
    }
}

} // namespace mirrowisp::AgentPlugins
