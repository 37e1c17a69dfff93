#!/usr/bin/env bash
# Sets everything up on a fresh Debian 12, builds with warnings as errors and runs every test, then the
# unit tests again under AddressSanitizer and UndefinedBehaviorSanitizer, and the bridge's and the
# agents' tests under ThreadSanitizer.
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
# The bridge's and the agents' tests once more under ThreadSanitizer: they share queues and sockets
# between the main thread and the bridge's.
cmake --preset tsan >/dev/null
cmake --build --preset tsan
ctest --preset tsan -j "$(nproc)"
