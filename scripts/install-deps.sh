#!/usr/bin/env bash
# Installs the Debian packages listed in debian-packages.txt that are missing.
# A no-op when everything is there; uses sudo only when not root.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
mapfile -t wanted < <(grep -v '^\s*#' "$here/debian-packages.txt" | sed '/^\s*$/d')
missing=()
for pkg in "${wanted[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$pkg")
    fi
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi
echo "Installing missing packages: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
