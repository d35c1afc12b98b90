// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/FullScreenAlertAction.h"

#include "domain/Hashing.h"
#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::vector<AlertExclusionOption> AlertExclusionOption::recurringOptions()
{
    return {{u"Only this occurrence"_s, ExclusionScope::occurrence}, {u"Entire series"_s, ExclusionScope::series}};
}

std::size_t hash(const FullScreenAlertAction& action)
{
    const std::size_t payload = std::visit(
        Overloaded{
            [](const FullScreenAlertAction::Join& join) { return hashFields(join.meeting); },
            [](const FullScreenAlertAction::Dismiss& dismiss) { return hashFields(dismiss.meetingIDs); },
            [](const FullScreenAlertAction::Exclude& exclude) { return hashFields(exclude.meeting, exclude.scope); },
            [](const FullScreenAlertAction::Snooze& snooze) { return hashFields(snooze.meetingIDs, snooze.option); },
            [](const FullScreenAlertAction::Expired& expired) { return hashFields(expired.meetingIDs); },
        },
        action.value);
    return hashFields(action.value.index(), payload);
}

} // namespace orvane
