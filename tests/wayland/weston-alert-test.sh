#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The alert on weston 10, headless, with a native terminal open: weston has no layer-shell, so the alert comes as X11
# windows through XWayland. The alert shows, and weston lives on with it: it keeps drawing the alert's countdown and
# takes new Wayland and X11 clients. (An override-redirect window carrying _NET_WM_STATE_FULLSCREEN made weston 10
# abort as it mapped.) The headless backend has no input seat, so nothing is typed or dismissed.
#
# Usage: weston-alert-test.sh ORVANE_BINARY ARTIFACTS_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/session.sh"

# --debug opens the screenshot protocol. weston listens for X clients at once and starts XWayland for the first one.
weston --backend=headless-backend.so --use-pixman --width=1440 --height=900 --xwayland --debug \
    --socket=wayland-weston --idle-time=0 --log="$work/weston.log" >"$work/weston-output.log" 2>&1 &
weston=$!
pids+=("$weston")
wait_for "weston did not open its X11 display" grep -q "xserver listening on display :" "$work/weston.log"
DISPLAY="$(grep -o "xserver listening on display :[0-9]*" "$work/weston.log" | grep -o ":[0-9]*$" | tail -n 1)"
export WAYLAND_DISPLAY=wayland-weston XDG_SESSION_TYPE=wayland DISPLAY

# wait_on_weston <what> <condition...>: wait_for, but failing at once when weston goes away.
weston_gone_or() { ! kill -0 "$weston" 2>/dev/null || "$@"; }
wait_on_weston() {
    wait_for "$1" weston_gone_or "${@:2}"
    weston_runs "$1"
}
weston_runs() { kill -0 "$weston" 2>/dev/null || fail "weston went away; $1 (see weston.log, weston-output.log)"; }
# The whole output, photographed by a new client each time, as $work/shot.png.
shoot() {
    rm -rf "$work/shot" && mkdir "$work/shot"
    (cd "$work/shot" && weston-screenshooter) && mv "$work/shot"/*.png "$work/shot.png"
}
alert_shows() { shoot && (($(accent_pixels convert "$work/shot.png" -depth 8 ppm:-) > 1000)); }
# What is drawn below weston's own panel (its clock), and whether that changed since the last look.
frame() { convert "$work/shot.png" -crop 1440x860+0+40 ppm:- | md5sum; }
frame_changed() { shoot && [[ "$(frame)" != "$seen" ]] && seen="$(frame)"; }

printf '#!/bin/sh\ntouch "%s/terminal-started"\nexec cat >/dev/null\n' "$work" >"$work/bin/terminal-shell"
chmod +x "$work/bin/terminal-shell"
weston-terminal --shell="$work/bin/terminal-shell" >"$work/weston-terminal.log" 2>&1 &
pids+=($!)
wait_on_weston "the terminal did not start" test -e "$work/terminal-started"
start_orvane

"$orvane_binary" test-alert || fail "the test alert was refused"
wait_on_weston "the alert did not show" alert_shows
cp "$work/shot.png" "$artifacts/weston-alert.png"

# The alert redraws as its countdown ticks each second: weston still shows what XWayland's windows commit, seconds
# after they mapped.
seen="$(frame)"
wait_on_weston "the alert's countdown did not move on" frame_changed
wait_on_weston "the alert's countdown did not move on again" frame_changed
alert_shows || fail "the alert went away"
cp "$work/shot.png" "$artifacts/weston-alert-later.png"
weston-info >/dev/null 2>&1 || fail "a new Wayland client could not connect to weston"
xwininfo -name "Meeting reminder" | grep -q "Map State: IsViewable" || fail "XWayland does not show the alert's window"
weston_runs "the alert was up"
echo "PASS"
