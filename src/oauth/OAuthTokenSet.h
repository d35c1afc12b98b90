// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"

#include <QSet>
#include <QString>

#include <optional>

namespace orvane {

/// The tokens a token endpoint issued. Access tokens live only in memory; the refresh token goes to the keyring.
struct OAuthTokenSet {
    QString accessToken;
    std::optional<QString> refreshToken;
    /// The local time of receipt plus the lifetime the provider gave.
    Date expirationDate;
    /// The scopes the provider reports as granted; empty when it reported none.
    QSet<QString> grantedScopes;
    /// Kept as received; never decoded or validated.
    std::optional<QString> idToken;

    friend bool operator==(const OAuthTokenSet&, const OAuthTokenSet&) = default;
};

} // namespace orvane
