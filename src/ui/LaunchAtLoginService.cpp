// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/LaunchAtLoginService.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

LaunchAtLoginError::LaunchAtLoginError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString LaunchAtLoginError::description() const
{
    return std::visit(
        Overloaded{
            [](const WriteFailed& error) {
                return u"The autostart entry %1 could not be written: %2"_s.arg(error.path, error.reason);
            },
            [](const RemoveFailed& error) {
                return u"The autostart entry %1 could not be removed: %2"_s.arg(error.path, error.reason);
            },
            [](const ExecutableUnknown&) { return u"Orvane could not find its own program file to start at login."_s; },
            [](const PortalFailed& error) {
                return u"The desktop's background service did not accept the request: %1"_s.arg(error.reason);
            },
        },
        m_value);
}

const char* LaunchAtLoginError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
