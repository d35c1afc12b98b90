// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthService.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <map>
#include <optional>

namespace orvane {

/// The fixed settings of one provider's sign-in: client, endpoints, scopes and extra authorization parameters.
struct OAuthProviderConfiguration {
    OAuthService service = OAuthService::google;
    QString clientID;
    /// Set only for Google: the desktop client's credential from the build configuration.
    std::optional<QString> clientSecret;
    QUrl authorizationEndpoint;
    QUrl tokenEndpoint;
    /// In the order sent.
    QStringList scopes;
    /// Extra query items of the authorization request, sent in name order.
    std::map<QString, QString> additionalAuthorizationParameters;

    static OAuthProviderConfiguration google(const QString& clientID, const std::optional<QString>& clientSecret);
    static OAuthProviderConfiguration microsoft(const QString& clientID);

    /// Where Google revokes tokens.
    static QUrl googleRevocationEndpoint();

    /// "127.0.0.1" for Google, "localhost" for Microsoft: each provider registers its own loopback form.
    QString loopbackCallbackHost() const;
    QString loopbackCallbackPath() const;
    /// The scopes a granted token must cover for Orvane to read calendars.
    QSet<QString> requiredResourceScopes() const;
    /// The required resource scopes that `granted` does not cover, in a stable order; none when `granted` is empty
    /// (a provider that does not report scopes is trusted).
    QStringList missingRequiredResourceScopes(const QSet<QString>& granted) const;

    friend bool operator==(const OAuthProviderConfiguration&, const OAuthProviderConfiguration&) = default;
};

} // namespace orvane
