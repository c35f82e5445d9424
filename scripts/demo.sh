#!/usr/bin/env bash
# Installs what is missing, builds the command-line tool and corrects the built-in test recording:
# writes kelfiner-demo/muffled.wav, kelfiner-demo/corrected.wav and kelfiner-demo/correction.png.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh

build_dir=${KELFINER_BUILD_DIR:-build}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build_dir" --target kelfiner --parallel "$jobs"

"$build_dir/cli/kelfiner" demo -o kelfiner-demo
