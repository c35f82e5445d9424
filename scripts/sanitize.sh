#!/usr/bin/env bash
# The hostile-input pass, run by scripts/test.sh after the normal tests (and by CI through it):
#  1. everything built with clang, AddressSanitizer + UndefinedBehaviorSanitizer (with
#     float-cast-overflow) and libFuzzer's instrumentation, and the whole test suite run;
#  2. every fuzz target run from its seed corpus: by default a fixed stretch of the search (a set
#     seed and number of runs, about a minute each here), so that a red run names a fault anyone
#     can repeat rather than a roll of the dice; KELFINER_FUZZ_SECONDS=N searches afresh, with a
#     random seed, for N seconds a target;
#  3. the engine's threaded tests built and run under ThreadSanitizer.
# Known faults inside JUCE 7.0.5 are silenced by name in tests/sanitizers/*.supp, nothing else.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc 2>/dev/null || echo 2)
seconds=${KELFINER_FUZZ_SECONDS:-}
sanitize_dir=${KELFINER_SANITIZE_DIR:-build-sanitize}
tsan_dir=${KELFINER_TSAN_DIR:-build-tsan}

run=()
if [ -z "${DISPLAY:-}" ] && command -v xvfb-run > /dev/null; then
    run=(xvfb-run -a)
fi

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export LSAN_OPTIONS=suppressions=$root/tests/sanitizers/lsan.supp
export UBSAN_OPTIONS=suppressions=$root/tests/sanitizers/ubsan.supp:print_stacktrace=1:halt_on_error=1

echo "== AddressSanitizer + UndefinedBehaviorSanitizer (clang)"
CC=clang CXX=clang++ cmake -S . -B "$sanitize_dir" -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_FLAGS_DEBUG="-g -O1" -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
    -DKELFINER_SANITIZE=ON -DKELFINER_FUZZ=ON -DKELFINER_BUILD_BENCHMARKS=OFF > /dev/null
cmake --build "$sanitize_dir" --parallel "$jobs"
"${run[@]}" ctest --test-dir "$sanitize_dir" --output-on-failure --parallel "$jobs"

if [ -n "$seconds" ]; then
    echo "== Fuzzing, ${seconds} s a target from a random seed"
else
    echo "== Fuzzing, a fixed stretch of each target's search"
fi
failed=()
for target in StateFuzzer PresetFuzzer FilterFileFuzzer AudioFileFuzzer LicenceFuzzer; do
    # Runs chosen for about a minute each on a 2-core VM (the state target builds a whole
    # processor per input).
    dictionary=()
    case $target in
        StateFuzzer) seeds=$root/tests/fuzz/corpus/state runs=6000 dictionary=(-dict="$root/tests/fuzz/dict/state.dict") ;;
        PresetFuzzer) seeds=$root/tests/fuzz/corpus/preset runs=300000 dictionary=(-dict="$root/tests/fuzz/dict/xml.dict") ;;
        FilterFileFuzzer) seeds=$root/tests/fuzz/corpus/filter runs=1500000 ;;
        AudioFileFuzzer) seeds=$root/tests/fuzz/corpus/audio runs=50000 dictionary=(-dict="$root/tests/fuzz/dict/audio.dict") ;;
        LicenceFuzzer) seeds=$root/tests/fuzz/corpus/licence runs=200000 ;;
    esac
    if [ -n "$seconds" ]; then
        bound=(-max_total_time="$seconds")
    else
        bound=(-seed=1 -runs="$runs")
    fi
    found=$(mktemp -d)
    echo "-- $target"
    # New inputs go to a scratch folder; a crash leaves its input in the build folder.
    if ! (cd "$sanitize_dir" && "./tests/fuzz/$target" "$found" "$seeds" "${bound[@]}" \
        -timeout=20 -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 "${dictionary[@]}" \
        > "$target.log" 2>&1); then
        failed+=("$target")
        # The finding, its first frames and the input, without the shadow-memory map.
        grep -m 1 -A 24 -E "ERROR|WARNING:|runtime error|deadly signal|timeout" "$sanitize_dir/$target.log" || true
        grep -E "^(SUMMARY|Base64|artifact_prefix)" "$sanitize_dir/$target.log" || tail -n 20 "$sanitize_dir/$target.log"
    else
        grep -E "^Done" "$sanitize_dir/$target.log" || tail -n 6 "$sanitize_dir/$target.log"
    fi
    rm -r "$found"
done
if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzzing found faults in: ${failed[*]} (inputs in $sanitize_dir/crash-*, oom-*, timeout-*)" >&2
    exit 1
fi

echo "== ThreadSanitizer (engine)"
cmake -S . -B "$tsan_dir" -DCMAKE_BUILD_TYPE=Debug -DKELFINER_TSAN=ON \
    -DKELFINER_BUILD_BENCHMARKS=OFF > /dev/null
cmake --build "$tsan_dir" --target engine_tests --parallel "$jobs"
ctest --test-dir "$tsan_dir" -L engine --output-on-failure --parallel "$jobs"
