#!/usr/bin/env bash
# Sets everything up on a fresh Debian 12, builds Mirrowisp and runs it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target mirrowisp mirrowisp-bridge
exec build/bin/mirrowisp "$@"
