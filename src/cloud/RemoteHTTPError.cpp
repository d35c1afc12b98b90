// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteHTTPError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

RemoteHTTPError::RemoteHTTPError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString RemoteHTTPError::description() const
{
    return std::visit(
        Overloaded{
            [](const UnexpectedStatus& error) {
                const QString text = u"The calendar service returned HTTP "_s + QString::number(error.statusCode);
                return error.message ? text + u": "_s + *error.message : text + u"."_s;
            },
            [](const NonHTTPResponse&) { return u"The calendar service returned a non-HTTP response."_s; },
            [](const InvalidURL&) { return u"A calendar service URL could not be constructed."_s; },
            [](const InvalidResponse&) { return u"The calendar service returned data that Orvane could not read."_s; },
            [](const CrossOriginRedirect&) {
                return u"The service attempted to redirect a protected request to another origin."_s;
            },
            [](const TransportFailure& error) {
                if (error.timedOut) {
                    return u"The calendar service did not answer in time."_s;
                }
                return error.detail.isEmpty() ? u"The calendar service could not be reached."_s
                                              : u"The calendar service could not be reached: "_s + error.detail;
            },
        },
        m_value);
}

const char* RemoteHTTPError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
