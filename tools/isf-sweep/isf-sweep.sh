#!/usr/bin/env bash
# Checks a folder of ISF files before a show: one line per file (loaded, compiled,
# rendered, or the error that stopped it); transitions are run at 0, 0.5 and 1.
# Usage: tools/isf-sweep/isf-sweep.sh FOLDER [BUILD_FOLDER]   (BUILD_FOLDER defaults to build)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
if [ $# -lt 1 ] || [ $# -gt 2 ]; then
    echo "usage: $0 FOLDER [BUILD_FOLDER]" >&2
    exit 2
fi
build="${2:-$root/build}"
sweep="$build/tools/isf-sweep/isf_sweep"
if [ ! -x "$sweep" ]; then
    echo "$sweep is missing: build it with scripts/build.sh $(basename "$build") -- isf_sweep" >&2
    exit 2
fi
QT_QPA_PLATFORM="${QT_QPA_PLATFORM:-offscreen}" exec "$sweep" "$1"
