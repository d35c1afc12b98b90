#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what is missing, builds Orvane (optimised) and starts it. Arguments are passed on to orvane.
# Without a desktop session (no DISPLAY or WAYLAND_DISPLAY) it shows Orvane working in a private headless session
# instead: a sample meeting raises the alert, and a screenshot of it is saved.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup-debian.sh"

build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TESTS=OFF \
    -DORVANE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" --target orvane

if [[ -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" && $# -eq 0 ]]; then
    exec "$root/scripts/demo-session.sh" "$build/src/app/orvane" "$PWD/orvane-demo-alert.png"
fi
exec "$build/src/app/orvane" "$@"
