// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthAuthorizationGrant.h"

#include <QPointer>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>
#include <vector>

namespace orvane {

class LoopbackOAuthReceiver;

/// Runs one browser sign-in: builds the authorization URL (PKCE S256, a fresh state), opens it in the user's
/// browser, waits for the redirect on a temporary loopback receiver and checks it. Holds nothing between calls but
/// the receivers of sign-ins still waiting, so that they can be cancelled; the interface stays live while it waits.
class OAuthWebAuthorizer {
public:
    /// Asks the desktop to open a URL in the user's browser; false when it could not.
    using UrlOpener = std::function<bool(const QUrl&)>;

    /// Opens URLs with the desktop's default browser.
    OAuthWebAuthorizer();
    explicit OAuthWebAuthorizer(UrlOpener openUrl);
    /// Cancels the sign-ins still waiting.
    ~OAuthWebAuthorizer();

    OAuthWebAuthorizer(const OAuthWebAuthorizer&) = delete;
    OAuthWebAuthorizer& operator=(const OAuthWebAuthorizer&) = delete;

    /// One complete authorization-code flow. Throws OAuthError (Cancelled when cancel() is called or the authorizer is
    /// destroyed while it waits for the redirect).
    QCoro::Task<OAuthAuthorizationGrant> authorize(OAuthProviderConfiguration configuration);
    /// Ends every sign-in still waiting for its redirect with OAuthError::Cancelled and frees its port.
    void cancel();

    /// The authorization URL for a request; exposed so the query's exact order can be checked.
    static QUrl authorizationURL(const OAuthProviderConfiguration& configuration, const QString& clientID,
                                 const QString& redirectURI, const QString& state, const QString& codeChallenge,
                                 const std::optional<QString>& nonce);
    /// Checks the redirect the browser delivered and builds the grant, or throws the OAuthError it amounts to.
    static OAuthAuthorizationGrant validateCallback(const QUrl& callback, const QString& expectedState,
                                                    const OAuthProviderConfiguration& configuration,
                                                    const QString& codeVerifier, const QString& redirectURI);

private:
    UrlOpener m_openUrl;
    /// The receivers of sign-ins in progress; each empties itself when its sign-in ends.
    std::vector<QPointer<LoopbackOAuthReceiver>> m_waiting;
};

} // namespace orvane
