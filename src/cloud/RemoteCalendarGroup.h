// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarDescriptor.h"

#include <vector>

namespace orvane {

/// The calendars of one connected account, which the interface shows as one source.
struct RemoteCalendarGroup {
    /// The remote identity string of kind "source".
    QString sourceIdentifier;
    QString sourceTitle;
    std::vector<RemoteCalendarDescriptor> calendars;

    friend bool operator==(const RemoteCalendarGroup&, const RemoteCalendarGroup&) = default;
};

std::size_t hash(const RemoteCalendarGroup& value);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::RemoteCalendarGroup);
