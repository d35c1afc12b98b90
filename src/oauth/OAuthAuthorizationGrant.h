// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthProviderConfiguration.h"

#include <QString>

namespace orvane {

/// What a completed browser sign-in yields: the code and everything the token request must repeat.
struct OAuthAuthorizationGrant {
    OAuthProviderConfiguration configuration;
    QString code;
    /// The PKCE verifier that belongs to this authorization request.
    QString codeVerifier;
    /// The exact redirect URI sent in the authorization request.
    QString redirectURI;

    friend bool operator==(const OAuthAuthorizationGrant&, const OAuthAuthorizationGrant&) = default;
};

} // namespace orvane
