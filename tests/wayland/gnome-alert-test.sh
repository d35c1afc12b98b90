#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The alert on GNOME Shell, headless with two monitors and a full-screen terminal focused on the second: typing into
# the terminal keeps the keyboard there while the alert shows, once typing pauses the alert takes over that monitor
# (and not the other) with the keyboard, Escape dismisses it, the terminal has the keyboard again, Return joins, and
# Orvane's status item registers with the tray extension enabled after it started.
# What is checked is GNOME Shell's own window list, its screenshots, and what the terminal receives.
#
# Usage: gnome-alert-test.sh ORVANE_BINARY ARTIFACTS_DIR
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/session.sh"

# GNOME Shell insists on a system bus (logind, UPower, ...): a private, empty one.
cat >"$work/system-bus.conf" <<'CONF'
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:dir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/> <allow own="*"/>
    <allow send_type="method_call"/> <allow send_type="signal"/> <allow send_type="method_return"/>
    <allow send_type="error"/> <allow receive_type="method_call"/> <allow receive_type="signal"/>
    <allow receive_type="method_return"/> <allow receive_type="error"/>
  </policy>
</busconfig>
CONF
dbus-daemon --config-file="$work/system-bus.conf" --nofork --print-address=3 3>"$work/system-bus" \
    >"$work/system-bus.log" 2>&1 &
pids+=($!)
wait_for "the private system bus did not start" test -s "$work/system-bus"
export DBUS_SYSTEM_BUS_ADDRESS="$(head -n 1 "$work/system-bus")"

# A user extension of the test's own opens the shell's Eval and Screenshot interfaces to the test.
extension="$XDG_DATA_HOME/gnome-shell/extensions/orvane-test@orvane.invalid"
mkdir -p "$extension"
printf '{"uuid": "orvane-test@orvane.invalid", "name": "test access", "description": "Eval for tests",
    "shell-version": ["43"]}\n' \
    >"$extension/metadata.json"
printf 'function init() {}\nfunction enable() { global.context.unsafe_mode = true; }\nfunction disable() {}\n' \
    >"$extension/extension.js"
gsettings set org.gnome.shell enabled-extensions "['orvane-test@orvane.invalid']"
gsettings set org.gnome.shell welcome-dialog-last-shown-version '999'
XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=GNOME LIBGL_ALWAYS_SOFTWARE=1 gnome-shell --headless --wayland \
    --wayland-display=wayland-gnome --virtual-monitor 1440x900 --virtual-monitor 1280x800 >"$work/shell.log" 2>&1 &
pids+=($!)

# shell <JavaScript>: its value, evaluated inside GNOME Shell (which hands it back as JSON).
shell() {
    busctl --user --json=short call org.gnome.Shell /org/gnome/Shell org.gnome.Shell Eval s "const GLib = imports.gi.GLib; $1" |
        jq -r 'if .data[0] | not then error("Eval failed: " + .data[1]) elif .data[1] == "" then "" else .data[1] | fromjson end'
}
shell_says() { [[ "$(shell "$1")" == true ]]; }
wait_for "GNOME Shell did not start" shell_says '!Main.layoutManager._startingUp'
# The shell opens its overview when it starts without windows; the user leaves it.
hide_overview() { shell 'Main.overview.hide()' >/dev/null && shell_says '!Main.overview.visible'; }
wait_for "the overview did not close" hide_overview
eval "$(shell '`DISPLAY=${GLib.getenv("DISPLAY")} XAUTHORITY=${GLib.getenv("XAUTHORITY")}`')"
export WAYLAND_DISPLAY=wayland-gnome XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=GNOME DISPLAY XAUTHORITY

# Keys and pointer come from virtual devices of the shell's own seat, kept for the whole run.
shell 'const C = imports.gi.Clutter; const seat = C.get_default_backend().get_default_seat();
       global.testKeys = seat.create_virtual_device(C.InputDeviceType.KEYBOARD_DEVICE);
       global.testPointer = seat.create_virtual_device(C.InputDeviceType.POINTER_DEVICE);
       global.press = name => { const t = GLib.get_monotonic_time();
           global.testKeys.notify_keyval(t, C[`KEY_${name}`], C.KeyState.PRESSED);
           global.testKeys.notify_keyval(t + 1000, C[`KEY_${name}`], C.KeyState.RELEASED); }; true' >/dev/null
