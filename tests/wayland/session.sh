# SPDX-License-Identifier: GPL-3.0-or-later
# Shared by the compositor tests: a private desktop (own D-Bus session, home and XDG folders) for one run of the
# real `orvane` program. Sourced first thing by each test script, with the script's own arguments.

readonly here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
orvane_binary="${1:?the orvane program}"
artifacts="${2:?a folder for screenshots and logs}"
# As long as the slowest loaded machine has needed, and no longer than that: every wait ends on its condition.
readonly patience=60

# sway refuses to run as root, and XWayland lets in only its own user: as root, the whole run (a D-Bus session of
# its own included) happens as an ordinary user of the tests' own, made on first use.
if ((EUID == 0)) && [[ -z "${ORVANE_WAYLAND_TEST_USER_RUN:-}" ]]; then
    user="${ORVANE_TEST_USER:-orvane-test}"
    id -u "$user" >/dev/null 2>&1 || useradd --system --no-create-home --shell /usr/sbin/nologin "$user"
    stage="$(mktemp -d /tmp/orvane-wayland-stage.XXXXXX)"
    mkdir -p "$stage/artifacts"
    # The build tree may sit where that user cannot read.
    if ! runuser -u "$user" -- test -x "$orvane_binary"; then
        cp "$orvane_binary" "$stage/orvane"
        orvane_binary="$stage/orvane"
    fi
    if [[ -n "${ORVANE_LSAN_SUPPRESSIONS:-}" ]]; then
        cp "$ORVANE_LSAN_SUPPRESSIONS" "$stage/lsan.supp"
        export ORVANE_LSAN_SUPPRESSIONS="$stage/lsan.supp"
    fi
    if [[ -n "${ORVANE_KWIN_FAKE_INPUT:-}" ]]; then
        cp "$ORVANE_KWIN_FAKE_INPUT" "$stage/kwin-fake-input"
        export ORVANE_KWIN_FAKE_INPUT="$stage/kwin-fake-input"
    fi
    chown -R "$user" "$stage"
    status=0
    runuser -u "$user" -- env ORVANE_WAYLAND_TEST_USER_RUN=1 dbus-run-session -- \
        bash "$0" "$orvane_binary" "$stage/artifacts" || status=$?
    mkdir -p "$artifacts"
    cp -r "$stage/artifacts/." "$artifacts/"
    rm -rf "$stage"
    exit "$status"
fi
if [[ -z "${ORVANE_WAYLAND_TEST_USER_RUN:-}" ]]; then
    exec env ORVANE_WAYLAND_TEST_USER_RUN=1 dbus-run-session -- bash "$0" "$@"
fi

work="$(mktemp -d /tmp/orvane-wayland.XXXXXX)"
mkdir -p "$artifacts" "$work"/{home,data,config,cache,runtime,bin}
chmod 700 "$work/runtime"
pids=()

