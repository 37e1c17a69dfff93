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

# Statuses in which the session is busy with the turn (the others are quiet).
WORKING = {"thinking", "runningTool", "compacting"}


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


def default_claude():
    cache = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return os.path.join(cache, "mirrowisp-tests", CLAUDE_FOLDER, "node_modules", ".bin", "claude")


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
    """The text inside the CLI's input box (the lines between the last two horizontal rules), or None.

    While a permission dialog is up there is only one rule below the transcript, and no input box.
    """
    lines = pane.splitlines()
    rules = [i for i, line in enumerate(lines) if line.startswith("\u2500\u2500\u2500")]
    if len(rules) < 2:
        return None
    return "\n".join(lines[rules[-2] + 1 : rules[-1]])


def takes_input(pane):
    box = input_box(pane)
    return box is not None and box.lstrip().startswith("\u276f")


class Rig:
    """The processes of one test run and the throwaway folders they share."""

    def __init__(self, app, bridge, claude, keep):
        self.app = app
        self.bridge = bridge
        self.claude = claude
        self.keep = keep
        self.root = os.path.realpath(tempfile.mkdtemp(prefix="mirrowisp-agent-e2e-"))
        self.home = os.path.join(self.root, "home")
        self.work = os.path.join(self.root, "project")
        self.logs = os.path.join(self.root, "logs")
        self.support = os.path.join(self.home, ".mirrowisp")
        for folder in (self.home, self.work, self.logs, os.path.join(self.home, ".claude")):
            os.makedirs(folder, exist_ok=True)
        self.app_log = os.path.join(self.logs, "app.log")
        self.api_log = os.path.join(self.logs, "model-api.log")
        self.tmux_socket = "mirrowisp-e2e-%d" % os.getpid()
        self.tmux_conf = os.path.join(self.root, "tmux.conf")
        with open(self.tmux_conf, "w", encoding="utf-8") as f:
            # A pane whose CLI died stays readable for the failure report.
            f.write("set -g remain-on-exit on\nset -s focus-events on\nset -g history-limit 10000\n")
        self.app_process = None
        self.api_process = None
        self.api_port = None
        self.panes = []

    # Environments -------------------------------------------------------------------------------

    def base_env(self):
        env = dict(os.environ)
        # Nothing of the real user's agent set-up, display or terminal multiplexer may leak in.
        for name in (
            "DISPLAY",
            "WAYLAND_DISPLAY",
            "TMUX",
            "TMUX_PANE",
            "CLAUDE_CONFIG_DIR",
            "ANTHROPIC_AUTH_TOKEN",
            "ANTHROPIC_MODEL",
            "CLAUDECODE",
            "CLAUDE_CODE_ENTRYPOINT",
        ):
            env.pop(name, None)
        env.update(
            {
                "HOME": self.home,
                "MIRROWISP_SUPPORT_DIR": self.support,
                "XDG_CONFIG_HOME": os.path.join(self.home, ".config"),
                "XDG_CACHE_HOME": os.path.join(self.home, ".cache"),
                "XDG_DATA_HOME": os.path.join(self.home, ".local", "share"),
                "XDG_STATE_HOME": os.path.join(self.home, ".local", "state"),
                "TMUX_TMPDIR": self.root,
                # The app looks for the agent's CLI on the path.
                "PATH": os.path.dirname(self.claude) + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
            }
        )
        return env

    def claude_env(self):
        return {
            "HOME": self.home,
            "MIRROWISP_SUPPORT_DIR": self.support,
            "ANTHROPIC_BASE_URL": "http://127.0.0.1:%d" % self.api_port,
            "ANTHROPIC_API_KEY": "test",
            "DISABLE_TELEMETRY": "1",
            "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
            "TERM": "xterm-256color",
        }

    # Processes ----------------------------------------------------------------------------------

    def start_model_api(self):
        self.api_process = subprocess.Popen(
            [sys.executable, os.path.join(HERE, "fake_model_api.py"), "--log", self.api_log],
            stdout=subprocess.PIPE,
            stderr=open(os.path.join(self.logs, "model-api.stderr"), "wb"),
            env=self.base_env(),
        )
        ready, _, _ = select.select([self.api_process.stdout], [], [], 15)
        check(ready, "the stand-in model API printed no port within 15 s")
        line = self.api_process.stdout.readline().decode().strip()
        check(line.isdigit(), "the stand-in model API printed %r instead of its port" % line)
        self.api_port = int(line)

    def start_app(self):
        log = open(self.app_log, "wb")
        self.app_process = subprocess.Popen(
            [self.app], stdout=log, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, env=self.base_env()
        )
        wait_for(
            "the app's log line 'bridge listening'",
            lambda: "bridge listening" in read_text(self.app_log) or self.app_process.poll() is not None,
            30,
        )
        check(self.app_process.poll() is None, "the app exited with %s at start" % self.app_process.returncode)

    def ctl(self, *args):
        """Runs `mirrowisp ctl …` against the running app; gives the finished process."""
        try:
            return subprocess.run(
                [self.app, "ctl", *args],
                env=self.base_env(),
                stdin=subprocess.DEVNULL,
                capture_output=True,
                text=True,
                timeout=30,
            )
        except subprocess.TimeoutExpired:
            raise Failure("`mirrowisp ctl %s` did not finish within 30 s" % " ".join(args))

    def write_claude_state(self):
        # Skips the first-run, API-key and folder-trust dialogs of the CLI.
        state = {
            "hasCompletedOnboarding": True,
            "customApiKeyResponses": {"approved": ["test"], "rejected": []},
            "projects": {self.work: {"hasTrustDialogAccepted": True}},
        }
        with open(os.path.join(self.home, ".claude.json"), "w", encoding="utf-8") as f:
            json.dump(state, f, indent=2)

    # tmux ---------------------------------------------------------------------------------------

    def tmux(self, *args, check_result=True):
        result = subprocess.run(
            ["tmux", "-L", self.tmux_socket, "-f", self.tmux_conf, *args],
            env=self.base_env(),
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=30,
        )
        if check_result and result.returncode != 0:
            raise Failure("tmux %s failed: %s" % (" ".join(args), result.stderr.strip()))
        return result

    def pane(self, name):
        result = self.tmux("capture-pane", "-p", "-t", name, check_result=False)
        return result.stdout if result.returncode == 0 else ""

    def start_claude(self, name):
        """Starts the CLI in a detached tmux session and waits for its input prompt."""
        env = ["%s=%s" % item for item in sorted(self.claude_env().items())]
        self.panes.append(name)
        self.tmux("new-session", "-d", "-x", "200", "-y", "50", "-s", name, "-c", self.work, "env", *env, self.claude)
        wait_for("the CLI's input prompt in tmux session %s" % name, lambda: takes_input(self.pane(name)), 90)

    def submit(self, name, prompt):
        """Types the prompt, then presses Enter as a key of its own once the CLI shows the text.

        Enter pressed while the CLI still takes in the typed text can be lost, so it is pressed again
        while the prompt sits in the input box. Never while a dialog is up: there Enter would answer.
        """
        self.tmux("send-keys", "-t", name, "-l", prompt)
        wait_for("the prompt in the CLI's input box", lambda: prompt in (input_box(self.pane(name)) or ""), 30)
        for _ in range(5):
            self.tmux("send-keys", "-t", name, "Enter")
            try:
                wait_for("the CLI to take the prompt", lambda: prompt not in (input_box(self.pane(name)) or ""), 5)
                return
            except Failure:
                continue
        raise Failure("the CLI never took the prompt")

    def exit_claude(self, name):
        self.tmux("send-keys", "-t", name, "-l", "/exit")
        wait_for("/exit in the CLI's input box", lambda: "/exit" in (input_box(self.pane(name)) or ""), 30)
        self.tmux("send-keys", "-t", name, "Enter")

    # Reporting and cleanup ----------------------------------------------------------------------

    def report(self):
        out = sys.stdout
        for name in self.panes:
            out.write("\n===== tmux pane %s =====\n%s\n" % (name, self.pane(name)))
        settings = os.path.join(self.home, ".claude", "settings.json")
        out.write("\n===== %s =====\n%s\n" % (settings, read_text(settings)))
        link = os.path.join(self.support, "bin", "mirrowisp-bridge")
        out.write("\n===== %s -> %s =====\n" % (link, os.path.realpath(link) if os.path.lexists(link) else "(missing)"))
        out.write("\n===== app log =====\n%s\n" % read_text(self.app_log))
        out.write("\n===== model API log =====\n%s\n" % read_text(self.api_log))
        out.write("\n===== model API stderr =====\n%s\n" % read_text(os.path.join(self.logs, "model-api.stderr")))
        out.flush()

    def close(self):
        listed = self.tmux("list-panes", "-a", "-F", "#{pane_pid}", check_result=False)
        pids = [int(p) for p in listed.stdout.split() if p.isdigit()] if listed.returncode == 0 else []
        self.tmux("kill-server", check_result=False)
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
            if process is None or process.poll() is not None:
                continue
            process.send_signal(signal.SIGTERM)
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait(10)
        if self.api_process is not None and self.api_process.stdout:
            self.api_process.stdout.close()
        if self.keep:
            print("kept %s" % self.root)
        else:
            shutil.rmtree(self.root, ignore_errors=True)