press_key() { shell "global.press('$1')" >/dev/null; }
# GNOME places new windows on the monitor under the pointer: the user works on the second.
shell 'global.testPointer.notify_absolute_motion(GLib.get_monotonic_time(), 2000, 400)' >/dev/null

start_recording_terminal
# focused_on <title> <monitor>: the window with the keyboard, full screen on that monitor (0 or 1).
focused_on() {
    shell_says "(w => w !== null && w.get_title() === '$1' && w.is_fullscreen() && w.get_monitor() === $2)
        (global.display.focus_window)"
}
# The user moves it to the second monitor and works in it.
terminal='global.display.list_all_windows().find(w => w.get_title() === "Wayland Terminal")'
wait_for "the terminal did not open" shell_says "$terminal !== undefined"
shell "(w => { w.move_to_monitor(1); w.activate(global.get_current_time()); })($terminal)" >/dev/null
wait_for "the terminal was not focused full screen on the second monitor" focused_on "Wayland Terminal" 1

# The stage photographed; monitor 0 is the left one, 1 the right.
shoot() { busctl --user call org.gnome.Shell.Screenshot /org/gnome/Shell/Screenshot org.gnome.Shell.Screenshot \
    Screenshot bbs false false "$1" >/dev/null; }
monitor_ppm() {
    shoot "$work/stage.png"
    if (($1 == 0)); then convert "$work/stage.png" -crop 1440x900+0+0 -depth 8 ppm:-
    else convert "$work/stage.png" -crop 1280x800+1440+0 -depth 8 ppm:-; fi
}
alert_on() { (($(accent_pixels monitor_ppm "$1") > 1000)); }
alert_not_on() { (($(accent_pixels monitor_ppm "$1") == 0)); }

start_orvane

# The tray extension comes after Orvane, as when GNOME loads its extensions after autostart.
! tray_items 2>/dev/null || fail "a tray was there before the test started one"
gsettings set org.gnome.shell enabled-extensions "['orvane-test@orvane.invalid', 'ubuntu-appindicators@ubuntu.com']"
wait_for "Orvane's item did not register with the tray that started after it" orvane_item_registered

# Typing goes on while the alert appears: every key still reaches the terminal, and the alert shows all the same.
shell 'global.typing = GLib.timeout_add(0, 150, () => { global.press("x"); return true; })' >/dev/null
wait_for "the typing did not reach the terminal" typed_more_than 0
started=$(date +%s%N)
"$orvane_binary" test-alert || fail "the test alert was refused"
alert_visible() { alert_on 0 || alert_on 1; }
wait_for "the alert did not show while the user typed" alert_visible
echo "trigger to alert visible (typing): $((($(date +%s%N) - started) / 1000000)) ms" | tee "$artifacts/latency.txt"
shoot "$artifacts/gnome-alert-while-typing.png"
# Longer than the ten seconds after which an alert stops waiting for a desktop that never reports a pause: GNOME
# reports every input, so a user who keeps typing keeps the keyboard.
wait_for "keys stopped reaching the terminal while the alert showed" typed_more_than $(($(typed) + 100))
focused_on "Wayland Terminal" 1 || fail "the alert took the keyboard while the user typed"

# Once typing pauses the alert takes over the monitor the user works on, with the keyboard.
shell 'GLib.source_remove(global.typing)' >/dev/null
wait_for "the alert did not take the keyboard once typing paused" focused_on "Meeting reminder" 1
wait_for "the alert did not cover the second monitor" alert_on 1
alert_not_on 0 || fail "the alert covered the monitor the user is not working on"
shoot "$artifacts/gnome-alert.png"

press_key Escape
wait_for "Escape did not dismiss the alert" alert_not_on 1
wait_for "the terminal did not get the keyboard back" focused_on "Wayland Terminal" 1
: >"$keys"
for key in a b c; do press_key "$key"; done
wait_for "the terminal did not get the keys after the alert" grep -q abc "$keys"

# Return joins the meeting.
"$orvane_binary" test-alert || fail "the second test alert was refused"
wait_for "the second alert did not take the keyboard" focused_on "Meeting reminder" 1
press_key Return
wait_for "Return did not join the meeting" link_opened "https://meet.google.com/orv-test-alrt"
wait_for "the alert stayed after joining" alert_not_on 1
echo "PASS"
