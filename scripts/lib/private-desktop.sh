# SPDX-License-Identifier: GPL-3.0-or-later
# Shared by the scripts that show or measure Orvane without the user's desktop: a private home, D-Bus session and
# X server (Xvfb with openbox). Source it; nothing here touches the real home or session.

# Re-runs the calling script ("$0" with the given arguments) inside a D-Bus session of its own with a temporary home
# and XDG tree, removed afterwards. Returns (does nothing) when already inside.
private_desktop_enter() {
    if [[ -n "${ORVANE_PRIVATE_SESSION:-}" ]]; then
        return 0
    fi
    local scratch
    scratch="$(mktemp -d /tmp/orvane-private.XXXXXX)"
    mkdir -p "$scratch"/{home,data,config,cache,runtime}
    chmod 700 "$scratch/runtime"
    local status=0
    ORVANE_PRIVATE_SESSION=1 HOME="$scratch/home" XDG_DATA_HOME="$scratch/data" XDG_CONFIG_HOME="$scratch/config" \
        XDG_CACHE_HOME="$scratch/cache" XDG_RUNTIME_DIR="$scratch/runtime" \
        dbus-run-session -- "$0" "$@" 2> >(grep -v '^dbus-daemon' >&2) || status=$?
    rm -rf "$scratch"
    exit "$status"
}

private_desktop_pids=()

# Starts Xvfb on a free display with openbox managing it, exports DISPLAY (and makes Qt use it), and ends both when
# the script exits.
private_desktop_start_display() {
    local displayfd number
    exec {displayfd}<> <(:)
    Xvfb -displayfd "$displayfd" -screen 0 1440x900x24 -nolisten tcp >/dev/null 2>&1 &
    private_desktop_pids+=($!)
    read -r -t 10 number <&"$displayfd"
    export DISPLAY=":$number" QT_QPA_PLATFORM=xcb
    unset WAYLAND_DISPLAY
    openbox --sm-disable >/dev/null 2>&1 &
    private_desktop_pids+=($!)
    trap private_desktop_stop EXIT
    # openbox announces itself on the root window once it runs; on a machine without font caches yet that can take
    # many seconds.
    local waited=0
    until xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id'; do
        [ "$waited" -lt 600 ] || break
        sleep 0.1
        waited=$((waited + 1))
    done
}

private_desktop_stop() {
    kill "${private_desktop_pids[@]}" 2>/dev/null || true
    wait 2>/dev/null || true
}

# Puts one event into the desktop's personal calendar (read when the calendar service first starts).
# Usage: private_desktop_add_event <uid> <summary> <start (date -d syntax)> <end> [extra iCalendar lines]
private_desktop_add_event() {
    local start end
    start="$(date -u -d "$3" +%Y%m%dT%H%M%SZ)"
    end="$(date -u -d "$4" +%Y%m%dT%H%M%SZ)"
    mkdir -p "$XDG_DATA_HOME/evolution/calendar/system"
    printf 'BEGIN:VCALENDAR\r\nVERSION:2.0\r\nPRODID:-//Orvane//Private desktop//EN\r\nBEGIN:VEVENT\r\nUID:%s\r\nDTSTAMP:%s\r\nDTSTART:%s\r\nDTEND:%s\r\nSUMMARY:%s\r\n%sEND:VEVENT\r\nEND:VCALENDAR\r\n' \
        "$1" "$start" "$start" "$end" "$2" "${5:-}" >"$XDG_DATA_HOME/evolution/calendar/system/calendar.ics"
}