# The app, through `mirrowisp ctl` -----------------------------------------------------------------


class App:
    """What the app knows and does, asked through its own `ctl` subcommand over the session bus."""

    def __init__(self, rig):
        self.rig = rig
        self.seen = []  # (session id, status, pending count), each change once, for the report

    def connect_claude(self):
        """The app installs its own hooks into the throwaway home."""
        settings = os.path.join(self.rig.home, ".claude", "settings.json")
        result = self.rig.ctl("connect", "claude")
        check(result.returncode == 0, "`ctl connect claude` exited %d: %s" % (result.returncode, result.stderr))
        wait_for("mirrowisp-bridge in %s" % settings, lambda: "mirrowisp-bridge" in read_text(settings), 30)
        # The hooks run the tool through this link and end quietly when it is missing.
        link = os.path.join(self.rig.support, "bin", "mirrowisp-bridge")
        wait_for("the app to link %s" % link, lambda: os.access(link, os.X_OK), 30)
        check(os.path.samefile(link, self.rig.bridge), "%s is not the built tool %s" % (link, self.rig.bridge))

    def sessions(self):
        result = self.rig.ctl("sessions")
        check(result.returncode == 0, "`ctl sessions` exited %d: %s" % (result.returncode, result.stderr))
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

    def session(self, session_id):
        return next((s for s in self.sessions() if s.get("id") == session_id), None)

    def answer(self, verb, decision_id):
        return self.rig.ctl(verb, decision_id)

    def statuses_of(self, session_id):
        return [status for sid, status, _ in self.seen if sid == session_id]


