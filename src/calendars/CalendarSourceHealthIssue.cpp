// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CalendarSourceHealthIssue.h"

using namespace Qt::StringLiterals;

namespace orvane {

QString CalendarSourceHealthIssue::title() const
{
    // Two accounts may both have a "Work" calendar: the source says which one is meant (worded as the identity
    // reconciler names calendars).
    return calendar ? u"Calendar “%1” of %2"_s.arg(calendar->title, displayName) : displayName;
}

} // namespace orvane
