#!/usr/bin/env bash
# The controller's three figures, each against a reference taken in the same run:
#  1. --bench at 1280x720 with the test pattern: whole frames against the read-back +
#     publish floor (and a memcpy of the same bytes);
#  2. timer accuracy at 30 fps for 10 s: how far frame starts land from their schedule;
#  3. start-up to the first published frame, headless.
# Usage: bench/app/run-app-bench.sh [build-folder]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
bin="$root/${1:-build}/app/lumaveil"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
export XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" LUMAVEIL_SHM_PREFIX="lvbench.$$."

echo "frame at 1280x720 (test pattern) vs read-back + publish floor:"
"$bin" --headless --bench --frames 300 --video-size 1280x720 --source "Test Pattern" 2>/dev/null | tail -1

echo "timer at 30 fps for 10 s (late_*: distance of frame starts from their schedule):"
"$bin" --headless --fps 30 --frames 300 2>/dev/null | tail -1

echo "start-up to first published frame, five runs (first_frame_ms; one period is 33 ms at 30 fps):"
for _ in 1 2 3 4 5; do
    "$bin" --headless --fps 30 --frames 1 2>/dev/null | tail -1
done
