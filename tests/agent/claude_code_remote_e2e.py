#!/usr/bin/env python3
"""End to end with a real Claude Code CLI on a remote host.

The "remote host" is a real OpenSSH server started here on a loopback port, whose sessions see a
throwaway folder as HOME. `mirrowisp ctl remote add` copies the hook tool there and installs the
hooks into that home; the app's own ssh connection forwards the host's bridge socket back. The CLI
then runs over `ssh -t` inside a private tmux server, against the loopback stand-in of its model API,
and its permission request is answered locally with `mirrowisp ctl allow|deny`.

Usage: claude_code_remote_e2e.py --app <mirrowisp> --bridge <mirrowisp-bridge> [--claude <claude>] [--keep]
"""

import json
import os
import shlex
import signal
import socket
import subprocess
import sys

from claude_code_e2e import Rig, check, check_exit, command_line, launch, read_text, run_turn, wait_for

HOST = "remote-test"


class SshServer:
    """sshd as the current user on a free loopback port, with a client configuration and an `ssh` wrapper
    that uses it, so nothing reads or writes the real ~/.ssh."""

    def __init__(self, root, log):
        self.dir = os.path.join(root, "sshd")
        self.home = os.path.join(root, "remote-home")
        self.bin = os.path.join(self.dir, "bin")
        for folder in (self.bin, self.home):
            os.makedirs(folder)
        for key in ("host_key", "client_key"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", os.path.join(self.dir, key)],
                           check=True)
        os.rename(os.path.join(self.dir, "client_key.pub"), os.path.join(self.dir, "authorized_keys"))
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)  # privilege separation's empty folder
        config = os.path.join(self.dir, "sshd_config")
        with open(config, "w", encoding="utf-8") as f:
            f.write("Port %d\nListenAddress 127.0.0.1\nHostKey {d}/host_key\nAuthorizedKeysFile {d}/authorized_keys\n"
                    "PidFile {d}/sshd.pid\nStrictModes no\nUsePAM no\nPasswordAuthentication no\n"
                    "KbdInteractiveAuthentication no\nPermitRootLogin prohibit-password\n"
                    "AllowStreamLocalForwarding yes\nSetEnv HOME={h}\nLogLevel ERROR\n".replace("{d}", self.dir)
                    .replace("{h}", self.home) % self.port)
        client = os.path.join(self.dir, "ssh_config")
        with open(client, "w", encoding="utf-8") as f:
            f.write("Host %s\n  HostName 127.0.0.1\n  Port %d\n  User %s\n  IdentityFile %s/client_key\n"
                    "  IdentitiesOnly yes\n  UserKnownHostsFile %s/known_hosts\n  StrictHostKeyChecking accept-new\n"
                    "  BatchMode yes\n  LogLevel ERROR\n"
                    % (HOST, self.port, subprocess.run(["id", "-un"], capture_output=True, text=True).stdout.strip(),
                       self.dir, self.dir))
        self.ssh = os.path.join(self.bin, "ssh")
        with open(self.ssh, "w", encoding="utf-8") as f:
            f.write("#!/bin/sh\nexec /usr/bin/ssh -F %s \"$@\"\n" % shlex.quote(client))
        os.chmod(self.ssh, 0o755)
        self.process = subprocess.Popen(["/usr/sbin/sshd", "-D", "-e", "-f", config], stderr=open(log, "wb"))

        def accepts():
            with socket.socket() as s:
                return s.connect_ex(("127.0.0.1", self.port)) == 0

        wait_for("sshd to listen on port %d" % self.port, accepts, 15)

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()


