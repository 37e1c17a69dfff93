#!/usr/bin/env bash
# Sets everything up on a fresh Debian 12, builds with warnings as errors and runs every test, then the
# unit tests again under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/install-test-agents.sh
cmake --preset ci >/dev/null
cmake --build --preset ci
ctest --preset ci -j "$(nproc)"
cmake --preset asan >/dev/null
cmake --build --preset asan
ctest --preset asan -j "$(nproc)"
