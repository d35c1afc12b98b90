// SPDX-License-Identifier: GPL-3.0-or-later
// A token endpoint (or whoever answers in its place) controls every byte of its reply. Decoding either yields a
// usable token set or throws the one error meant for an unreadable reply; nothing else may happen.
#include "oauth/OAuthError.h"
#include "oauth/OAuthTokenClient.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const orvane::Date receivedAt{700'000'000};
    try {
        const auto tokens = orvane::OAuthTokenClient::decodeTokenResponse(body, receivedAt);
        if (tokens.accessToken.isEmpty() || !(tokens.expirationDate > receivedAt) ||
            tokens.grantedScopes.contains(QString())) {
            std::abort();
        }
    } catch (const orvane::OAuthError& error) {
        if (!std::holds_alternative<orvane::OAuthError::InvalidTokenResponse>(error.value())) {
            std::abort();
        }
    }
    return 0;
}
