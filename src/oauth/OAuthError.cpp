// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

OAuthError::OAuthError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString OAuthError::description() const
{
    return std::visit(
        Overloaded{
            [](const AccessDenied& error) { return error.description.value_or(u"Calendar access was not granted."_s); },
            [](const ProviderError& error) {
                return error.description ? u"Sign-in failed ("_s + error.code + u"): "_s + *error.description
                                         : u"Sign-in failed ("_s + error.code + u")."_s;
            },
            [](const MissingRequiredScopes& error) {
                return u"The calendar provider did not grant the required read-only permissions ("_s +
                       error.scopes.join(u", "_s) + u"). Reconnect and approve every requested permission."_s;
            },
            [](const TokenExchangeFailed& error) {
                QString text = u"Token request failed with HTTP "_s + QString::number(error.statusCode);
                if (error.error) {
                    text += u" ("_s + *error.error + u")"_s;
                }
                return text + (error.description ? u": "_s + *error.description : u"."_s);
            },
            [](const TokenRevocationFailed& error) {
                const QString text = u"Token revocation failed with HTTP "_s + QString::number(error.statusCode);
                return error.error ? text + u": "_s + *error.error : text + u"."_s;
            },
            [](const Keychain& error) {
                // The macOS edition says "The macOS Keychain operation failed (<status>)."; on Linux the tokens
                // live in whichever keyring provides the Secret Service.
                return u"The keyring operation failed ("_s + QString::number(error.status) +
                       u"). Check that GNOME Keyring or KWallet is running and unlocked."_s;
            },
            [](const InvalidClientId&) {
                return u"Enter a valid OAuth client ID before connecting this calendar provider."_s;
            },
            [](const UnableToListen&) { return u"Orvane could not start its temporary local sign-in callback."_s; },
            [](const UnableToOpenBrowser&) { return u"Orvane could not open the provider sign-in page."_s; },
            [](const InvalidCallback&) { return u"The calendar provider returned an invalid sign-in callback."_s; },
            [](const StateMismatch&) { return u"The sign-in response could not be verified. Please try again."_s; },
            [](const MissingAuthorizationCode&) {
                return u"The calendar provider did not return an authorization code."_s;
            },
            [](const MissingRefreshToken&) {
                return u"The calendar provider did not grant offline access. Reconnect the account and approve "
                       u"every requested permission."_s;
            },
            [](const MissingGoogleClientSecret&) {
                return u"This build is missing the credential for its configured Google Desktop OAuth client. Add "
                       u"the matching OrvaneGoogleOAuthClientSecret app configuration and try again."_s;
            },
            [](const InvalidTokenResponse&) {
                return u"The calendar provider returned an unreadable token response."_s;
            },
            [](const Cancelled&) { return u"Sign-in was cancelled."_s; },
        },
        m_value);
}

const char* OAuthError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
