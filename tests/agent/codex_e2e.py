#!/usr/bin/env python3
"""End to end with a real Codex CLI and its background server.

Two terminal UIs of one throwaway CODEX_HOME run in two windows of a private tmux server, with a client
attached, against a loopback stand-in of the model API. Both hand their turns to one background
server, which runs the hooks the app installed. The app must tie each session to its own UI: the jump
selects that UI's window, and a session whose UI exited leaves the list within the app's 30-second
liveness pass, before the server's late SessionEnd (about a minute after /exit).

Usage: codex_e2e.py --app <mirrowisp> --bridge <mirrowisp-bridge> [--codex <codex>] [--keep]
"""

import argparse
import json
import os
import signal
import subprocess
import sys

import claude_code_e2e as base
from claude_code_e2e import Failure, check, read_text, wait_for

CODEX_FOLDER = "codex-0.169.0"
SESSION = "e2e"
# Past the liveness pass (30 s) and short of the server's own SessionEnd (about 60 s after /exit).
ENDS_WITHIN = 45


def default_codex():
    cache = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return os.path.join(cache, "mirrowisp-tests", CODEX_FOLDER, "node_modules", ".bin", "codex")


class Rig(base.Rig):
    def __init__(self, app, bridge, codex, keep):
        super().__init__(argparse.Namespace(app=app, bridge=bridge, claude=codex, keep=keep))
        self.codex = codex
        self.codex_home = os.path.join(self.home, ".codex")
        self.folders = {name: os.path.join(self.root, name) for name in ("alpha", "beta")}
        for folder in [self.codex_home, *self.folders.values()]:
            os.makedirs(folder, exist_ok=True)
        self.client = None

    def pane(self, target):
        return self.tmux("capture-pane", "-p", "-t", target).stdout

    def codex_env(self):
        return {
            "HOME": self.home,
            "MIRROWISP_SUPPORT_DIR": self.support,
            "OPENAI_API_KEY": "test",
            "TERM": "xterm-256color",
        }

    def write_codex_config(self):
        lines = [
            'model = "gpt-5"',
            'model_provider = "stand-in"',
            "[model_providers.stand-in]",
            'name = "stand-in"',
            'base_url = "http://127.0.0.1:%d/v1"' % self.api_port,
            'wire_api = "responses"',
            'env_key = "OPENAI_API_KEY"',
        ]
        for folder in self.folders.values():
            lines += ['[projects."%s"]' % folder, 'trust_level = "trusted"']
        with open(os.path.join(self.codex_home, "config.toml"), "w", encoding="utf-8") as f:
            f.write("\n".join(lines) + "\n")

    def start_codex(self, name, review_hooks):
        """Starts a UI in a window of its own and waits for its prompt. The first UI asks to review the
        app's new hooks: they are trusted as a user does, by choosing 2 and confirming."""
        env = ["%s=%s" % item for item in sorted(self.codex_env().items())]
        if self.panes:
            where = ["new-window", "-t", SESSION]
        else:
            where = ["new-session", "-d", "-x", "200", "-y", "50", "-s", SESSION]
        self.tmux(*where, "-n", name, "-c", self.folders[name], "env", *env, self.codex)
        target = "%s:%s" % (SESSION, name)
        self.panes.append(target)
        if review_hooks:
            wait_for("Codex to ask to review the hooks", lambda: "Hooks need review" in self.pane(target), 90)

        def ready():
            pane = self.pane(target)
            if "Hooks need review" in pane:
                self.tmux("send-keys", "-t", target, "Enter" if "\u203a 2. Trust all" in pane else "2")
                return False
            return "? for shortcuts" in pane

        wait_for("the prompt of the Codex UI in %s" % name, ready, 90, interval=0.5)

    def attach_client(self):
        """A tmux client on a terminal of its own, so that the jump has one to switch."""
        command = "tmux -L mirrowisp-e2e-%d -f %s attach -t %s" % (os.getpid(), self.tmux_conf, SESSION)
        self.client = subprocess.Popen(
            ["script", "-qfc", command, "/dev/null"],
            stdin=subprocess.PIPE,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            env=self.env,
        )
        wait_for("a tmux client", lambda: self.current_window(), 15)

    def current_window(self):
        return self.tmux("list-clients", "-F", "#{window_name}").stdout.strip()

    def type_line(self, name, text):
        target = "%s:%s" % (SESSION, name)
        self.tmux("send-keys", "-t", target, "-l", text)
        wait_for("%r in the UI of %s" % (text, name), lambda: text in self.pane(target), 30)
        self.tmux("send-keys", "-t", target, "Enter")

    def server_pid(self):
        try:
            record = read_text(os.path.join(self.codex_home, "app-server-daemon", "daemon.pid"))
            return int(json.loads(record)["pid"])
        except (ValueError, KeyError, TypeError):
            return None

    def report(self):
        for path in (
            os.path.join(self.codex_home, "hooks.json"),
            os.path.join(self.codex_home, "config.toml"),
            os.path.join(self.codex_home, "app-server-daemon", "daemon.stderr.log"),
        ):
            sys.stdout.write("\n===== %s =====\n%s\n" % (path, read_text(path)))
        super().report()

    def close(self):
        # The server and its helper outlive the UIs: stop them before their home goes.
        if os.path.isdir(os.path.join(self.codex_home, "packages")):
            env = dict(self.env, **self.codex_env())
            try:
                subprocess.run(
                    [self.codex, "app-server", "daemon", "stop"],
                    env=env,
                    stdin=subprocess.DEVNULL,
                    capture_output=True,
                    timeout=30,
                    check=False,
                )
            except subprocess.TimeoutExpired:
                pass  # what still runs from the home is ended below
            for pid in codex_processes_under(self.home):
                try:
                    os.kill(pid, signal.SIGTERM)
                except OSError:
                    pass
        if self.client is not None and self.client.poll() is None:
            self.client.kill()
            self.client.wait(10)
        super().close()


