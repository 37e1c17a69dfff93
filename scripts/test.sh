#!/usr/bin/env bash
# Sets everything up on a fresh Debian 12, builds with warnings as errors and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/install-test-agents.sh
cmake --preset ci >/dev/null
cmake --build --preset ci
ctest --preset ci -j "$(nproc)"
