// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdlib>
#include <memory>

namespace orvane {

/// Owns a reply (or error) that xcb allocated with malloc.
template <class T>
using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

template <class T>
XcbReply<T> owned(T* reply)
{
    return XcbReply<T>(reply, &std::free);
}

} // namespace orvane
