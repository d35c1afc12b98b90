// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarAccountMetadata.h"
#include "cloud/RemoteCalendarClient.h"
#include "oauth/OAuthProviderConfiguration.h"
#include "oauth/OAuthTokenSet.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

namespace orvane {

class Clock;
class OAuthRefreshTokenStoring;
class OAuthTokenClient;

/// The access token of one connected account. It lives only in memory; the refresh token stays in the keyring and is
/// read each time a new access token is needed, so a sign-in removed from the keyring stops the account at once.
///
/// Concurrent requests that need a new token share one renewal. A token is renewed shortly before it expires, and
/// again when the service refuses it, but never twice in a row for the same refusal.
class RemoteAccountCredentials final : public QObject {
    Q_OBJECT

public:
    /// How long before its expiry a token is renewed, so that a fetch never starts with one about to lapse.
    static constexpr double renewalMargin = 300;

    /// The sign-in settings the account's tokens are renewed with (its own client ID).
    using Configuration = std::function<OAuthProviderConfiguration(const RemoteCalendarAccountMetadata&)>;

    /// The keyring entry name of an account's refresh token.
    static QString keyringAccount(const RemoteCalendarAccountMetadata& account);

    /// `tokens`, `keyring` and `clock` must outlive the credentials.
    RemoteAccountCredentials(RemoteCalendarAccountMetadata account, OAuthTokenClient& tokens,
                             OAuthRefreshTokenStoring& keyring, Configuration configuration, const Clock& clock,
                             QObject* parent = nullptr);

    const RemoteCalendarAccountMetadata& account() const { return m_account; }

    /// Starts from the tokens a sign-in just issued, saving one renewal.
    void seed(const OAuthTokenSet& tokens);
    /// A token valid for a while yet. With `rejected`, the service refused that token: a newer one is returned if
    /// another request renewed it meanwhile, else it is renewed. Throws RemoteAccountError (SignInMissing,
    /// SignInExpired) when only a new sign-in can help; OAuthError, RemoteHTTPError or the keyring's error otherwise.
    QCoro::Task<QString> accessToken(std::optional<QString> rejected = std::nullopt);
    /// accessToken() as the calendar clients take it; safe to call after the credentials are gone (it throws).
    RemoteAccessTokenProvider provider();

Q_SIGNALS:
    void renewalFinished();

private:
    static QCoro::Task<QString> accessTokenOf(QPointer<RemoteAccountCredentials> credentials,
                                              std::optional<QString> rejected);
    QCoro::Task<> renew();

    RemoteCalendarAccountMetadata m_account;
    OAuthTokenClient& m_tokens;
    OAuthRefreshTokenStoring& m_keyring;
    Configuration m_configuration;
    const Clock& m_clock;
    std::optional<OAuthTokenSet> m_current;
    bool m_renewing = false;
    std::exception_ptr m_lastRenewalFailure;
};

} // namespace orvane