def codex_processes_under(home):
    """The processes whose executable lies in the throwaway home: the server Codex copied there."""
    found = []
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                if os.readlink("/proc/%s/exe" % entry).startswith(home + os.sep):
                    found.append(int(entry))
            except OSError:
                pass
    return found


def run(args):
    rig = Rig(args.app, args.bridge, args.codex, args.keep)

    def session_of(name, condition=lambda s: True):
        for s in rig.sessions():
            if s.get("agent") == "codex" and s.get("cwd") == rig.folders[name] and condition(s):
                return s
        return None

    try:
        rig.start_model_api()
        rig.start_app()
        rig.write_codex_config()
        connected = rig.ctl("connect", "codex")
        check(connected.returncode == 0, "`ctl connect codex` exited %d: %s" % (connected.returncode, connected.stderr))
        hooks = os.path.join(rig.codex_home, "hooks.json")
        wait_for("mirrowisp-bridge in %s" % hooks, lambda: "mirrowisp-bridge" in read_text(hooks), 30)
        link = os.path.join(rig.support, "bin", "mirrowisp-bridge")
        wait_for("the app to link %s" % link, lambda: os.access(link, os.X_OK), 30)

        sessions = {}
        for name in ("alpha", "beta"):
            rig.start_codex(name, review_hooks=name == "alpha")
            if name == "alpha":
                rig.attach_client()
            prompt = "Hello from %s" % name
            rig.type_line(name, prompt)
            sessions[name] = wait_for(
                "the %s session to be done" % name,
                lambda: session_of(name, lambda s: s.get("status") == "done" and s.get("lastPrompt") == prompt),
                60,
            )["id"]
        server = rig.server_pid()
        check(server is not None and base.alive(server), "no Codex background server runs the hooks")

        for name in ("alpha", "beta"):
            other = "beta" if name == "alpha" else "alpha"
            rig.tmux("select-window", "-t", "%s:%s" % (SESSION, other))
            wait_for("the client on %s" % other, lambda: rig.current_window() == other, 10)
            jumped = rig.ctl("jump", sessions[name])
            check(
                jumped.returncode == 0 and "tmux" in jumped.stdout,
                "`ctl jump` of %s gave %d %r %r" % (name, jumped.returncode, jumped.stdout, jumped.stderr),
            )
            check(rig.current_window() == name, "the jump to %s showed window %r" % (name, rig.current_window()))

        rig.type_line("beta", "/exit")
        wait_for(
            "the beta session to leave the list after its UI exited",
            lambda: session_of("beta", lambda s: s.get("status") != "ended") is None,
            ENDS_WITHIN,
            interval=1,
        )
        check(session_of("alpha") is not None, "the alpha session left the list while its UI runs")
        check(rig.app_process.poll() is None, "the app died during the test")
    except BaseException:
        rig.report()
        raise
    finally:
        signal.alarm(0)
        rig.close()
    print("PASS")
    return 0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    parser.add_argument("--bridge", required=True)
    parser.add_argument("--codex", default=default_codex())
    parser.add_argument("--keep", action="store_true", help="keep the temporary folder for inspection")
    args = parser.parse_args()
    args.app = os.path.abspath(args.app)
    args.bridge = os.path.abspath(args.bridge)
    missing = [("Codex is not installed at %s; run scripts/install-test-agents.sh" % args.codex,
                os.access(args.codex, os.X_OK))]
    return base.launch(run, args, missing, ("tmux", "dbus-run-session", "script"))


if __name__ == "__main__":
    sys.exit(main())
