#!/usr/bin/env python3
"""End to end with a real Claude Code CLI.

The pinned CLI runs interactively in a private tmux server against a loopback stand-in of its model
API, in a throwaway home. The app, started on a private session bus, installs its own hooks; the
stand-in model asks for one Bash command, the CLI asks for permission through those hooks, and the
answer given with `mirrowisp ctl allow|deny` decides whether the command runs. Everything the app
knows is read back with `mirrowisp ctl sessions`.

Usage: claude_code_e2e.py --app <mirrowisp> --bridge <mirrowisp-bridge> [--claude <claude>] [--keep]
"""

import argparse
import json
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
CLAUDE_FOLDER = "claude-code-2.1.197"
PRIVATE_BUS_MARK = "MIRROWISP_AGENT_E2E_PRIVATE_BUS"
OVERALL_SECONDS = 270  # below the ctest TIMEOUT of 300
WORKING = {"thinking", "runningTool", "compacting"}  # the busy statuses; the others are quiet
# Nothing of the real user's agent set-up, display or terminal multiplexer may leak in.
LEAKS = ("DISPLAY", "WAYLAND_DISPLAY", "TMUX", "TMUX_PANE", "CLAUDE_CONFIG_DIR", "ANTHROPIC_AUTH_TOKEN",
         "ANTHROPIC_MODEL", "CLAUDECODE", "CLAUDE_CODE_ENTRYPOINT")


class Failure(Exception):
    pass


