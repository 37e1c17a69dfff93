#!/usr/bin/env bash
# Builds the Debian package from an already built tree (cpack -G DEB, no rebuild) and checks it as a
# user would meet it: the files in their places, dependencies that cover what the app loads at run
# time, a valid desktop entry and metainfo, versions that agree, and programs that run from the
# unpacked package, far from the build tree.
#   scripts/check-package.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:?usage: check-package.sh BUILD_DIR}" && pwd)
source_dir=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

"${CPACK:-cpack}" -G DEB -B "$work/out" --config "$build/CPackConfig.cmake" >"$work/cpack.log" 2>&1 ||
  { cat "$work/cpack.log" >&2; exit 1; }
debs=("$work"/out/mirrowisp_*.deb)
[ -f "${debs[0]}" ] || { echo "no package in $work/out" >&2; exit 1; }
deb=${debs[0]}
echo "package: $(basename "$deb")"

# The files, where the desktop looks for them.
contents=$(dpkg-deb -c "$deb" | awk '{print $NF}')
for file in bin/mirrowisp bin/mirrowisp-bridge share/applications/io.mirrowisp.Mirrowisp.desktop \
  share/icons/hicolor/scalable/apps/io.mirrowisp.Mirrowisp.svg share/mirrowisp/CHANGELOG.md \
  share/metainfo/io.mirrowisp.Mirrowisp.metainfo.xml; do
  grep -qx "./usr/$file" <<<"$contents" || fail "the package lacks /usr/$file"
done

# Dependencies: the Qt libraries the programs link, and every QML module the views import, followed
# through the modules' own imports, as the package that ships it.
depends=$(dpkg-deb -f "$deb" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//')
needs=(libqt6core6 libqt6gui6 libqt6widgets6 libqt6dbus6 libqt6qml6 libqt6quick6 libqt6svg6)
qml_root=$(qtpaths6 --query QT_INSTALL_QML 2>/dev/null || echo /usr/lib/x86_64-linux-gnu/qt6/qml)
mapfile -t queue < <(sed -n 's/^import \([A-Za-z][A-Za-z0-9_.]*\).*/\1/p' "$source_dir"/src/*/qml/*.qml | sort -u)
declare -A seen=()
while [ ${#queue[@]} -gt 0 ]; do
  module=${queue[0]}
  queue=("${queue[@]:1}")
  [ -z "${seen[$module]:-}" ] || continue
  seen[$module]=1
  [ ! -f "$build/qml/${module//.//}/qmldir" ] || continue # one of the app's own, inside the program
  qmldir="$qml_root/${module//.//}/qmldir"
  owner=$(dpkg-query -S "$qmldir" 2>/dev/null | cut -d: -f1) ||
    { fail "no installed package ships the QML module $module"; continue; }
  needs+=("$owner")
  mapfile -t -O ${#queue[@]} queue < <(awk '$1 == "import" || $1 == "depends" {print $2}' "$qmldir")
done
for package in $(printf '%s\n' "${needs[@]}" | sort -u); do
  grep -qx "$package" <<<"$depends" || fail "Depends lacks $package"
done
dpkg-deb -f "$deb" Recommends | grep -qw xdg-utils || fail "Recommends lacks xdg-utils"

dpkg-deb -x "$deb" "$work/root"
root="$work/root"
desktop-file-validate "$root/usr/share/applications/io.mirrowisp.Mirrowisp.desktop" ||
  fail "the desktop entry is invalid"
appstreamcli validate --no-net "$root/usr/share/metainfo/io.mirrowisp.Mirrowisp.metainfo.xml" ||
  fail "the metainfo is invalid"

# One version everywhere: the package, the program, the changelog and the metainfo's releases.
version=$(dpkg-deb -f "$deb" Version)
[ "$("$root/usr/bin/mirrowisp" --version)" = "mirrowisp $version" ] ||
  fail "mirrowisp --version does not say $version"
changelog=$(sed -n 's/^## v\([0-9][0-9.]*\)$/\1/p' "$root/usr/share/mirrowisp/CHANGELOG.md")
releases=$(xmllint --xpath '//releases/release/@version' "$root/usr/share/metainfo/io.mirrowisp.Mirrowisp.metainfo.xml" |
  sed 's/ *version="\([^"]*\)"/\1\n/g' | sed '/^$/d')
[ "$(head -n1 <<<"$changelog")" = "$version" ] || fail "the changelog's newest heading is not v$version"
[ "$changelog" = "$releases" ] ||
  fail "the metainfo's releases ($(tr '\n' ' ' <<<"$releases")) differ from the changelog's ($(tr '\n' ' ' <<<"$changelog"))"

# The unpacked programs together, on a private session bus with a home of their own: the app starts,
# the hook tool reaches it, and ctl lists the session it reported.
mkdir -p "$work/home"
cat >"$work/run.sh" <<'EOF'
set -u
root=$1 work=$2
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config MIRROWISP_SUPPORT_DIR=$work/support
unset DISPLAY WAYLAND_DISPLAY
"$root/usr/bin/mirrowisp" >"$work/app.log" 2>&1 &
app=$!
trap 'kill $app 2>/dev/null; wait $app' EXIT
for _ in $(seq 100); do [ -S "$work/support/bridge.sock" ] && break; sleep 0.1; done
echo '{"hook_event_name":"SessionStart","session_id":"package-check","cwd":"/tmp"}' |
  "$root/usr/bin/mirrowisp-bridge" --agent claude || exit 1
for _ in $(seq 50); do
  "$root/usr/bin/mirrowisp" ctl sessions 2>/dev/null | grep -q '"sessionID": "package-check"' && exit 0
  sleep 0.1
done
exit 1
EOF
dbus-run-session -- bash "$work/run.sh" "$root" "$work" 2>/dev/null ||
  { cat "$work/app.log" >&2 2>/dev/null; fail "the unpacked programs did not carry a session from the hook tool to ctl"; }

if [ "$failures" -gt 0 ]; then
  exit 1
fi
echo "package ok"
