// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

namespace orvane {

/// `byteCount` bytes from the kernel's random source, in base64url without padding. Throws
/// OAuthError::Keychain carrying the negated errno when the kernel refuses (the status field is the only place an
/// OAuthError carries a system error code; it is negative so that it cannot be taken for a secret store status).
QString secureRandomString(int byteCount);

/// Proof Key for Code Exchange (RFC 7636) values for one authorization request, and its other random parameters.
struct OAuthPKCE {
    /// A fresh code verifier: 48 random bytes, 64 characters.
    static QString makeVerifier();
    /// The S256 challenge of `verifier`: SHA-256 of its UTF-8 bytes in base64url without padding, 43 characters.
    static QString makeChallenge(const QString& verifier);
    /// A fresh state value: 32 random bytes, 43 characters.
    static QString makeState();
    /// A fresh OpenID nonce: 32 random bytes, 43 characters.
    static QString makeNonce();
};

} // namespace orvane
