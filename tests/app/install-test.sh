#!/usr/bin/env bash
# Installs the build into a scratch prefix and runs the installed and a copied binary from
# outside the source tree: usage: install-test.sh <build folder> <scratch folder>
set -euo pipefail
build="$1"
scratch="$2"
rm -rf "$scratch"
mkdir -p "$scratch"
prefix="$scratch/usr"
cmake --install "$build" --prefix "$prefix" >/dev/null
fail() { echo "FAIL: $*" >&2; exit 1; }

for path in bin/lumaveil bin/lumaveil-vcam share/lumaveil/Effects/Clock.fs share/lumaveil/Resources/pip.fs \
            share/lumaveil/Compositions share/applications/lumaveil.desktop \
            share/icons/hicolor/scalable/apps/lumaveil.svg; do
    [ -e "$prefix/$path" ] || fail "cmake --install left out $path"
done
grep -qx "Exec=lumaveil" "$prefix/share/applications/lumaveil.desktop" || fail "the desktop entry does not start lumaveil"

# Nothing from the build environment may point the installed binary back at the source tree.
run() {
    env -u LUMAVEIL_EFFECTS_DIR -u LUMAVEIL_COMPOSITIONS_DIR XDG_DATA_HOME="$scratch/data" \
        XDG_CONFIG_HOME="$scratch/config" QT_QPA_PLATFORM=offscreen "$@"
}

run "$prefix/bin/lumaveil" --version | grep -Eqx "lumaveil [0-9]+\.[0-9]+\.[0-9]+" || fail "--version"

# A composition in the system folder is listed; the picture-in-picture's own one never is.
cp "$prefix/share/lumaveil/Effects/Mirror.fs" "$prefix/share/lumaveil/Compositions/Third Party.fs"
run "$prefix/bin/lumaveil" --list-effects >"$scratch/list.txt"
grep -q "Clock .*bundled folder: $prefix/share/lumaveil/Effects/Clock.fs" "$scratch/list.txt" ||
    fail "bundled effects are not read from the prefix: $(cat "$scratch/list.txt")"
grep -q "Third Party .*system folder: $prefix/share/lumaveil/Compositions/" "$scratch/list.txt" ||
    fail "the system compositions folder is not read"
if grep -qi "pip.fs" "$scratch/list.txt"; then fail "the picture-in-picture composition is listed as an effect"; fi
grep -Eq "^  PIP +built-in" "$scratch/list.txt" || fail "PIP is missing: $(cat "$scratch/list.txt")"

run "$prefix/bin/lumaveil" --headless --frames 2 --video-size 64x48 --effect PIP >/dev/null 2>"$scratch/pip.txt" ||
    fail "the installed binary cannot run a picture-in-picture: $(cat "$scratch/pip.txt")"
if grep -q "not found" "$scratch/pip.txt"; then fail "$(cat "$scratch/pip.txt")"; fi

# A copied binary says where it looked instead of reading the source tree baked in at build time.
mkdir -p "$scratch/copy"
cp "$prefix/bin/lumaveil" "$scratch/copy/"
run "$scratch/copy/lumaveil" --list-effects >"$scratch/copy.txt" 2>"$scratch/copy-err.txt"
grep -q "no bundled Effects folder at $scratch/share/lumaveil/Effects" "$scratch/copy-err.txt" ||
    fail "a copied binary does not say its Effects folder is missing"
if grep -q "resources/Effects" "$scratch/copy.txt"; then fail "a copied binary reads the source tree"; fi
echo "install test passed"
