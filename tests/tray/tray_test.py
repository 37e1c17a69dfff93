#!/usr/bin/python3
"""The app's tray item as a desktop's tray sees it: a StatusNotifierWatcher (python3-dbusmock) on a
session bus of the test's own, the real app under a virtual X server. The item registers, its menu
lists the app's items in order (with "What's New in X" after an update), a second launch shows the
running copy's settings window, which "Settings…" brings back rather than doubles, and "Quit Mirrowisp"
quits the app cleanly."""
import argparse
import json
import os
import subprocess
import sys
import tempfile
import time

import dbus
import dbusmock
from dbusmock import DBusTestCase

WATCHER = "org.kde.StatusNotifierWatcher"
MENU = "com.canonical.dbusmenu"


class Failure(Exception):
    pass


def wait_for(what, check, seconds=15):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = check()
        if value:
            return value
        time.sleep(0.1)
    raise Failure("timed out waiting for " + what)


def start_watcher(bus):
    DBusTestCase.spawn_server(WATCHER, "/StatusNotifierWatcher", WATCHER, system_bus=False,
                              stdout=subprocess.DEVNULL)
    mock = dbus.Interface(bus.get_object(WATCHER, "/StatusNotifierWatcher"), dbusmock.MOCK_IFACE)
    mock.AddProperties(WATCHER, {"IsStatusNotifierHostRegistered": True,
                                 "ProtocolVersion": dbus.Int32(0),
                                 "RegisteredStatusNotifierItems": dbus.Array([], signature="s")})
    mock.AddMethod(WATCHER, "RegisterStatusNotifierItem", "s", "", "")
    mock.AddMethod(WATCHER, "RegisterStatusNotifierHost", "s", "", "")
    return mock


def registered_item(mock):
    calls = [call for call in mock.GetCalls() if call[1] == "RegisterStatusNotifierItem"]
    return str(calls[0][2][0]) if calls else None


def visible_entries(menu):
    """The menu's visible entries as a host shows them: labels, "-" for a separator, with their ids."""
    menu.AboutToShow(dbus.Int32(0))
    _, layout = menu.GetLayout(dbus.Int32(0), dbus.Int32(-1), dbus.Array([], signature="s"))
    entries = []
    for child in layout[2]:
        item_id, props = int(child[0]), child[1]
        if not props.get("visible", True):
            continue
        label = "-" if props.get("type") == "separator" else str(props.get("label", ""))
        entries.append((label.replace("_", ""), item_id))
    return entries


def click(menu, entries, label):
    ids = dict(entries)
    if label not in ids:
        raise Failure("no %r in the menu: %s" % (label, [e[0] for e in entries]))
    menu.Event(dbus.Int32(ids[label]), "clicked", dbus.String("", variant_level=1), dbus.UInt32(0))


def window_named(name):
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", name],
                           capture_output=True, text=True)
    return found.stdout.split()


def run(args):
    DBusTestCase.start_session_bus()
    bus = DBusTestCase.get_dbus(system_bus=False)
    watcher = start_watcher(bus)

    home = tempfile.mkdtemp(prefix="mirrowisp-tray-")
    config = os.path.join(home, ".config", "mirrowisp")
    os.makedirs(config)
    # The guide was seen, and the last launch was of an older version: this one is an update.
    with open(os.path.join(config, "defaults.json"), "w") as defaults:
        json.dump({"didCompleteOnboarding": True, "lastLaunchedVersion": "0.0.1"}, defaults)
    support = os.path.join(home, "support")
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(home, ".config"),
               XDG_DATA_HOME=os.path.join(home, ".local", "share"), MIRROWISP_SUPPORT_DIR=support)
    env.pop("QT_QPA_PLATFORM", None)
    app = subprocess.Popen([args.app], env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    try:
        service = wait_for("the tray item to register", lambda: registered_item(watcher))
        item = bus.get_object(service, "/StatusNotifierItem")
        props = dbus.Interface(item, dbus.PROPERTIES_IFACE)
        if props.Get("org.kde.StatusNotifierItem", "ToolTip")[2] != "Mirrowisp":
            raise Failure("the item's tooltip does not name the app")
        menu_path = props.Get("org.kde.StatusNotifierItem", "Menu")
        menu = dbus.Interface(bus.get_object(service, menu_path), MENU)

        version = subprocess.run([args.app, "--version"], capture_output=True, text=True).stdout.split()[-1]
        entries = visible_entries(menu)
        expected = ["Settings…", "Setup Guide…", "About Mirrowisp", "What's New in " + version,
                    "Send Feedback…", "-", "Quit Mirrowisp"]
        if [label for label, _ in entries] != expected:
            raise Failure("the menu reads %s, not %s" % ([e[0] for e in entries], expected))

        # This launch follows an update: the island flashes it a few seconds after it shows.
        def flashing():
            shown = subprocess.run([args.app, "ctl", "island"], env=env, capture_output=True, text=True)
            islands = json.loads(shown.stdout or "[]")
            return islands and islands[0].get("content", "").startswith("transient-")
        wait_for("the island's flash of the update", flashing)

        # Launched again while it runs, the app brings its settings forward in the running copy.
        second = subprocess.run([args.app], env=env, capture_output=True, text=True, timeout=30)
        if second.returncode != 0:
            raise Failure("a second launch exited %d: %s" % (second.returncode, second.stderr))
        wait_for("the settings window", lambda: window_named("Mirrowisp Settings"))
        click(menu, entries, "Settings…")
        time.sleep(0.5)  # room for a second window to appear, which must not
        if len(window_named("Mirrowisp Settings")) != 1:
            raise Failure("the menu opened another settings window")

        socket = os.path.join(support, "bridge.sock")
        if not os.path.exists(socket):
            raise Failure("no agent socket at %s while the app ran" % socket)
        click(menu, entries, "Quit Mirrowisp")
        try:
            status = app.wait(timeout=15)
        except subprocess.TimeoutExpired:
            raise Failure("the app did not quit from the menu")
        if status != 0:
            raise Failure("the app quit with status %d" % status)
        if os.path.exists(socket):
            raise Failure("the socket was left behind")
        print("PASS: the tray item registered, listed its menu and quit cleanly")
        return 0
    finally:
        if app.poll() is None:
            app.kill()
        output = app.communicate()[0]
        if output:
            print(output)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--app", required=True)
    args = parser.parse_args()
    try:
        return run(args)
    except (Failure, dbus.DBusException) as failure:
        print("FAIL: %s" % failure)
        return 1
    finally:
        DBusTestCase.tearDownClass()


if __name__ == "__main__":
    sys.exit(main())
