#!/usr/bin/env bash
# Installs every Debian package Mirrowisp needs to build, run and test.
# Idempotent and non-interactive; works as root, uses sudo otherwise.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build ccache pkg-config clang lld clang-format git
  # Qt 6
  qt6-base-dev qt6-base-dev-tools qt6-declarative-dev libgl-dev qt6-svg-dev
  # the island's views at run time and for qmllint (QML modules), and its X11 window plumbing
  qml6-module-qtquick qml6-module-qtquick-shapes qml6-module-qtquick-layouts qml6-module-qtquick-window
  qml6-module-qtquick-controls qml6-module-qtquick-templates qml6-module-qtqml qml6-module-qtqml-models qml6-module-qtqml-workerscript
  libxcb-shape0-dev libxcb-xinput-dev
  # libraries
  libsqlite3-dev
  # the shelf: ZIP archives, and WebP among the image formats it converts to
  libzip-dev qt6-image-formats-plugins
  # tests and benchmarks
  googletest libgtest-dev libgmock-dev libbenchmark-dev python3 procps
  # end-to-end tests: agents run in tmux, the app on a private session bus; plugins are checked with node
  tmux dbus dbus-daemon bsdutils coreutils nodejs
  # raising X11 windows, and its test under a virtual X server with a window manager
  libxcb1-dev libxcb-ewmh-dev xvfb openbox
  # the island's window tests: a compositor for translucency, xdotool for the pointer, screenshots
  xcompmgr xdotool x11-utils x11-xserver-utils imagemagick
  # the Debian package (cpack -G DEB reads library dependencies with dpkg-shlibdeps and file) and its
  # check: the desktop entry, the metainfo and its releases
  dpkg-dev file desktop-file-utils appstream libxml2-utils
  # now playing: a real MPRIS player for its tests, and python3-dbusmock for staged players
  mpv mpv-mpris python3-dbusmock
  # the volume through libpulse, and its tests against a private PulseAudio daemon driven with pactl
  libpulse-dev pulseaudio pulseaudio-utils
  # the backlight's change events through udev, and a fake backlight device for their test
  libudev-dev umockdev libumockdev-dev
  # the calendar: iCalendar files through libical; pull requests through the GitHub CLI
  libical-dev gh
  # calendars and task lists of the desktop through Evolution Data Server, and its daemons for tests
  libecal2.0-dev evolution-data-server
  # the shelf's conversions: HEIC images, a PDF's pages when combining, videos through ffmpeg
  libheif-dev libpoppler-qt6-dev ffmpeg
  # remote hosts: the OpenSSH client, and a throw-away server on loopback for their tests
  openssh-client openssh-server
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

# npm drives the end-to-end agent tests. Images whose nodejs bundles npm need nothing more; a plain
# Debian nodejs does not bundle it, and Debian's own npm package then provides it.
if ! command -v npm >/dev/null && ! printf '%s\n' "${missing[@]}" | grep -qx npm; then
  if dpkg-query -W -f='${Status}' nodejs 2>/dev/null | grep -q 'install ok installed' || [ ${#missing[@]} -gt 0 ]; then
    missing+=(npm)
  fi
fi

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  sudo=(sudo)
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
