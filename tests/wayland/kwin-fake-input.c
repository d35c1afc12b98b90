// SPDX-License-Identifier: GPL-3.0-or-later
// Real keys and pointer input on KWin, through its fake input protocol (org_kde_kwin_fake_input), for the compositor
// tests: what it sends goes through KWin's input handling as a device's would, focus and idle time included.
//
//   kwin-fake-input key CODE                 press and release one key (evdev code, as in linux/input-event-codes.h)
//   kwin-fake-input type CODE COUNT DELAY    that key COUNT times, DELAY ms apart; on SIGTERM it stops after a release
//   kwin-fake-input move X Y                 the pointer to X,Y of the desktop
//   kwin-fake-input click X Y                the pointer there, then the left button
#define _POSIX_C_SOURCE 200809L

#include "fake-input-client-protocol.h"

#include <linux/input-event-codes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <wayland-client.h>

static struct org_kde_kwin_fake_input* fake_input;
static volatile sig_atomic_t stopping;

static void global(void* data, struct wl_registry* registry, uint32_t name, const char* interface, uint32_t version)
{
    (void)data;
    if (strcmp(interface, org_kde_kwin_fake_input_interface.name) == 0 && version >= 4)
        fake_input = wl_registry_bind(registry, name, &org_kde_kwin_fake_input_interface, 4);
}

static void global_remove(void* data, struct wl_registry* registry, uint32_t name)
{
    (void)data, (void)registry, (void)name;
}

static void stop(int signal_number)
{
    (void)signal_number;
    stopping = 1;
}

static void pause_ms(long ms)
{
    struct timespec duration = {ms / 1000, (ms % 1000) * 1000000L};
    nanosleep(&duration, NULL);
}

// Every event waits until KWin has handled it, so that the pauses between events are the ones KWin sees.
static int send_key(struct wl_display* display, uint32_t code, int hold_ms)
{
    org_kde_kwin_fake_input_keyboard_key(fake_input, code, WL_KEYBOARD_KEY_STATE_PRESSED);
    if (wl_display_roundtrip(display) < 0)
        return -1;
    pause_ms(hold_ms);
    org_kde_kwin_fake_input_keyboard_key(fake_input, code, WL_KEYBOARD_KEY_STATE_RELEASED);
    return wl_display_roundtrip(display);
}

static int run(struct wl_display* display, const char* command, char** arguments)
{
    if (strcmp(command, "key") == 0)
        return send_key(display, (uint32_t)atoi(arguments[0]), 50);
    if (strcmp(command, "type") == 0) {
        struct sigaction action = {.sa_handler = stop};
        sigaction(SIGTERM, &action, NULL);
        sigaction(SIGINT, &action, NULL);
        // A key is never left held down: a stop request takes effect between a release and the next press.
        int status = 0;
        for (int i = 0, count = atoi(arguments[1]); i < count && !stopping && status >= 0; ++i) {
            status = send_key(display, (uint32_t)atoi(arguments[0]), 20);
            if (!stopping)
                pause_ms(atoi(arguments[2]));
        }
        return status;
    }
    org_kde_kwin_fake_input_pointer_motion_absolute(fake_input, wl_fixed_from_int(atoi(arguments[0])),
                                                    wl_fixed_from_int(atoi(arguments[1])));
    if (strcmp(command, "click") == 0) {
        org_kde_kwin_fake_input_button(fake_input, BTN_LEFT, WL_POINTER_BUTTON_STATE_PRESSED);
        if (wl_display_roundtrip(display) < 0)
            return -1;
        org_kde_kwin_fake_input_button(fake_input, BTN_LEFT, WL_POINTER_BUTTON_STATE_RELEASED);
    }
    return wl_display_roundtrip(display);
}

int main(int argc, char** argv)
{
    const char* command = argc > 1 ? argv[1] : "";
    int arguments = strcmp(command, "key") == 0                                     ? 1
                    : strcmp(command, "type") == 0                                  ? 3
                    : strcmp(command, "move") == 0 || strcmp(command, "click") == 0 ? 2
                                                                                    : -1;
    if (arguments < 0 || argc != arguments + 2) {
        fprintf(stderr, "usage: kwin-fake-input key CODE | type CODE COUNT DELAY_MS | move X Y | click X Y\n");
        return 2;
    }
    struct wl_display* display = wl_display_connect(NULL);
    if (!display) {
        fprintf(stderr, "kwin-fake-input: no Wayland display\n");
        return 1;
    }
    struct wl_registry* registry = wl_display_get_registry(display);
    static const struct wl_registry_listener listener = {global, global_remove};
    wl_registry_add_listener(registry, &listener, NULL);
    int status = wl_display_roundtrip(display);
    if (fake_input) {
        org_kde_kwin_fake_input_authenticate(fake_input, "Orvane tests", "Keys and clicks of a test user");
        status = run(display, command, argv + 2);
        org_kde_kwin_fake_input_destroy(fake_input);
    } else if (status >= 0) {
        fprintf(stderr, "kwin-fake-input: the compositor has no org_kde_kwin_fake_input version 4\n");
    }
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    if (status < 0)
        fprintf(stderr, "kwin-fake-input: the connection to the compositor failed\n");
    return fake_input && status >= 0 ? 0 : 1;
}
