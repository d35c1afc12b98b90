// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <exception>
#include <optional>
#include <variant>

namespace orvane {

/// Why a sign-in, a token request or a stored token failed. Every case carries the text the user is shown.
class OAuthError : public std::exception {
public:
    /// The user declined; the provider's own explanation when it sent one.
    struct AccessDenied {
        std::optional<QString> description;
        friend bool operator==(const AccessDenied&, const AccessDenied&) = default;
    };
    /// The provider answered the authorization request with an error other than a refusal.
    struct ProviderError {
        QString code;
        std::optional<QString> description;
        friend bool operator==(const ProviderError&, const ProviderError&) = default;
    };
    /// The token grants fewer read-only permissions than the calendar client needs.
    struct MissingRequiredScopes {
        QStringList scopes;
        friend bool operator==(const MissingRequiredScopes&, const MissingRequiredScopes&) = default;
    };
    /// The token endpoint refused an exchange or a refresh.
    struct TokenExchangeFailed {
        int statusCode = 0;
        std::optional<QString> error;
        std::optional<QString> description;
        friend bool operator==(const TokenExchangeFailed&, const TokenExchangeFailed&) = default;
    };
    /// The revocation endpoint refused to revoke a token.
    struct TokenRevocationFailed {
        int statusCode = 0;
        std::optional<QString> error;
        friend bool operator==(const TokenRevocationFailed&, const TokenRevocationFailed&) = default;
    };
    /// The secret store returned a failure status.
    struct Keychain {
        std::int32_t status = 0;
        friend bool operator==(const Keychain&, const Keychain&) = default;
    };
    /// No usable OAuth client ID is configured for the provider.
    struct InvalidClientId {
        friend bool operator==(const InvalidClientId&, const InvalidClientId&) = default;
    };
    /// The temporary local callback receiver could not listen.
    struct UnableToListen {
        friend bool operator==(const UnableToListen&, const UnableToListen&) = default;
    };
    /// The browser could not be asked to open the sign-in page.
    struct UnableToOpenBrowser {
        friend bool operator==(const UnableToOpenBrowser&, const UnableToOpenBrowser&) = default;
    };
    /// The redirect back from the provider could not be understood.
    struct InvalidCallback {
        friend bool operator==(const InvalidCallback&, const InvalidCallback&) = default;
    };
    /// The redirect carried a state other than the one this sign-in sent.
    struct StateMismatch {
        friend bool operator==(const StateMismatch&, const StateMismatch&) = default;
    };
    /// The redirect carried no authorization code.
    struct MissingAuthorizationCode {
        friend bool operator==(const MissingAuthorizationCode&, const MissingAuthorizationCode&) = default;
    };
    /// The provider issued no refresh token, so the account could not stay connected.
    struct MissingRefreshToken {
        friend bool operator==(const MissingRefreshToken&, const MissingRefreshToken&) = default;
    };
    /// The build names a Google desktop client but lacks its client secret.
    struct MissingGoogleClientSecret {
        friend bool operator==(const MissingGoogleClientSecret&, const MissingGoogleClientSecret&) = default;
    };
    /// The token endpoint's answer could not be decoded.
    struct InvalidTokenResponse {
        friend bool operator==(const InvalidTokenResponse&, const InvalidTokenResponse&) = default;
    };
    /// The user or the application stopped the sign-in.
    struct Cancelled {
        friend bool operator==(const Cancelled&, const Cancelled&) = default;
    };

    using Case = std::variant<AccessDenied, ProviderError, MissingRequiredScopes, TokenExchangeFailed,
                              TokenRevocationFailed, Keychain, InvalidClientId, UnableToListen, UnableToOpenBrowser,
                              InvalidCallback, StateMismatch, MissingAuthorizationCode, MissingRefreshToken,
                              MissingGoogleClientSecret, InvalidTokenResponse, Cancelled>;

    explicit OAuthError(Case value);

    const Case& value() const { return m_value; }
    /// A plain English description for the user; provider codes and texts are quoted as sent.
    QString description() const;
    const char* what() const noexcept override;

    friend bool operator==(const OAuthError& lhs, const OAuthError& rhs) { return lhs.m_value == rhs.m_value; }

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
