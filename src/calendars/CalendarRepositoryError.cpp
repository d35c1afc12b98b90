// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CalendarRepositoryError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

CalendarRepositoryError::CalendarRepositoryError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString CalendarRepositoryError::description() const
{
    return std::visit(
        Overloaded{
            [](const AccessNotGranted& error) { return authorizationExplanation(error.state); },
            [](const IntervalTooLarge& error) {
                return u"The requested period is longer than %1 days."_s.arg(error.maximum / 86'400);
            },
            [](const InvalidInterval&) { return u"The requested period is empty."_s; },
            [](const ServiceFailed& error) { return u"The desktop calendar service failed: %1"_s.arg(error.message); },
        },
        m_value);
}

const char* CalendarRepositoryError::what() const noexcept
{
    return m_what.constData();
}

QString authorizationExplanation(CalendarAuthorizationState state)
{
    // The desktop calendar database (Evolution Data Server) has no permission prompt: Orvane can read it whenever
    // the service answers. The macOS texts, kept for that edition, speak of Privacy & Security instead.
    switch (state) {
    case CalendarAuthorizationState::fullAccess:
        return u"Calendar access is ready. Continue to choose which calendars can trigger alerts."_s;
    case CalendarAuthorizationState::notDetermined:
        return u"Orvane has not connected to the desktop calendar service yet."_s;
    case CalendarAuthorizationState::denied:
    case CalendarAuthorizationState::restricted:
    case CalendarAuthorizationState::writeOnly:
    case CalendarAuthorizationState::unknown:
        break;
    }
    return u"The desktop calendar service (Evolution Data Server) could not be reached. Check that "
           u"evolution-data-server is installed; Orvane keeps trying and recovers by itself once it answers."_s;
}

} // namespace orvane
