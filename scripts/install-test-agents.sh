#!/usr/bin/env bash
# Installs the agent CLIs the end-to-end agent tests drive, pinned, into a test-only cache folder.
# Idempotent: a version already in place is left alone. Fails loudly when the registry is unreachable,
# so the agent tests fail instead of passing without their agent.
set -euo pipefail

cache="${XDG_CACHE_HOME:-$HOME/.cache}/mirrowisp-tests"

# Runs an installed CLI's --version with a throwaway home, so checking never writes to the real one.
runs() {
  local home rc=0
  home="$(mktemp -d)"
  HOME="$home" "$1" --version >/dev/null 2>&1 || rc=$?
  rm -rf "$home"
  return $rc
}

# install_npm <folder name> <package@version> <executable name>
install_npm() {
  local dir="$cache/$1" package="$2" bin="$3"
  if [ -x "$dir/node_modules/.bin/$bin" ] && runs "$dir/node_modules/.bin/$bin"; then
    return 0
  fi
  if ! command -v npm >/dev/null; then
    echo "npm is not installed; cannot install $package" >&2
    return 1
  fi
  echo "Installing $package into $dir"
  # A half-finished earlier attempt must not count as installed.
  rm -rf "$dir"
  mkdir -p "$dir"
  npm install --no-audit --no-fund --loglevel=error --prefix "$dir" "$package"
  if ! runs "$dir/node_modules/.bin/$bin"; then
    echo "$package installed but $dir/node_modules/.bin/$bin does not run" >&2
    return 1
  fi
}

install_npm claude-code-2.1.197 @anthropic-ai/claude-code@2.1.197 claude
# Codex copies itself (~400 MB) into ~/.codex/packages on every interactive run: its test gives it a
# throwaway home and removes it afterwards. `--version` copies nothing.
install_npm codex-0.169.0 @openai/codex@0.169.0 codex