# The test -----------------------------------------------------------------------------------------


def check_ctl_without_app(rig):
    result = rig.ctl("sessions")
    check(result.returncode == 2, "`ctl sessions` without a running app exited %d, not 2" % result.returncode)
    lines = result.stderr.strip().splitlines()
    check(len(lines) == 1, "`ctl sessions` without a running app said %r, not one line" % result.stderr)


def run_turn(rig, app, name, verb):
    """One fresh CLI session that asks to run a command and gets `verb` (allow or deny) from the app."""
    marker = os.path.join(rig.work, "marker-%s.txt" % name)
    command = "touch marker-%s.txt" % name
    prompt = "Run this shell command: %s" % command
    known = {s.get("sessionID") for s in app.sessions()}

    def new_session():
        for s in app.sessions():
            if s.get("agent") == "claude" and s.get("cwd") == rig.work and s.get("sessionID") not in known:
                return s
        return None

    def session_when(condition):
        s = app.session(sid)
        return s if s is not None and condition(s) else None

    rig.start_claude(name)
    session = wait_for("the app to show the new session of %s" % rig.work, new_session, 60)
    sid = session["id"]
    check(session.get("projectName") == os.path.basename(rig.work), "projectName is %r" % session.get("projectName"))
    check(session.get("status") not in WORKING, "a session with no prompt yet is %r" % session.get("status"))

    rig.submit(name, prompt)
    current = wait_for("a permission request pending in the app", lambda: session_when(lambda s: s.get("pending")), 90)
    check(current.get("lastPrompt") == prompt, "lastPrompt is %r" % current.get("lastPrompt"))
    check(current.get("status") == "needsAttention", "status while asking is %r" % current.get("status"))
    check(len(current["pending"]) == 1, "pending holds %d decisions" % len(current["pending"]))
    decision = current["pending"][0]
    check(decision.get("kind") == "permission", "the decision's kind is %r" % decision.get("kind"))
    check(decision.get("tool") == "Bash", "the decision's tool is %r" % decision.get("tool"))
    check(command in (decision.get("summary") or ""), "the decision's summary is %r" % decision.get("summary"))
    check(
        decision.get("detail") in (None, "") or command in decision.get("detail"),
        "the decision's detail is %r" % decision.get("detail"),
    )
    check(not os.path.exists(marker), "the command ran before it was allowed")

    result = app.answer(verb, str(decision["id"]))
    check(result.returncode == 0, "`ctl %s` exited %d: %s" % (verb, result.returncode, result.stderr))

    if verb == "allow":
        wait_for("the allowed command to create %s" % marker, lambda: os.path.exists(marker), 60)
    finished = wait_for(
        "the session to be done after the CLI's Stop", lambda: session_when(lambda s: s.get("status") == "done"), 60
    )
    check(not finished.get("pending"), "a decision is still pending when done: %r" % finished.get("pending"))
    expected = "The command ran." if verb == "allow" else "The command was refused."
    check(finished.get("lastMessage") == expected, "lastMessage is %r, not %r" % (finished.get("lastMessage"), expected))
    if verb == "deny":
        check(not os.path.exists(marker), "the denied command ran")
    # The app's sessionID is the CLI's own: the CLI names the session's transcript after it.
    transcripts = os.path.join(rig.home, ".claude", "projects")
    check(
        any(str(session.get("sessionID")) + ".jsonl" in files for _, _, files in os.walk(transcripts)),
        "no transcript of sessionID %r under %s" % (session.get("sessionID"), transcripts),
    )

    # The decision is settled; answering it again names nothing.
    again = app.answer(verb, str(decision["id"]))
    check(again.returncode == 1, "a second `ctl %s` of the same decision exited %d, not 1" % (verb, again.returncode))

    rig.exit_claude(name)
    # An ended session may already be gone from the list.
    wait_for("the session to end after /exit", lambda: session_when(lambda s: s.get("status") != "ended") is None, 60)
    print("%s: statuses seen %s" % (name, " -> ".join(app.statuses_of(sid))))


