#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what is missing, builds Orvane (optimised, without tests or benchmarks) and makes its Debian package.
# Prints the path of the .deb. Deployment values can be given as CMake options, for example
#   scripts/package.sh -DOrvaneWebsiteURL=https://example.com/orvane -DCFBundleVersion=42
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup-debian.sh"

build="$root/build/package"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVANE_BUILD_TESTS=OFF \
    -DORVANE_BUILD_BENCHMARKS=OFF "$@" >/dev/null
cmake --build "$build"

# A package left from an earlier version would otherwise be mistaken for this one.
rm -f "$build"/orvane_*.deb
(cd "$build" && cpack --config CPackConfig.cmake >/dev/null)

packages=("$build"/orvane_*.deb)
if [[ ${#packages[@]} -ne 1 || ! -f "${packages[0]}" ]]; then
    echo "cpack did not leave exactly one orvane package in $build" >&2
    exit 1
fi
echo "${packages[0]}"
