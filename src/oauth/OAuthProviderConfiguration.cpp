// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthProviderConfiguration.h"

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace orvane {
namespace {

// The providers' published endpoints and scope identifiers.
constexpr auto googleAuthorizationEndpoint = "https://accounts.google.com/o/oauth2/v2/auth";
constexpr auto googleTokenEndpoint = "https://oauth2.googleapis.com/token";
constexpr auto googleRevokeEndpoint = "https://oauth2.googleapis.com/revoke";
constexpr auto microsoftAuthorizationEndpoint = "https://login.microsoftonline.com/common/oauth2/v2.0/authorize";
constexpr auto microsoftTokenEndpoint = "https://login.microsoftonline.com/common/oauth2/v2.0/token";

const QString googleScopePrefix = u"https://www.googleapis.com/auth/"_s;
const QString graphResource = u"https://graph.microsoft.com/"_s;

QString googleScope(QStringView name)
{
    return googleScopePrefix + name.toString();
}

QUrl constantUrl(const char* text)
{
    QUrl url(QString::fromLatin1(text), QUrl::StrictMode);
    if (!url.isValid()) {
        // A constant that does not parse is a defect in this file, not something a user could cause.
        std::abort();
    }
    return url;
}

const QString googleCalendarListReadOnly = googleScope(u"calendar.calendarlist.readonly");
const QString googleEventsReadOnly = googleScope(u"calendar.events.readonly");

/// Microsoft scopes compare by their last path piece, without regard to case, so that the full Graph URI and the
/// bare permission name are the same scope.
QString normalizedMicrosoftScope(const QString& scope)
{
    const QStringList pieces = scope.split(u'/', Qt::SkipEmptyParts);
    return (pieces.isEmpty() ? scope : pieces.last()).toLower();
}

} // namespace

OAuthProviderConfiguration OAuthProviderConfiguration::google(const QString& clientID,
                                                              const std::optional<QString>& clientSecret)
{
    return OAuthProviderConfiguration{
        .service = OAuthService::google,
        .clientID = clientID,
        .clientSecret = clientSecret,
        .authorizationEndpoint = constantUrl(googleAuthorizationEndpoint),
        .tokenEndpoint = constantUrl(googleTokenEndpoint),
        .scopes = {u"openid"_s, u"email"_s, googleCalendarListReadOnly, googleEventsReadOnly},
        .additionalAuthorizationParameters = {{u"access_type"_s, u"offline"_s}, {u"prompt"_s, u"consent"_s}},
    };
}

OAuthProviderConfiguration OAuthProviderConfiguration::microsoft(const QString& clientID)
{
    return OAuthProviderConfiguration{
        .service = OAuthService::microsoft,
        .clientID = clientID,
        .clientSecret = std::nullopt,
        .authorizationEndpoint = constantUrl(microsoftAuthorizationEndpoint),
        .tokenEndpoint = constantUrl(microsoftTokenEndpoint),
        .scopes = {u"openid"_s, u"profile"_s, u"offline_access"_s, graphResource + u"User.Read"_s,
                   graphResource + u"Calendars.Read"_s, graphResource + u"Calendars.Read.Shared"_s},
        .additionalAuthorizationParameters = {{u"response_mode"_s, u"query"_s}},
    };
}

QUrl OAuthProviderConfiguration::googleRevocationEndpoint()
{
    return constantUrl(googleRevokeEndpoint);
}

QString OAuthProviderConfiguration::loopbackCallbackHost() const
{
    return service == OAuthService::google ? u"127.0.0.1"_s : u"localhost"_s;
}

QString OAuthProviderConfiguration::loopbackCallbackPath() const
{
    return u"/"_s;
}

QSet<QString> OAuthProviderConfiguration::requiredResourceScopes() const
{
    if (service == OAuthService::google) {
        return {googleCalendarListReadOnly, googleEventsReadOnly};
    }
    return {u"User.Read"_s, u"Calendars.Read"_s, u"Calendars.Read.Shared"_s};
}

QStringList OAuthProviderConfiguration::missingRequiredResourceScopes(const QSet<QString>& granted) const
{
    if (granted.isEmpty()) {
        return {};
    }
    const auto normalized = [this](const QString& scope) {
        return service == OAuthService::microsoft ? normalizedMicrosoftScope(scope) : scope;
    };
    QSet<QString> normalizedGranted;
    for (const QString& scope : granted) {
        normalizedGranted.insert(normalized(scope));
    }
    const auto acceptable = [this](const QString& required) -> QStringList {
        if (service == OAuthService::google) {
            // Broader calendar scopes include the read-only ones Orvane asks for.
            if (required == googleCalendarListReadOnly) {
                return {required, googleScope(u"calendar.calendarlist"), googleScope(u"calendar.readonly"),
                        googleScope(u"calendar")};
            }
            if (required == googleEventsReadOnly) {
                return {required, googleScope(u"calendar.events"), googleScope(u"calendar.readonly"),
                        googleScope(u"calendar")};
            }
        }
        return {required};
    };
    QStringList required = requiredResourceScopes().values();
    std::sort(required.begin(), required.end());
    QStringList missing;
    for (const QString& scope : required) {
        const QStringList candidates = acceptable(scope);
        const bool covered = std::any_of(candidates.begin(), candidates.end(), [&](const QString& candidate) {
            return normalizedGranted.contains(normalized(candidate));
        });
        if (!covered) {
            missing.append(scope);
        }
    }
    return missing;
}

} // namespace orvane
