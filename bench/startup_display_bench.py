#!/usr/bin/python3
"""Start-up of the app with a display, until its island window is mapped and its tray item has
registered with the desktop's tray, beside the headless start-up to the bridge accepting connections.
Run under a virtual X server: xvfb-run -a bench/startup_display_bench.py --app build-ci/bin/mirrowisp
The tray is a python3-dbusmock StatusNotifierWatcher on a session bus of the bench's own."""
import argparse
import os
import socket
import statistics
import subprocess
import tempfile
import time

import dbus
import dbusmock
from dbusmock import DBusTestCase

WATCHER = "org.kde.StatusNotifierWatcher"
RUNS = 11


def start_watcher(bus):
    DBusTestCase.spawn_server(WATCHER, "/StatusNotifierWatcher", WATCHER, system_bus=False,
                              stdout=subprocess.DEVNULL)
    mock = dbus.Interface(bus.get_object(WATCHER, "/StatusNotifierWatcher"), dbusmock.MOCK_IFACE)
    mock.AddProperties(WATCHER, {"IsStatusNotifierHostRegistered": True, "ProtocolVersion": dbus.Int32(0),
                                 "RegisteredStatusNotifierItems": dbus.Array([], signature="s")})
    mock.AddMethod(WATCHER, "RegisterStatusNotifierItem", "s", "", "")
    mock.AddMethod(WATCHER, "RegisterStatusNotifierHost", "s", "", "")
    return mock


def environment(home, display):
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, ".config"),
               MIRROWISP_SUPPORT_DIR=os.path.join(home, "support"))
    config = os.path.join(home, ".config", "mirrowisp")
    os.makedirs(config, exist_ok=True)
    with open(os.path.join(config, "defaults.json"), "w") as defaults:
        defaults.write('{"didCompleteOnboarding": true}')
    if not display:
        env.pop("DISPLAY", None)
    return env


def accepts(path):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        try:
            client.connect(path)
            return True
        except OSError:
            return False


def island_mapped(pid):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(pid)], capture_output=True)
    return bool(found.stdout.strip())


def run_once(app, display, watcher):
    home = tempfile.mkdtemp(prefix="mirrowisp-bench-")
    env = environment(home, display)
    sock = os.path.join(home, "support", "bridge.sock")
    watcher.ClearCalls()
    start = time.monotonic()
    process = subprocess.Popen([app], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    tray = shown = None
    while time.monotonic() - start < 10:
        now = time.monotonic()
        if not display:
            if accepts(sock):
                shown = tray = now
                break
        else:
            if tray is None and any(c[1] == "RegisterStatusNotifierItem" for c in watcher.GetCalls()):
                tray = now
            if shown is None and island_mapped(process.pid):
                shown = now
            if tray and shown:
                break
        time.sleep(0.002)
    process.terminate()
    process.wait(10)
    if tray is None or shown is None:
        return None
    return (max(tray, shown) - start) * 1000


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    args = parser.parse_args()
    DBusTestCase.start_session_bus()
    bus = DBusTestCase.get_dbus(system_bus=False)
    watcher = start_watcher(bus)
    try:
        figures = {}
        for display in (True, False):
            times = [t for t in (run_once(args.app, display, watcher) for _ in range(RUNS)) if t is not None]
            figures[display] = statistics.median(times) if times else float("nan")
        print("App start-up, median of %d runs" % RUNS)
        print("  %-52s %8.1f ms" % ("with a display: island mapped and tray registered", figures[True]))
        print("  %-52s %8.1f ms" % ("headless: bridge accepting connections (ref)", figures[False]))
        print("  target: under 400 ms with a display")
    finally:
        DBusTestCase.tearDownClass()


if __name__ == "__main__":
    main()
