#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The alert on KWin, with two outputs, XWayland, and a full-screen terminal focused on the second output: the alert
# covers that output and not the other, typing into the terminal keeps the keyboard there while the alert shows,
# Escape dismisses once typing pauses, the terminal has the keyboard again afterwards, Return joins, and Orvane's
# status item registers with Plasma's tray started after it.
# What is checked is what KWin shows (its outputs, photographed) and what the terminal receives.
#
# Usage: kwin-alert-test.sh ORVANE_BINARY ARTIFACTS_DIR, with ORVANE_KWIN_FAKE_INPUT naming the kwin-fake-input
# program (keys and pointer through KWin's fake input protocol).
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/session.sh"
fake_input="${ORVANE_KWIN_FAKE_INPUT:?the kwin-fake-input program}"

# KWin shows its outputs as windows on a private X server, which is photographed: its own screenshot interface needs
# hardware rendering.
Xvfb -displayfd 3 -screen 0 2880x900x24 -nolisten tcp 3>"$work/xvfb-display" >"$work/xvfb.log" 2>&1 &
pids+=($!)
wait_for "Xvfb did not start" test -s "$work/xvfb-display"
host_display=":$(<"$work/xvfb-display")"

# The packaged kwin_wayland carries a file capability, which makes starting it fail where that capability cannot be
# granted (containers); a copy has none. The program KWin starts in its session notes where XWayland is.
cp /usr/bin/kwin_wayland "$work/bin/kwin_wayland"
printf '#!/bin/sh\nenv >"%s/environment.part" && mv "%s/environment.part" "%s/kwin-environment"\n' \
    "$work" "$work" "$work" >"$work/bin/note-environment"
chmod +x "$work/bin/note-environment"
KWIN_COMPOSE=Q KWIN_WAYLAND_NO_PERMISSION_CHECKS=1 XDG_SESSION_TYPE=wayland QT_LOGGING_RULES=js.debug=true \
    "$work/bin/kwin_wayland" --x11-display "$host_display" --xwayland --width 1440 --height 900 --output-count 2 \
    --socket wayland-kwin --no-lockscreen --no-kactivities "$work/bin/note-environment" >"$work/kwin.log" 2>&1 &
pids+=($!)
wait_for "KWin did not start its session" test -e "$work/kwin-environment"
export WAYLAND_DISPLAY=wayland-kwin DISPLAY="$(sed -n 's/^DISPLAY=//p' "$work/kwin-environment")"

# KWin opens one window per output, in the outputs' order, all at the top left of the X screen: the second moves to
# where the second output lies in KWin's layout, right of the first, so that each output is one half of a photograph.
mapfile -t output_windows < <(xwininfo -display "$host_display" -root -children |
    awk '/"KDE Wayland Compositor/ {print $1}')
((${#output_windows[@]} == 2)) || fail "KWin did not open a window for each of two outputs"
DISPLAY="$host_display" xdotool windowmove --sync "$(printf '%d\n' "${output_windows[@]}" | sort -n | tail -n 1)" 1440 0
shot() { import -display "$host_display" -window root -depth 8 -crop "1440x900+$((($1 - 1) * 1440))+0" ppm:-; }
photograph() { import -display "$host_display" -window root "$artifacts/$1.png"; }

# kwin_says <JavaScript condition>: whether the condition holds in a KWin script, where `active` is the window with
# the keyboard. The script prints its answer to KWin's log.
queries=0
kwin_says() {
    local name="query-$((++queries))"
    printf 'var active = workspace.activeClient;\nprint("%s " + Boolean(%s));\n' "$name" "$1" >"$work/$name.js"
    busctl --user call org.kde.KWin /Scripting org.kde.kwin.Scripting loadScript ss "$work/$name.js" "$name"
    busctl --user call org.kde.KWin /Scripting org.kde.kwin.Scripting start
    wait_for "KWin did not run a script" grep -q "$name " "$work/kwin.log"
    busctl --user call org.kde.KWin /Scripting org.kde.kwin.Scripting unloadScript s "$name"
    grep -q "$name true" "$work/kwin.log"
}

# Keys are evdev codes to KWin.
declare -A evdev=([Escape]=1 [Return]=28 [a]=30 [x]=45)
press_key() { "$fake_input" key "${evdev[$1]}"; }

# KWin's active output follows the pointer, and a new window opens there. The full-screen terminal writes every key
# it receives to a file.
"$fake_input" move 2160 450
start_recording_terminal
terminal_is_focused_on_second_output() {
    kwin_says 'active && active.resourceName == "weston-terminal" && active.fullScreen && active.x == 1440 &&
        workspace.activeScreen == 1'
}
wait_for "the terminal was not focused full screen on the second output" terminal_is_focused_on_second_output

start_orvane

alert_on() { (($(accent_pixels shot "$1") > 1000)); }
alert_not_on() { (($(accent_pixels shot "$1") == 0)); }

# Typing goes on while the alert appears.
"$fake_input" type "${evdev[x]}" 900 100 &
typing=$!
pids+=($typing)
wait_for "the typing did not reach the terminal" typed_more_than 0
started=$(date +%s%N)
"$orvane_binary" test-alert || fail "the test alert was refused"
wait_for "the alert did not cover the second output" alert_on 2
echo "trigger to alert visible: $((($(date +%s%N) - started) / 1000000)) ms" | tee "$artifacts/latency.txt"
photograph kwin-alert-while-typing

# While the typing goes on, every key still reaches the terminal and the alert stays, on that output only.
wait_for "keys stopped reaching the terminal while the alert showed" typed_more_than $(($(typed) + 15))
alert_on 2 || fail "the alert went away while the user typed"
alert_not_on 1 || fail "the alert covered the output the user is not working on"
kill "$typing"
wait "$typing"

# Once typing pauses the alert takes the keyboard: an Escape sent before then reaches the terminal instead.
press_until Escape alert_not_on 2 || fail "Escape did not dismiss the alert"
photograph kwin-after-escape
: >"$keys"
"$fake_input" type "${evdev[a]}" 3 0
wait_for "the terminal did not get the keyboard back" grep -q aaa "$keys"

# Return joins the meeting.
"$orvane_binary" test-alert || fail "the second test alert was refused"
wait_for "the second alert did not show" alert_on 2
press_until Return link_opened "https://meet.google.com/orv-test-alrt" || fail "Return did not join the meeting"
wait_for "the alert stayed after joining" alert_not_on 2

# Plasma's panel comes after Orvane (as when plasmashell restarts), with the tray's watcher in kded, loaded as a
# Plasma session loads it; Orvane's item registers with it.
! tray_items 2>/dev/null || fail "a tray was there before the test started one"
export QT_QPA_PLATFORM=wayland QT_QUICK_BACKEND=software XDG_CURRENT_DESKTOP=KDE
kded5 >"$work/kded.log" 2>&1 &
pids+=($!)
/usr/lib/x86_64-linux-gnu/libexec/kactivitymanagerd >"$work/activities.log" 2>&1 &
pids+=($!)
wait_for "kded did not start" busctl --user status org.kde.kded5
busctl --user call org.kde.kded5 /kded org.kde.kded5 loadModule s statusnotifierwatcher >/dev/null
plasmashell --no-respawn >"$work/plasmashell.log" 2>&1 &
pids+=($!)
wait_for "Orvane's item did not register with Plasma's tray that started after it" orvane_item_registered
echo "PASS"
