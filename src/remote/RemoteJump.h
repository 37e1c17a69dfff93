#pragma once

#include "jump/TerminalJumper.h"
#include "remote/RemoteHost.h"

#include <QStringList>
#include <optional>

namespace mirrowisp {

class AgentSession;

// The jump to an agent on a remote host: first the local terminal that holds an `ssh` client to
// that host (found by its command line, then reached with the local drivers as if it were the
// agent), then the agent's tmux pane on the host, through `ssh HOST tmux …`.
namespace RemoteJump {

// Whether an `ssh` command line connects to `host`: its destination, or its host name alone or
// after any user, appears as a word.
bool namesHost(const QStringList& argv, const RemoteHost& host);

// The most recent local `ssh` client to `host`, leaving out the children of `skipParent` (the
// app's own forwarding connections).
std::optional<qint32> findClient(const RemoteHost& host, qint32 skipParent,
                                 const QString& procRoot = QStringLiteral("/proc"));

// A local jump target for the terminal that runs the client `pid`: its terminal, its environment.
TerminalJumper::Target clientTarget(qint32 pid, const TerminalJumper::Target& remote,
                                    const QString& procRoot = QStringLiteral("/proc"));

// The `ssh` arguments that select the session's tmux pane on the host; nothing without a pane.
// Every value from the session is quoted for the remote shell.
std::optional<QStringList> tmuxArguments(const RemoteHost& host, const ProcessContext& context);

// The whole jump where it is called (blocks on tools: never on the main thread). "remote-" and
// the local driver, "remote-pane" when only the pane was reached, or what activation gave.
QString jumpAndWait(const TerminalJumper::Target& target, const RemoteHost& host,
                    const TerminalDrivers::Tools& tools, const TerminalJumper::Activate& activate);

// With this desktop's backends. Called on the main thread; returns at once, `done` comes back on it.
void jump(const AgentSession& session, const RemoteHost& host, TerminalJumper::Done done = {});

} // namespace RemoteJump

} // namespace mirrowisp