def wait_for(what, condition, timeout, interval=0.1):
    """Polls condition until it gives a true value, which is returned; fails after timeout seconds."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise Failure("timed out after %gs waiting for %s" % (timeout, what))
        time.sleep(interval)


def check(condition, message):
    if not condition:
        raise Failure(message)


def check_exit(result, code, what):
    check(result.returncode == code, "%s exited %d, not %d: %s" % (what, result.returncode, code, result.stderr))


def read_text(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            return f.read()
    except OSError:
        return ""


def alive(pid):
    """True while the process runs; a zombie counts as gone."""
    try:
        with open("/proc/%d/stat" % pid, encoding="ascii", errors="replace") as f:
            return f.read().rsplit(")", 1)[1].split()[0] != "Z"
    except (OSError, IndexError):
        return False


def input_box(pane):
    """The text inside the CLI's input box (the lines between the last two horizontal rules), or "".

    While a permission dialog is up there is only one rule below the transcript, and no input box.
    """
    lines = pane.splitlines()
    rules = [i for i, line in enumerate(lines) if line.startswith("\u2500\u2500\u2500")]
    return "\n".join(lines[rules[-2] + 1 : rules[-1]]) if len(rules) >= 2 else ""


class Rig:
    """The processes of one test run, the throwaway folders they share, and the app's view through `ctl`."""

    def __init__(self, args):
        self.app, self.bridge, self.claude, self.keep = args.app, args.bridge, args.claude, args.keep
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="mirrowisp-agent-e2e-"))
        self.home = os.path.join(self.root, "home")
        self.work = os.path.join(self.root, "project")
        self.logs = os.path.join(self.root, "logs")
        self.support = os.path.join(self.home, ".mirrowisp")
        for folder in (self.work, self.logs, os.path.join(self.home, ".claude")):
            os.makedirs(folder)
        self.settings = os.path.join(self.home, ".claude", "settings.json")
        self.transcripts = os.path.join(self.home, ".claude", "projects")
        self.link = os.path.join(self.support, "bin", "mirrowisp-bridge")
        self.tmux_conf = os.path.join(self.root, "tmux.conf")
        with open(self.tmux_conf, "w", encoding="utf-8") as f:
            # A pane whose CLI died stays readable for the failure report.
            f.write("set -g remain-on-exit on\nset -s focus-events on\nset -g history-limit 10000\n")
        self.app_process = self.api_process = self.api_port = None
        self.panes = []
        self.seen = []  # (session id, status, pending count), each change once, for the report
        self.env = {k: v for k, v in os.environ.items() if k not in LEAKS}
        self.env.update(
            HOME=self.home,
            MIRROWISP_SUPPORT_DIR=self.support,
            XDG_CONFIG_HOME=os.path.join(self.home, ".config"),
            XDG_CACHE_HOME=os.path.join(self.home, ".cache"),
            XDG_DATA_HOME=os.path.join(self.home, ".local", "share"),
            XDG_STATE_HOME=os.path.join(self.home, ".local", "state"),
            TMUX_TMPDIR=self.root,
            # The app looks for the agent's CLI on the path.
            PATH=os.path.dirname(self.claude) + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
        )

    def log(self, name):
        return os.path.join(self.logs, name)

    def command(self, argv, what):
        try:
            return subprocess.run(argv, env=self.env, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  timeout=30)
        except subprocess.TimeoutExpired:
            raise Failure("%s did not finish within 30 s" % what)

    # Processes ----------------------------------------------------------------------------------

    def start_model_api(self):
        self.api_process = subprocess.Popen(
            [sys.executable, os.path.join(HERE, "fake_model_api.py"), "--log", self.log("model-api.log")],
            stdout=subprocess.PIPE, stderr=open(self.log("model-api.stderr"), "wb"), env=self.env)
        check(select.select([self.api_process.stdout], [], [], 15)[0], "the stand-in model API printed no port")
        line = self.api_process.stdout.readline().decode().strip()
        check(line.isdigit(), "the stand-in model API printed %r instead of its port" % line)
        self.api_port = int(line)

    def start_app(self):
        self.app_process = subprocess.Popen([self.app], stdout=open(self.log("app.log"), "wb"),
                                            stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, env=self.env)
        wait_for("the app's log line 'bridge listening'",
                 lambda: "bridge listening" in read_text(self.log("app.log")) or self.app_process.poll() is not None,
                 30)
        check(self.app_process.poll() is None, "the app exited with %s at start" % self.app_process.returncode)

    def ctl(self, *args):
        """Runs `mirrowisp ctl …` against the running app; gives the finished process."""
        return self.command([self.app, "ctl", *args], "`mirrowisp ctl %s`" % " ".join(args))

    def connect_claude(self):
        """The app installs its own hooks into the throwaway home, then the CLI's dialogs are skipped."""
        check_exit(self.ctl("connect", "claude"), 0, "`ctl connect claude`")
        wait_for("mirrowisp-bridge in %s" % self.settings, lambda: "mirrowisp-bridge" in read_text(self.settings), 30)
        # The hooks run the tool through this link and end quietly when it is missing.
        wait_for("the app to link %s" % self.link, lambda: os.access(self.link, os.X_OK), 30)
        check(os.path.samefile(self.link, self.bridge), "%s is not the built tool %s" % (self.link, self.bridge))
        state = {
            "hasCompletedOnboarding": True,
            "customApiKeyResponses": {"approved": ["test"], "rejected": []},
            "projects": {self.work: {"hasTrustDialogAccepted": True}},
        }
        with open(os.path.join(self.home, ".claude.json"), "w", encoding="utf-8") as f:
            json.dump(state, f)

    def sessions(self):
        result = self.ctl("sessions")
        check_exit(result, 0, "`ctl sessions`")
        try:
            sessions = json.loads(result.stdout)
        except ValueError as error:
            raise Failure("`ctl sessions` printed no JSON (%s): %r" % (error, result.stdout[:500]))
        check(isinstance(sessions, list), "`ctl sessions` printed no array: %r" % result.stdout[:500])
        for s in sessions:
            mark = (s.get("id"), s.get("status"), len(s.get("pending") or []))
            if mark not in self.seen:
                self.seen.append(mark)
        return sessions

    def session(self, session_id, condition=lambda s: True):
        """The session with this id when it meets the condition, else None."""
        found = next((s for s in self.sessions() if s.get("id") == session_id), None)
        return found if found is not None and condition(found) else None

    # tmux ---------------------------------------------------------------------------------------

    def tmux(self, *args):
        return self.command(["tmux", "-L", "mirrowisp-e2e-%d" % os.getpid(), "-f", self.tmux_conf, *args],
                            "tmux %s" % args[0])

    def keys(self, name, *keys):
        check_exit(self.tmux("send-keys", "-t", name, *keys), 0, "tmux send-keys")

    def box(self, name):
        result = self.tmux("capture-pane", "-p", "-t", name)
        return input_box(result.stdout) if result.returncode == 0 else ""

    def start_claude(self, name):
        """Starts the CLI in a detached tmux session and waits for its input prompt."""
        env = ["HOME=" + self.home, "MIRROWISP_SUPPORT_DIR=" + self.support, "ANTHROPIC_API_KEY=test",
               "ANTHROPIC_BASE_URL=http://127.0.0.1:%d" % self.api_port, "DISABLE_TELEMETRY=1",
               "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1", "TERM=xterm-256color"]
        self.panes.append(name)
        result = self.tmux("new-session", "-d", "-x", "200", "-y", "50", "-s", name, "-c", self.work, "env", *env,
                           self.claude)
        check_exit(result, 0, "tmux new-session")
        prompt_shown = lambda: self.box(name).lstrip().startswith("\u276f")  # noqa: E731
        wait_for("the CLI's input prompt in tmux session %s" % name, prompt_shown, 90)

    def type_line(self, name, text, confirm=True):
        """Types the text, then presses Enter as a key of its own once the CLI shows the text.

        Enter pressed while the CLI still takes in the typed text can be lost, so it is pressed again
        while the text sits in the input box. Never while a dialog is up: there Enter would answer.
        """
        self.keys(name, "-l", text)
        wait_for("%r in the CLI's input box" % text, lambda: text in self.box(name), 30)
        for _ in range(5):
            self.keys(name, "Enter")
            if not confirm:
                return
            try:
                return wait_for("the CLI to take %r" % text, lambda: text not in self.box(name), 5)
            except Failure:
                continue
        raise Failure("the CLI never took %r" % text)

    # Reporting and cleanup ----------------------------------------------------------------------

    def report(self):
        parts = [("tmux pane %s" % name, self.tmux("capture-pane", "-p", "-t", name).stdout) for name in self.panes]
        target = os.path.realpath(self.link) if os.path.lexists(self.link) else "(missing)"
        parts += [(self.settings, read_text(self.settings)), ("%s -> %s" % (self.link, target), "")]
        parts += [(name, read_text(self.log(name))) for name in ("app.log", "model-api.log", "model-api.stderr")]
        sys.stdout.write("".join("\n===== %s =====\n%s\n" % part for part in parts))
        sys.stdout.flush()

    def close(self):
        listed = self.tmux("list-panes", "-a", "-F", "#{pane_pid}")
        pids = [int(p) for p in listed.stdout.split() if p.isdigit()] if listed.returncode == 0 else []
        self.tmux("kill-server")
        # A CLI still writes its transcript into the home as it dies; the folder may go only after it.
        try:
            wait_for("the CLIs to exit", lambda: not any(alive(pid) for pid in pids), 10)
        except Failure:
            for pid in pids:
                try:
                    os.kill(pid, signal.SIGKILL)
                except OSError:
                    pass
        for process in (self.app_process, self.api_process):
            if process is not None and process.poll() is None:
                process.send_signal(signal.SIGTERM)
                try:
                    process.wait(10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait(10)
        if self.keep:
            print("kept %s" % self.root)
        else:
            shutil.rmtree(self.root, ignore_errors=True)


def run_turn(rig, name, verb):
    """One fresh CLI session that asks to run a command and gets `verb` (allow or deny) from the app."""
    marker = os.path.join(rig.work, "marker-%s.txt" % name)
    command = "touch marker-%s.txt" % name
    prompt = "Run this shell command: %s" % command
    known = {s.get("sessionID") for s in rig.sessions()}

    def new_session():
        return next((s for s in rig.sessions() if s.get("agent") == "claude" and s.get("cwd") == rig.work
                     and s.get("sessionID") not in known), None)

    rig.start_claude(name)
    session = wait_for("the app to show the new session of %s" % rig.work, new_session, 60)
    sid = session["id"]
    check(session.get("projectName") == os.path.basename(rig.work), "projectName is %r" % session.get("projectName"))
    check(session.get("status") not in WORKING, "a session with no prompt yet is %r" % session.get("status"))

    rig.type_line(name, prompt)
    current = wait_for("a permission request pending in the app", lambda: rig.session(sid, lambda s: s.get("pending")),
                       90)
    check(current.get("lastPrompt") == prompt, "lastPrompt is %r" % current.get("lastPrompt"))
    check(current.get("status") == "needsAttention", "status while asking is %r" % current.get("status"))
    check(len(current["pending"]) == 1, "pending holds %d decisions" % len(current["pending"]))
    decision = current["pending"][0]
    for key, wanted in (("kind", "permission"), ("tool", "Bash")):
        check(decision.get(key) == wanted, "the decision's %s is %r" % (key, decision.get(key)))
    check(command in (decision.get("summary") or ""), "the decision's summary is %r" % decision.get("summary"))
    check(command in (decision.get("detail") or command), "the decision's detail is %r" % decision.get("detail"))
    check(not os.path.exists(marker), "the command ran before it was allowed")

    check_exit(rig.ctl(verb, str(decision["id"])), 0, "`ctl %s`" % verb)
    if verb == "allow":
        wait_for("the allowed command to create %s" % marker, lambda: os.path.exists(marker), 60)
    finished = wait_for("the session to be done after the CLI's Stop",
                        lambda: rig.session(sid, lambda s: s.get("status") == "done"), 60)
    check(not finished.get("pending"), "a decision is still pending when done: %r" % finished.get("pending"))
    expected = "The command ran." if verb == "allow" else "The command was refused."
    check(finished.get("lastMessage") == expected, "lastMessage is %r" % finished.get("lastMessage"))
    check(os.path.exists(marker) == (verb == "allow"), "the denied command ran")
    # The app's sessionID is the CLI's own: the CLI names the session's transcript after it.
    check(any(str(session.get("sessionID")) + ".jsonl" in files for _, _, files in os.walk(rig.transcripts)),
          "no transcript of sessionID %r under %s" % (session.get("sessionID"), rig.transcripts))
    # The decision is settled; answering it again names nothing.
    check_exit(rig.ctl(verb, str(decision["id"])), 1, "a second `ctl %s` of the same decision" % verb)

    rig.type_line(name, "/exit", confirm=False)
    # An ended session may already be gone from the list.
    wait_for("the session to end after /exit", lambda: rig.session(sid, lambda s: s.get("status") != "ended") is None,
             60)
    print("%s: statuses seen %s" % (name, " -> ".join(status for i, status, _ in rig.seen if i == sid)))


def run(args):
    rig = Rig(args)
    try:
        result = rig.ctl("sessions")
        check_exit(result, 2, "`ctl sessions` without a running app")
        check(len(result.stderr.strip().splitlines()) == 1, "`ctl sessions` without an app said %r" % result.stderr)
        rig.start_model_api()
        rig.start_app()
        rig.connect_claude()
        check_exit(rig.ctl("allow", "no-such-decision"), 1, "`ctl allow` of an unknown decision")
        run_turn(rig, "allowed", "allow")
        run_turn(rig, "denied", "deny")
        check(rig.app_process.poll() is None, "the app died during the test")
    except BaseException:
        rig.report()
        raise
    finally:
        signal.alarm(0)  # cleanup must not be cut short
        rig.close()
    print("PASS")
    return 0


def command_line():
    """The arguments, and what must be there for the run, as (message, present) pairs."""
    cache = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--bridge", required=True)
    parser.add_argument("--claude", default=os.path.join(cache, "mirrowisp-tests", CLAUDE_FOLDER, "node_modules",
                                                         ".bin", "claude"))
    parser.add_argument("--keep", action="store_true", help="keep the temporary folder for inspection")
    args = parser.parse_args()
    args.app, args.bridge = os.path.abspath(args.app), os.path.abspath(args.bridge)
    missing = [("the app %s is not built" % args.app, os.access(args.app, os.X_OK)),
               ("the bridge tool %s is not built" % args.bridge, os.access(args.bridge, os.X_OK)),
               ("Claude Code is not installed at %s; run scripts/install-test-agents.sh" % args.claude,
                os.access(args.claude, os.X_OK))]
    return args, missing


def main():
    args, missing = command_line()
    return launch(run, args, missing, ("tmux", "dbus-run-session"))


def launch(run, args, missing, tools):
    """Runs `run(args)` on a session bus of its own once nothing is missing, within OVERALL_SECONDS."""
    missing = missing + [("%s is not installed; run scripts/install-deps.sh" % tool, shutil.which(tool))
                         for tool in tools]
    for message, present in missing:
        if not present:
            print("FAIL: " + message)
            return 1

    # The app and its ctl client meet on a session bus of their own, never the user's.
    if os.environ.get(PRIVATE_BUS_MARK) != "1":
        env = dict(os.environ, **{PRIVATE_BUS_MARK: "1"})
        argv = [sys.executable, os.path.abspath(sys.argv[0]), *sys.argv[1:]]
        return subprocess.run(["dbus-run-session", "--", *argv], env=env).returncode

    # Give up, and clean up, before ctest's own timeout would kill this process and leave its children.
    def overdue(signum, frame):
        raise Failure("the test ran out of its %d s (signal %d)" % (OVERALL_SECONDS, signum))

    signal.signal(signal.SIGALRM, overdue)
    signal.signal(signal.SIGTERM, overdue)
    signal.alarm(OVERALL_SECONDS)
    try:
        return run(args)
    except Failure as failure:
        print("FAIL: %s" % failure)
        return 1


if __name__ == "__main__":
    sys.exit(main())
