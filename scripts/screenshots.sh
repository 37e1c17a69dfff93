#!/usr/bin/env bash
# Renders the screenshots for the README into docs/screenshots: the island, the settings pages and
# the setup guide, from the real windows under a private X server. Builds what it needs first.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset ci >/dev/null
cmake --build --preset ci --target island_x11_tests front_x11_tests media_x11_tests widgets_x11_tests mirrowisp-bridge
mkdir -p docs/screenshots
MIRROWISP_SCREENSHOT_DIR="$PWD/docs/screenshots" ./build-ci/tests/island_x11_tests --gtest_filter='IslandScreenshots.*'
MIRROWISP_SCREENSHOT_DIR="$PWD/docs/screenshots" ./build-ci/tests/front_x11_tests --gtest_filter='FrontScreenshots.*'
MIRROWISP_SCREENSHOT_DIR="$PWD/docs/screenshots" ./build-ci/tests/media_x11_tests
MIRROWISP_SCREENSHOT_DIR="$PWD/docs/screenshots" ./build-ci/tests/widgets_x11_tests
ls docs/screenshots