finish() {
    local status=$?
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    cp "$work"/*.log "$artifacts/" 2>/dev/null || true
    [[ -n "${ORVANE_KEEP_WORK:-}" ]] || rm -rf "$work"
    exit "$status"
}
trap finish EXIT

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# wait_for <what> <command...>: runs the command until it succeeds; fails the test after `patience` seconds.
wait_for() {
    local what="$1"; shift
    local deadline=$((SECONDS + patience))
    until "$@" >/dev/null 2>&1; do
        ((SECONDS < deadline)) || fail "$what (waited ${patience} s)"
        sleep 0.1
    done
}

# press_key <key>: one press of a key by its XKB name, as a keyboard makes it; a compositor without the virtual
# keyboard protocol that wtype uses has its test define its own.
press_key() {
    wtype -s 300 -k "$1"
}

# press_until <key> <condition...>: presses the key, gives it two seconds to have its effect, and again until it
# has. The alert takes the keyboard only after a second without input, so presses that come quicker than that
# would each keep it from ever doing so.
press_until() {
    local key="$1"; shift
    local deadline=$((SECONDS + patience))
    while ((SECONDS < deadline)); do
        press_key "$key"
        local settle=$((SECONDS + 2))
        while ((SECONDS < settle)); do
            "$@" >/dev/null 2>&1 && return 0
            sleep 0.1
        done
    done
    return 1
}

# start_sway <config file>: sway headless, with its IPC socket, Wayland socket and XWayland display exported.
start_sway() {
    WLR_BACKENDS=headless WLR_RENDERER=pixman WLR_LIBINPUT_NO_DEVICES=1 XDG_SESSION_TYPE=wayland \
        sway -d -c "$1" >"$work/sway.log" 2>&1 &
    pids+=($!)
    wait_for "sway did not start" compgen -G "$XDG_RUNTIME_DIR/sway-ipc.*.sock"
    SWAYSOCK="$(compgen -G "$XDG_RUNTIME_DIR/sway-ipc.*.sock")"
    wait_for "sway did not open its Wayland socket" compgen -G "$XDG_RUNTIME_DIR/wayland-[0-9]"
    WAYLAND_DISPLAY="$(basename "$(compgen -G "$XDG_RUNTIME_DIR/wayland-[0-9]")")"
    export SWAYSOCK WAYLAND_DISPLAY
    # sway starts XWayland when its first X client connects, and tells its own children where to find it.
    swaymsg -q exec "env > '$work/sway-environment'"
    wait_for "sway did not run a program" grep -q "^DISPLAY=" "$work/sway-environment"
    DISPLAY="$(sed -n 's/^DISPLAY=//p' "$work/sway-environment")"
    export DISPLAY
}

# Orvane's private home: onboarding done, the alert on the output the user works on, an xdg-open that notes the
# links it is asked to open.
export HOME="$work/home" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" XDG_CACHE_HOME="$work/cache" \
    XDG_RUNTIME_DIR="$work/runtime" PATH="$work/bin:$PATH"
unset DISPLAY WAYLAND_DISPLAY QT_QPA_PLATFORM XDG_CURRENT_DESKTOP DESKTOP_SESSION
dbus-update-activation-environment HOME XDG_DATA_HOME XDG_CONFIG_HOME XDG_CACHE_HOME XDG_RUNTIME_DIR
mkdir -p "$XDG_CONFIG_HOME/velmont.com"
printf '[General]\nOrvane.hasCompletedCalendarOnboarding.v2=true\n' >"$XDG_CONFIG_HOME/velmont.com/Orvane.conf"
printf '#!/bin/sh\necho "$1" >> "%s/opened.txt"\n' "$work" >"$work/bin/xdg-open"
chmod +x "$work/bin/xdg-open"
if [[ -n "${ORVANE_LSAN_SUPPRESSIONS:-}" ]]; then
    export LSAN_OPTIONS="suppressions=$ORVANE_LSAN_SUPPRESSIONS"
fi

# As the desktop starts it at login: a start by hand on a desktop without a tray opens the menu in Settings.
start_orvane() {
    "$orvane_binary" --at-login >"$work/orvane.log" 2>&1 &
    orvane_pid=$!
    pids+=($!)
    wait_for "Orvane did not start" "$orvane_binary" upcoming
}

# The status items a tray's watcher has registered (a bus name, then the object path after "/", or after "@" for
# GNOME's extension), and whether Orvane's process owns one.
tray_items() {
    busctl --user get-property org.kde.StatusNotifierWatcher /StatusNotifierWatcher org.kde.StatusNotifierWatcher \
        RegisteredStatusNotifierItems
}
orvane_item_registered() {
    local item
    for item in $(tray_items | grep -o '"[^"]*"' | tr -d '"'); do
        busctl --user call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
            GetConnectionUnixProcessID s "${item%%[/@]*}" | grep -qx "u $orvane_pid" && return 0
    done
    return 1
}

# start_recording_terminal: a full-screen weston-terminal that writes every key it receives to $keys.
keys="$work/terminal-keys.txt"
start_recording_terminal() {
    : >"$keys"
    printf '#!/bin/sh\nstty raw -echo\nexec cat > "%s"\n' "$keys" >"$work/bin/record-keys"
    chmod +x "$work/bin/record-keys"
    weston-terminal --fullscreen --shell="$work/bin/record-keys" >"$work/weston-terminal.log" 2>&1 &
    pids+=($!)
}
typed() { tr -cd x <"$keys" | wc -c; }
typed_more_than() { (($(typed) > $1)); }

# accent_pixels <command printing a PPM screenshot>: how many pixels have the alert's colour.
accent_pixels() {
    "$@" | python3 "$here/accent-pixels.py"
}

# link_opened <url>: Join handed this link to the desktop.
link_opened() {
    grep -qxF "$1" "$work/opened.txt" 2>/dev/null
}
