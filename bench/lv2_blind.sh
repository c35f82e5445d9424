#!/usr/bin/env bash
# Every built-in profile rendered blind through the LV2 bundle as a host plays it (a new
# instance, learning from the first sample) over the restore tasks of ../shared/eval, then, per
# profile and its own kind of material, how many tasks end closer to the clean original and how
# many further (by more than 0.25 dB), and the largest loudness change. Exit status 1 when a task
# ends further or moves loudness by more than 1 LU.
#     bench/lv2_blind.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cmake --build "$build" --target kelfiner_lv2_render > /dev/null
render=$(find "$build/bench" -type f -name kelfiner_lv2_render -perm -u+x | head -1)
json=$(mktemp --suffix .json)
args=()
for profile in automatic:0 music:1 music-dark:2 music-less-harsh:3 speech:4; do
    args+=(--cmd "$render {in} {out} ${profile#*:}" --name "${profile%%:*}")
done
/usr/bin/python3 ../shared/eval/eval.py --only restore --baselines none --json "$json" "${args[@]}" > /dev/null 2>&1
/usr/bin/python3 - "$json" <<'PY'
import json, sys
rows = {}
for r in json.load(open(sys.argv[1]))["results"]:
    rows.setdefault(r["task"], {})[r["method"]] = r
kinds = {"automatic": None, "music": "music", "music-dark": "music", "music-less-harsh": "music",
         "speech": "speech"}
bad = False
print("| profile | material | tasks | closer | further | mean removed | largest loudness change |")
print("|---|---|---|---|---|---|---|")
for method, kind in kinds.items():
    n = closer = further = 0
    removed = loudness = 0.0
    for task, results in rows.items():
        if kind and task.split("/")[1] != kind or "rms" not in results.get(method, {}):
            continue
        none, out = results["none"]["rms"], results[method]["rms"]
        n += 1
        closer += out < none
        further += out > none + 0.25
        removed += 100 * (none - out) / none
        loudness = max(loudness, abs(results[method]["dlu"]))
    print(f"| {method} | {kind or 'all'} | {n} | {closer} | {further} | {removed / max(n, 1):.0f} % "
          f"| {loudness:.1f} LU |")
    bad = bad or further > 0 or loudness > 1.0 or n == 0
sys.exit(1 if bad else 0)
PY
