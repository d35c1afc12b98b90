// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <qcoro/qcorotask.h>

#include <optional>

namespace orvane {

/// Keeps each connected account's OAuth refresh token in the system's secret store, keyed by the account's
/// identifier. Failures of the store are OAuthError::Keychain carrying its status.
class OAuthRefreshTokenStoring {
public:
    virtual ~OAuthRefreshTokenStoring() = default;

    /// The stored token, or nothing when the account has none.
    virtual QCoro::Task<std::optional<QString>> readRefreshToken(QString account) = 0;
    /// Stores `token` for the account, replacing the one it had.
    virtual QCoro::Task<> saveRefreshToken(QString token, QString account) = 0;
    /// Forgets the account's token; succeeds also when there was none.
    virtual QCoro::Task<> deleteRefreshToken(QString account) = 0;
};

} // namespace orvane
