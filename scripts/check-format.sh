#!/usr/bin/env bash
# Fails when a tracked C or C++ source differs from the project's clang-format style.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v clang-format >/dev/null; then
  echo "clang-format is not installed" >&2
  exit 1
fi
# New files count before they are committed, so a check before a commit sees them too.
git ls-files --cached --others --exclude-standard '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror
