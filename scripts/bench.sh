#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what is missing, builds the benchmarks optimised and runs them. Arguments go to every benchmark
# program (for example --benchmark_filter=Link).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup-debian.sh"

build="$root/build/bench"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build"

for program in "$build"/bench/*_bench; do
    echo "== $(basename "$program")"
    "$program" "$@"
done