def run(args):
    rig = Rig(args.app, args.bridge, args.claude, args.keep)
    app = App(rig)
    try:
        check_ctl_without_app(rig)
        rig.start_model_api()
        rig.start_app()
        app.connect_claude()
        rig.write_claude_state()
        unknown = rig.ctl("allow", "no-such-decision")
        check(unknown.returncode == 1, "`ctl allow` of an unknown decision exited %d, not 1" % unknown.returncode)
        run_turn(rig, app, "allowed", "allow")
        run_turn(rig, app, "denied", "deny")
        check(rig.app_process.poll() is None, "the app died during the test")
    except BaseException:
        rig.report()
        raise
    finally:
        signal.alarm(0)  # cleanup must not be cut short
        rig.close()
    print("PASS")
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--bridge", required=True)
    parser.add_argument("--claude", default=default_claude())
    parser.add_argument("--keep", action="store_true", help="keep the temporary folder for inspection")
    args = parser.parse_args()
    args.app = os.path.abspath(args.app)
    args.bridge = os.path.abspath(args.bridge)

    for label, path in (("app", args.app), ("bridge tool", args.bridge)):
        if not os.access(path, os.X_OK):
            print("FAIL: the %s %s is not built" % (label, path))
            return 1
    if not os.access(args.claude, os.X_OK):
        print("FAIL: Claude Code is not installed at %s; run scripts/install-test-agents.sh" % args.claude)
        return 1
    for tool in ("tmux", "dbus-run-session"):
        if shutil.which(tool) is None:
            print("FAIL: %s is not installed; run scripts/install-deps.sh" % tool)
            return 1

    # The app and its ctl client meet on a session bus of their own, never the user's.
    if os.environ.get(PRIVATE_BUS_MARK) != "1":
        env = dict(os.environ)
        env[PRIVATE_BUS_MARK] = "1"
        argv = [sys.executable, os.path.abspath(__file__), *sys.argv[1:]]
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
