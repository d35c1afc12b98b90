// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarGroup.h"

namespace orvane {

std::size_t hash(const RemoteCalendarGroup& value)
{
    return hashFields(value.sourceIdentifier, value.sourceTitle, value.calendars);
}

} // namespace orvane
