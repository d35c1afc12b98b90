// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/// How long a test waits for something that must happen: a condition, a process, a signal. Only a failing test ever
/// waits this long; a healthy one goes on the moment its condition holds. It is generous on purpose: on a freshly
/// installed or loaded machine (empty font caches, cold disks, the whole suite running in parallel) starting an X
/// server, a window manager or a daemon can take many seconds.
inline constexpr int patience = 60'000;
