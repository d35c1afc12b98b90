#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Orvane's cost while it waits in the tray: resident memory and CPU time over a minute with no alert showing, in a
# private session (D-Bus, Evolution Data Server, PipeWire, Xvfb with openbox) with one meeting later today; then with
# the test alert on screen, and once more two minutes after it closed (what a day with one alert behind it costs).
# Usage: idle-footprint.sh <path to orvane> [idle seconds, default 60]
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/private-desktop.sh"
orvane="$(realpath "$1")"
idle="${2:-60}"
private_desktop_enter "$orvane" "$idle"

private_desktop_add_event idle@example.invalid Later '+3 hours' '+4 hours'
mkdir -p "$XDG_CONFIG_HOME/velmont.com"
printf '[General]\nOrvane.hasCompletedCalendarOnboarding.v2=true\n' >"$XDG_CONFIG_HOME/velmont.com/Orvane.conf"
private_desktop_start_display
# The desktop's PipeWire daemon, which Orvane watches for screen sharing.
pipewire >/dev/null 2>&1 &
private_desktop_pids+=($!)
until [[ -S "$XDG_RUNTIME_DIR/pipewire-0" ]]; do sleep 0.1; done

"$orvane" 2>/dev/null &
pid=$!
private_desktop_pids+=($pid)
sleep 10 # start-up: calendars read, timers armed

ticks() { awk '{ print $14 + $15 }' "/proc/$pid/stat"; }
# Anonymous memory (heap, stacks, written copies of library data): what the process itself holds, as opposed to the
# libraries' file pages that resident memory also counts and the kernel can drop and read again at will.
anonymous_mb() { awk '/^Anonymous:/ { printf "%.1f", $2 / 1024 }' "/proc/$pid/smaps_rollup"; }
hz="$(getconf CLK_TCK)"
before="$(ticks)"
sleep "$idle"
after="$(ticks)"
rss="$(awk '/^VmRSS/ { print $2 }' "/proc/$pid/status")"
hwm="$(awk '/^VmHWM/ { print $2 }' "/proc/$pid/status")"
wakeups="$(awk '/^voluntary_ctxt_switches/ { v = $2 } /^nonvoluntary_ctxt_switches/ { n = $2 } END { print v + n }' "/proc/$pid/status")"
printf 'resident while idle: %.1f MB (peak %.1f MB), anonymous %s MB\n' "$(bc -l <<<"$rss / 1024")" \
    "$(bc -l <<<"$hwm / 1024")" "$(anonymous_mb)"
printf 'CPU over %s s idle: %s ms\n' "$idle" "$(( (after - before) * 1000 / hz ))"
echo "context switches since start (main thread): $wakeups"
"$orvane" test-alert >/dev/null && sleep 3
rss="$(awk '/^VmRSS/ { print $2 }' "/proc/$pid/status")"
printf 'resident with the test alert showing: %.1f MB, anonymous %s MB\n' "$(bc -l <<<"$rss / 1024")" "$(anonymous_mb)"
# Escape answers the test alert; the alert's QML engine goes with it, Qt Quick's libraries stay mapped.
xdotool key Escape && sleep 130
rss="$(awk '/^VmRSS/ { print $2 }' "/proc/$pid/status")"
printf 'resident two minutes after the alert closed: %.1f MB, anonymous %s MB\n' "$(bc -l <<<"$rss / 1024")" \
    "$(anonymous_mb)"
