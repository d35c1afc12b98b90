#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The alert on a Wayland desktop (headless sway, a full-screen terminal focused): time from `orvane test-alert` to
# the alert on screen, for the first alert after start (cold: the Qt Quick scene is compiled then) and for later
# ones (warm), and the tray process's resident memory idle, with the alert showing and after it closed. The alert
# counts as visible when a screenshot of the output shows it.
# Usage: wayland-alert.sh <path to orvane>   (ORVANE_BENCH_ALERTS alerts, default 5)
set -euo pipefail
count="${ORVANE_BENCH_ALERTS:-5}"
[[ -n "${ORVANE_WAYLAND_TEST_USER_RUN:-}" ]] || set -- "$(realpath "$1")" "$(mktemp -d /tmp/orvane-bench.XXXXXX)"
source "$(dirname "${BASH_SOURCE[0]}")/../../tests/wayland/session.sh"

start_sway /dev/null
foot --fullscreen -- sleep infinity >/dev/null 2>&1 &
pids+=($!)
wait_for "the terminal did not start" sh -c 'swaymsg -t get_tree | grep -q foot'

start_orvane
pid="${pids[-1]}"
rss() { awk '/^VmRSS/ { printf "%.1f MB", $2 / 1024 }' "/proc/$pid/status"; }
sleep 10 # start-up: calendars read, timers armed
echo "resident while idle: $(rss)"
shot() { grim -t ppm -o HEADLESS-1 -; }
alert_on() { (($(accent_pixels shot) > 1000)); }
alert_gone() { (($(accent_pixels shot) == 0)); }
for round in $(seq 1 "$count"); do
    started=$(date +%s%N)
    "$orvane_binary" test-alert >/dev/null
    wait_for "the alert did not show" alert_on
    label=warm
    ((round == 1)) && label=cold
    echo "trigger to alert visible ($label): $((($(date +%s%N) - started) / 1000000)) ms"
    ((round == 1)) && echo "resident with the alert showing: $(rss)"
    press_until Escape alert_gone
done
sleep 130
echo "resident two minutes after the last alert closed: $(rss)"
