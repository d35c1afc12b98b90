// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RemoteCalendarProviderKind.h"

#include <QByteArray>
#include <QString>

#include <exception>
#include <variant>

namespace orvane {

/// Why a connected account cannot be used, or connected, beyond what the sign-in and the service themselves report.
class RemoteAccountError : public std::exception {
public:
    /// No OAuth client is configured for the provider.
    struct MissingClientID {
        friend bool operator==(const MissingClientID&, const MissingClientID&) = default;
    };
    /// The keyring holds no sign-in for the account (removed by the user, or a new keyring).
    struct SignInMissing {
        friend bool operator==(const SignInMissing&, const SignInMissing&) = default;
    };
    /// The provider refused the stored sign-in (revoked, expired, password changed); its own code when it gave one.
    struct SignInExpired {
        QString providerError;
        friend bool operator==(const SignInExpired&, const SignInExpired&) = default;
    };
    /// A reconnection signed in to another account than the one being reconnected.
    struct DifferentAccount {
        QString expected;
        QString actual;
        friend bool operator==(const DifferentAccount&, const DifferentAccount&) = default;
    };
    /// Another sign-in or removal is still running.
    struct Busy {
        friend bool operator==(const Busy&, const Busy&) = default;
    };
    /// The account is no longer connected.
    struct UnknownAccount {
        friend bool operator==(const UnknownAccount&, const UnknownAccount&) = default;
    };

    using Case = std::variant<MissingClientID, SignInMissing, SignInExpired, DifferentAccount, Busy, UnknownAccount>;

    explicit RemoteAccountError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;
    /// Whether only a new sign-in can make the account usable again.
    bool requiresReauthentication() const;

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
