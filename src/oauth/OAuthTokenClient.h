// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"
#include "oauth/OAuthAuthorizationGrant.h"
#include "oauth/OAuthTokenSet.h"

#include <QByteArray>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <functional>
#include <map>

namespace orvane {

class RemoteHTTPTransport;

/// Talks to the providers' token endpoints: exchanges a grant, refreshes an access token, revokes a Google token.
/// Failures are OAuthError; the transport's own errors pass through unchanged. No error text carries a token.
class OAuthTokenClient {
public:
    using Now = std::function<Date()>;

    /// `transport` must outlive the client. `revocationEndpoint` is Google's unless a test points it elsewhere.
    OAuthTokenClient(RemoteHTTPTransport& transport, Now now,
                     QUrl revocationEndpoint = OAuthProviderConfiguration::googleRevocationEndpoint());

    QCoro::Task<OAuthTokenSet> exchange(OAuthAuthorizationGrant grant);
    /// The result keeps `refreshToken` when the provider issues no new one.
    QCoro::Task<OAuthTokenSet> refresh(OAuthProviderConfiguration configuration, QString refreshToken);
    /// Succeeds also when the token was already invalid.
    QCoro::Task<> revokeGoogleToken(QString token);

    /// Form fields in name order, each byte outside letters, digits and "-._~" percent-encoded in upper case.
    static QByteArray formBody(const std::map<QString, QString>& fields);
    /// Decodes a successful token endpoint reply received at `receivedAt`; throws InvalidTokenResponse.
    static OAuthTokenSet decodeTokenResponse(const QByteArray& body, Date receivedAt);

private:
    RemoteHTTPTransport& m_transport;
    Now m_now;
    QUrl m_revocationEndpoint;
};

} // namespace orvane
