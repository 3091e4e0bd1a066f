#!/usr/bin/env bash
# The headless main job's figures: full frames against the read-back + publish floor at
# 1280x720, timer accuracy at 30 fps over 10 s, and start-up to the first published frame.
# usage: bench/app/app-bench.sh [build folder]   (default: build)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
lumaveil="$root/${1:-build}/app/lumaveil"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# A private preference and setups folder, so the run neither reads nor changes the user's.
export XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" LUMAVEIL_SHM_PREFIX="lvbench.$$."

last_json() { grep '^{' | tail -n 1; }
field() { python3 -c 'import json,sys; print(json.loads(sys.argv[1])[sys.argv[2]])' "$1" "$2"; }

bench_frames() {
    local bench
    bench=$("$lumaveil" --headless --bench --video-size 1280x720 --frames 300 "$@" 2>/dev/null | last_json)
    echo "bench 1280x720, $(field "$bench" chain): $bench"
    echo "  frame vs read-back+publish floor (p50): $(field "$bench" ratio_to_floor)x," \
         "$(field "$bench" fps) fps against a floor of $(field "$bench" floor_fps) fps;" \
         "memcpy of the frame $(field "$bench" memcpy_p50_ms) ms"
}
bench_frames --source "Test Pattern"
# The default chain: the test pattern with its overlay.
bench_frames

timer=$("$lumaveil" --headless --fps 30 --frames 300 2>/dev/null | last_json)
echo "timer 30 fps, 10 s: $timer"
echo "  frame start vs schedule: p50 $(field "$timer" late_p50_ms) ms, p99 $(field "$timer" late_p99_ms) ms" \
     "(period 33.3 ms)"

starts=()
for _ in 1 2 3 4 5; do
    run=$("$lumaveil" --headless --frames 1 2>/dev/null | last_json)
    starts+=("$(field "$run" first_frame_ms)")
done
median=$(printf '%s\n' "${starts[@]}" | sort -n | sed -n 3p)
echo "start-up to first published frame (5 runs, ms): ${starts[*]}; median $median ms"
