// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The generated layer-shell header names a parameter `namespace`, a word C++ keeps for itself.
#include <wayland-client.h>
#define namespace layer_namespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace
