#!/usr/bin/env bash
# Configures and builds one build folder: scripts/build.sh <folder> [extra cmake args...] [-- targets...]
# (every target when none are named).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
dir="$1"; shift
configure=()
targets=()
while [ $# -gt 0 ]; do
    if [ "$1" = "--" ]; then shift; targets=("$@"); break; fi
    configure+=("$1"); shift
done
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache); fi
if [ ! -f "$root/$dir/build.ninja" ]; then
    cmake -S "$root" -B "$root/$dir" -G Ninja "${launcher[@]}" "${configure[@]}" >/dev/null
fi
if [ ${#targets[@]} -gt 0 ]; then
    cmake --build "$root/$dir" --target "${targets[@]}" -- -j"$(nproc)"
else
    cmake --build "$root/$dir" -- -j"$(nproc)"
fi
