// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarDescriptor.h"

namespace orvane {

std::size_t hash(const RemoteCalendarDescriptor& value)
{
    return hashFields(value.identifier, value.title, value.colorHex, value.isSubscribed,
                      value.allowsContentModifications);
}

} // namespace orvane
