// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/RemoteAccountCredentials.h"

#include "calendars/RemoteAccountError.h"
#include "oauth/OAuthError.h"
#include "oauth/OAuthRefreshTokenStoring.h"
#include "oauth/OAuthTokenClient.h"
#include "scheduling/Clock.h"

#include <QPointer>
#include <qcoro/qcorosignal.h>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// Token endpoint refusals that mean the refresh token itself is dead, not that the request was unlucky.
bool refusesSignIn(const OAuthError& error)
{
    const auto* refusal = std::get_if<OAuthError::TokenExchangeFailed>(&error.value());
    if (!refusal) {
        return false;
    }
    const QString code = refusal->error.value_or(QString());
    return code == u"invalid_grant"_s || code == u"interaction_required"_s || code == u"consent_required"_s ||
           code == u"unauthorized_client"_s || refusal->statusCode == 401;
}

} // namespace

QString RemoteAccountCredentials::keyringAccount(const RemoteCalendarAccountMetadata& account)
{
    return account.id.toString(QUuid::WithoutBraces).toUpper();
}

RemoteAccountCredentials::RemoteAccountCredentials(RemoteCalendarAccountMetadata account, OAuthTokenClient& tokens,
                                                   OAuthRefreshTokenStoring& keyring, Configuration configuration,
                                                   const Clock& clock, QObject* parent)
    : QObject(parent)
    , m_account(std::move(account))
    , m_tokens(tokens)
    , m_keyring(keyring)
    , m_configuration(std::move(configuration))
    , m_clock(clock)
{
}

void RemoteAccountCredentials::seed(const OAuthTokenSet& tokens)
{
    m_current = tokens;
}

QCoro::Task<QString> RemoteAccountCredentials::accessToken(std::optional<QString> rejected)
{
    const QPointer<RemoteAccountCredentials> self(this);
    for (;;) {
        if (m_current && (!rejected || m_current->accessToken != *rejected) &&
            m_current->expirationDate - m_clock.now() > renewalMargin) {
            const QString token = m_current->accessToken;
            co_return token;
        }
        if (!m_renewing) {
            co_await renew();
            if (!self) {
                throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
            }
            if (!m_current) {
                std::rethrow_exception(m_lastRenewalFailure);
            }
            const QString token = m_current->accessToken;
            co_return token;
        }
        // Someone else is renewing: their result serves this request too.
        co_await qCoro(this, &RemoteAccountCredentials::renewalFinished);
        if (!self) {
            throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
        }
        if (!m_current) {
            std::rethrow_exception(m_lastRenewalFailure);
        }
        // A renewal that ended in the meantime produced a token other than the refused one; loop to check it.
        if (rejected && m_current->accessToken == *rejected) {
            rejected.reset();
        }
    }
}

QCoro::Task<> RemoteAccountCredentials::renew()
{
    const QPointer<RemoteAccountCredentials> self(this);
    m_renewing = true;
    m_current.reset();
    std::exception_ptr failure;
    try {
        const QString keyringName = keyringAccount(m_account);
        const std::optional<QString> refreshToken = co_await m_keyring.readRefreshToken(keyringName);
        if (!self) {
            co_return;
        }
        if (!refreshToken || refreshToken->isEmpty()) {
            throw RemoteAccountError(RemoteAccountError::SignInMissing{});
        }
        OAuthTokenSet tokens;
        try {
            OAuthProviderConfiguration configuration = m_configuration(m_account);
            const QString token = *refreshToken;
            tokens = co_await m_tokens.refresh(std::move(configuration), token);
        } catch (const OAuthError& error) {
            if (!refusesSignIn(error)) {
                throw;
            }
            const auto& refusal = std::get<OAuthError::TokenExchangeFailed>(error.value());
            throw RemoteAccountError(RemoteAccountError::SignInExpired{refusal.error.value_or(QString())});
        }
        if (!self) {
            co_return;
        }
        if (tokens.refreshToken && *tokens.refreshToken != *refreshToken) {
            // The provider rotated the refresh token; the old one may stop working any moment.
            const QString rotated = *tokens.refreshToken;
            co_await m_keyring.saveRefreshToken(rotated, keyringName);
            if (!self) {
                co_return;
            }
        }
        m_current = std::move(tokens);
        m_lastRenewalFailure = nullptr;
    } catch (...) {
        failure = std::current_exception();
    }
    if (!self) {
        co_return;
    }
    m_renewing = false;
    if (failure) {
        m_lastRenewalFailure = failure;
    }
    Q_EMIT renewalFinished();
}

QCoro::Task<QString> RemoteAccountCredentials::accessTokenOf(QPointer<RemoteAccountCredentials> credentials,
                                                             std::optional<QString> rejected)
{
    if (!credentials) {
        throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
    }
    const QString token = co_await credentials->accessToken(std::move(rejected));
    co_return token;
}

RemoteAccessTokenProvider RemoteAccountCredentials::provider()
{
    // Not a coroutine itself: a coroutine lambda would keep using its captures after the copy of the function that
    // called it is gone.
    return [self = QPointer<RemoteAccountCredentials>(this)](std::optional<QString> rejected) {
        return accessTokenOf(self, std::move(rejected));
    };
}

} // namespace orvane
