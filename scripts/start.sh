#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what is missing, builds Orvane (optimised) and starts it. Arguments are passed on to orvane.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup-debian.sh"

build="$root/build/release"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TESTS=OFF \
    -DORVANE_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" --target orvane

exec "$build/src/app/orvane" "$@"
