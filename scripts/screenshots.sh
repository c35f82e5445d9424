#!/usr/bin/env bash
# Renders the editor pictures in docs/ from the editor's snapshot tests (headless).
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${KELFINER_BUILD_DIR:-build}
cmake --build "$build_dir" --target gui_tests --parallel "$(nproc 2>/dev/null || echo 2)"
shots=$(mktemp -d)
KELFINER_SCREENSHOTS="$shots" "$build_dir/tests/gui_tests" --gtest_filter='*Snapshot*' > /dev/null
cp "$shots/editor-dark-760x480.png" docs/editor-dark.png
cp "$shots/editor-steel-760x480.png" docs/editor-steel.png
rm -r "$shots"
echo "docs/editor-dark.png and docs/editor-steel.png written"
