// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/RemoteAccountError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

RemoteAccountError::RemoteAccountError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString RemoteAccountError::description() const
{
    return std::visit(
        Overloaded{
            [](const MissingClientID&) { return u"Enter the provider's OAuth client ID first."_s; },
            [](const SignInMissing&) {
                return u"The sign-in for this account is missing from the keyring. Reconnect the account."_s;
            },
            [](const SignInExpired& error) {
                const QString detail = error.providerError.isEmpty() ? QString() : u" ("_s + error.providerError + u")"_s;
                return u"The provider no longer accepts this account's sign-in"_s + detail +
                       u". Reconnect the account."_s;
            },
            [](const DifferentAccount& error) {
                return u"You signed in as %1, not %2. Sign in with the account you are reconnecting."_s.arg(
                    error.actual, error.expected);
            },
            [](const Busy&) { return u"Another account change is still in progress."_s; },
            [](const UnknownAccount&) { return u"This account is no longer connected."_s; },
        },
        m_value);
}

const char* RemoteAccountError::what() const noexcept
{
    return m_what.constData();
}

bool RemoteAccountError::requiresReauthentication() const
{
    return std::holds_alternative<SignInMissing>(m_value) || std::holds_alternative<SignInExpired>(m_value);
}

} // namespace orvane