class RemoteRig(Rig):
    """The local rig, with the CLI and its settings on the remote host instead of here."""

    def __init__(self, args):
        super().__init__(args)
        self.sshd = SshServer(self.root, self.log("sshd.log"))
        # The app reaches the host through the wrapper, as it would through the user's own ssh.
        self.env["PATH"] = self.sshd.bin + os.pathsep + self.env["PATH"]
        remote = self.sshd.home
        os.makedirs(os.path.join(remote, ".claude"))
        self.settings = os.path.join(remote, ".claude", "settings.json")
        self.transcripts = os.path.join(remote, ".claude", "projects")

    def connect_claude(self):
        """`ctl remote add` sets the host up; then the app's connection to it comes up."""
        with open(self.settings, "w", encoding="utf-8") as f:
            json.dump({"env": {"KEEP": "1"}}, f)  # a user's own setting, which must survive
        added = self.command([self.app, "ctl", "remote", "add", HOST, "--timeout", "120"], "`ctl remote add`")
        check_exit(added, 0, "`ctl remote add`")
        text = read_text(self.settings)
        check("mirrowisp-bridge" in text and '"KEEP"' in text, "the remote settings are %r" % text)
        tool = os.path.join(self.sshd.home, ".mirrowisp", "bin", "mirrowisp-bridge")
        check(os.access(tool, os.X_OK), "no hook tool copied to %s" % tool)

        def connected():
            hosts = json.loads(self.ctl("remote", "list").stdout or "[]")
            return hosts and (hosts[0].get("connection") or {}).get("state") == "connected"

        wait_for("the app's connection to %s" % HOST, connected, 30)
        state = {"hasCompletedOnboarding": True, "customApiKeyResponses": {"approved": ["test"], "rejected": []},
                 "projects": {self.work: {"hasTrustDialogAccepted": True}}}
        with open(os.path.join(self.sshd.home, ".claude.json"), "w", encoding="utf-8") as f:
            json.dump(state, f)

    def start_claude(self, name):
        """The CLI in a detached tmux session, over `ssh -t` on the host, as a user runs a remote agent."""
        env = ["ANTHROPIC_API_KEY=test", "ANTHROPIC_BASE_URL=http://127.0.0.1:%d" % self.api_port,
               "DISABLE_TELEMETRY=1", "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1", "TERM=xterm-256color"]
        remote = "cd %s && exec env %s %s" % (shlex.quote(self.work), " ".join(map(shlex.quote, env)),
                                              shlex.quote(self.claude))
        self.panes.append(name)
        result = self.tmux("new-session", "-d", "-x", "200", "-y", "50", "-s", name, "-c", self.work,
                           self.sshd.ssh, "-tt", HOST, remote)
        check_exit(result, 0, "tmux new-session")
        wait_for("the CLI's input prompt over ssh in tmux session %s" % name,
                 lambda: self.box(name).lstrip().startswith("\u276f"), 90)

    def report(self):
        super().report()
        sys.stdout.write("\n===== sshd.log =====\n%s\n" % read_text(self.log("sshd.log")))

    def close(self):
        super().close()
        self.sshd.close()


def run(args):
    rig = None
    try:
        rig = RemoteRig(args)
        rig.start_model_api()
        rig.start_app()
        rig.connect_claude()
        run_turn(rig, "allowed", "allow")
        run_turn(rig, "denied", "deny")
        hosts = {s.get("host") for s in rig.sessions()}
        check(hosts <= {HOST}, "sessions carry hosts %r" % hosts)
        removed = rig.command([rig.app, "ctl", "remote", "remove", HOST, "--timeout", "120"], "`ctl remote remove`")
        check_exit(removed, 0, "`ctl remote remove`")
        check(json.loads(read_text(rig.settings)) == {"env": {"KEEP": "1"}},
              "the remote settings after removal are %r" % read_text(rig.settings))
        check(rig.app_process.poll() is None, "the app died during the test")
    except BaseException:
        if rig is not None:
            rig.report()
        raise
    finally:
        signal.alarm(0)  # cleanup must not be cut short
        if rig is not None:
            rig.close()
    print("PASS")
    return 0


def main():
    args, missing = command_line()
    missing.append(("sshd is not installed; run scripts/install-deps.sh", os.access("/usr/sbin/sshd", os.X_OK)))
    return launch(run, args, missing, ("tmux", "dbus-run-session", "ssh-keygen"))


if __name__ == "__main__":
    sys.exit(main())
