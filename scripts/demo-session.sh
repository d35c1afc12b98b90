#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Shows Orvane working where there is no desktop session: a private D-Bus session, Evolution Data Server, an X server
# (Xvfb) with a window manager (openbox), a sample meeting in the desktop calendar, and Orvane alerting for it. The
# alert is saved as a screenshot, answered with Escape, and everything private is removed again.
# Usage: demo-session.sh <path to orvane> [screenshot path]
set -euo pipefail

source "$(dirname "${BASH_SOURCE[0]}")/lib/private-desktop.sh"
orvane="$(realpath "$1")"
screenshot="$(realpath -m "${2:-$PWD/orvane-demo-alert.png}")"
private_desktop_enter "$orvane" "$screenshot"

# A meeting 70 seconds from now with a Meet link, and a one-minute lead time: the alert comes about ten seconds after
# Orvane starts.
private_desktop_add_event orvane-demo@example.invalid "Weekly product sync" '+70 seconds' '+30 minutes' \
    $'LOCATION:Room 4.12\r\nDESCRIPTION:Join: https://meet.google.com/abc-defg-hij\r\n'
mkdir -p "$XDG_CONFIG_HOME/velmont.com"
cat >"$XDG_CONFIG_HOME/velmont.com/Orvane.conf" <<'CONF'
[General]
Orvane.hasCompletedCalendarOnboarding.v2=true
Orvane.settings="@ByteArray({\"schemaVersion\":2,\"payload\":{\"alertLeadTime\":60,\"eligibilityMode\":\"allTimedEvents\",\"launchAtLogin\":false,\"showsOnAllDisplays\":false}})"
CONF
private_desktop_start_display

echo "Orvane demo on a private desktop ($DISPLAY): a meeting starts in 70 seconds; the lead time is one minute."
"$orvane" &
private_desktop_pids+=($!)

for _ in $(seq 1 60); do
    sleep 2
    if xdotool search --onlyvisible --name '^Meeting reminder$' >/dev/null 2>&1; then
        sleep 1
        import -window root "$screenshot"
        echo "The alert is on screen; screenshot saved to $screenshot"
        echo "Upcoming meetings, as 'orvane upcoming' prints them:"
        "$orvane" upcoming || true
        xdotool key Escape
        sleep 1
        exit 0
    fi
done
echo "No alert appeared within two minutes." >&2
exit 1
