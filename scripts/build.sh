#!/usr/bin/env bash
# Configures and builds one build folder: scripts/build.sh <folder> [extra cmake args...]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
dir="$1"; shift
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache); fi
if [ ! -f "$root/$dir/build.ninja" ]; then
    cmake -S "$root" -B "$root/$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "$root/$dir" -- -j"$(nproc)"
