#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs what is missing, builds Orvane with AddressSanitizer and UndefinedBehaviorSanitizer, warnings as
# errors, and runs the whole test suite. Set ORVANE_SANITIZE=OFF for a plain build.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup-debian.sh"

sanitize="${ORVANE_SANITIZE:-ON}"
build="$root/build/test-sanitize-$sanitize"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORVANE_SANITIZE="$sanitize" -DORVANE_WERROR=ON \
    >/dev/null
cmake --build "$build"

# Not strict_string_checks: the X keyboard library hands strndup buffers without a terminating NUL, which that
# option reports as an overflow in code that is not ours.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$(nproc)"

# The fuzzers need clang's libFuzzer: a build of their own, then each runs for a bounded time from its seed corpus.
fuzz_build="$root/build/fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$fuzz_build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DORVANE_BUILD_FUZZERS=ON -DORVANE_BUILD_TESTS=OFF -DORVANE_BUILD_BENCHMARKS=OFF -DORVANE_WERROR=ON >/dev/null
cmake --build "$fuzz_build" --target fuzzers
ctest --test-dir "$fuzz_build" --output-on-failure --no-tests=error -L fuzz
