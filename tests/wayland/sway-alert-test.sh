#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The alert on sway (wlroots), headless with two outputs and a full-screen terminal focused on the second: the alert
# covers that output and not the other, Orvane's status item registers with a tray that starts after it, typing into the terminal keeps the keyboard there while the alert shows,
# Escape dismisses once typing pauses, the terminal has the keyboard again afterwards, and Return joins.
# What is checked is what the compositor shows (screenshots) and what the terminal receives.
#
# Usage: sway-alert-test.sh ORVANE_BINARY ARTIFACTS_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/session.sh"

# The panel with the tray starts only when the test says so: after Orvane, as when a desktop's panel restarts.
printf '#!/bin/sh\nuntil [ -e "%s/start-panel" ]; do sleep 0.1; done\nexec swaybar "$@"\n' "$work" >"$work/bin/panel"
chmod +x "$work/bin/panel"
cat >"$work/sway.config" <<CONFIG
output HEADLESS-1 resolution 1440x900 position 0 0
xwayland enable
focus_follows_mouse no
bar {
    swaybar_command $work/bin/panel
    tray_output *
}
CONFIG
start_sway "$work/sway.config"
swaymsg -q create_output
swaymsg -q output HEADLESS-2 resolution 1280x800 position 1440 0
swaymsg -q focus output HEADLESS-2
shot() { grim -t ppm -o "$1" -; }

# The full-screen terminal writes every key it receives to a file.
: >"$keys"
foot --app-id=fullscreen-terminal --fullscreen -- sh -c "stty raw -echo; exec cat > '$keys'" \
    >"$work/foot.log" 2>&1 &
pids+=($!)
terminal_is_focused_on_second_output() {
    swaymsg -t get_tree | jq -e '[recurse(.nodes[]?, .floating_nodes[]?) | select(.app_id? == "fullscreen-terminal"
        and .focused and .fullscreen_mode == 1)] | length == 1' &&
        swaymsg -t get_outputs | jq -e '.[] | select(.name == "HEADLESS-2") | .focused'
}
wait_for "the terminal was not focused full screen on the second output" terminal_is_focused_on_second_output

start_orvane

# A tray that comes after Orvane still gets its item.
! tray_items 2>/dev/null || fail "a tray was there before the test started one"
touch "$work/start-panel"
wait_for "Orvane's item did not register with the tray that started after it" orvane_item_registered

alert_on() { (($(accent_pixels shot "$1") > 1000)); }
alert_not_on() { (($(accent_pixels shot "$1") == 0)); }

# Typing goes on while the alert appears.
wtype -s 300 -d 100 "$(printf 'x%.0s' {1..900})" &
typing=$!
pids+=($typing)
wait_for "the typing did not reach the terminal" typed_more_than 0
started=$(date +%s%N)
"$orvane_binary" test-alert || fail "the test alert was refused"
wait_for "the alert did not cover the second output" alert_on HEADLESS-2
echo "trigger to alert visible: $((($(date +%s%N) - started) / 1000000)) ms" | tee "$artifacts/latency.txt"
grim -o HEADLESS-2 "$artifacts/sway-alert-while-typing.png"
alert_not_on HEADLESS-1 || fail "the alert covered the output the user is not working on"

# While the typing goes on, every key still reaches the terminal and the alert stays.
wait_for "keys stopped reaching the terminal while the alert showed" typed_more_than $(($(typed) + 15))
alert_on HEADLESS-2 || fail "the alert went away while the user typed"
kill "$typing"

# Once typing pauses the alert takes the keyboard: an Escape sent before then reaches the terminal instead.
press_until Escape alert_not_on HEADLESS-2 || fail "Escape did not dismiss the alert"
grim -o HEADLESS-2 "$artifacts/sway-after-escape.png"
: >"$keys"
wtype -s 300 abc
wait_for "the terminal did not get the keyboard back" grep -q abc "$keys"

# Return joins the meeting.
"$orvane_binary" test-alert || fail "the second test alert was refused"
wait_for "the second alert did not show" alert_on HEADLESS-2
press_until Return link_opened "https://meet.google.com/orv-test-alrt" || fail "Return did not join the meeting"
wait_for "the alert stayed after joining" alert_not_on HEADLESS-2
echo "PASS"
