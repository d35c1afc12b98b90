#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the Debian packages Orvane needs that are not installed yet. Safe to run again: with everything
# present it changes nothing and asks for no privileges.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
mapfile -t wanted < <(grep -v -E '^\s*(#|$)' "$here/debian-packages.txt")

missing=()
for package in "${wanted[@]}"; do
    status="$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)"
    [ "$status" = "installed" ] || missing+=("$package")
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing missing Debian packages: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    sudo=()
elif command -v sudo >/dev/null 2>&1; then
    sudo=(sudo)
else
    echo "These packages are missing and this user cannot install them (not root, no sudo): ${missing[*]}" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
