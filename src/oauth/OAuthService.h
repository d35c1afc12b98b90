// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"
#include "domain/RemoteCalendarProviderKind.h"

namespace orvane {

/// An OAuth provider Orvane signs in to.
enum class OAuthService {
    google,
    microsoft,
};

template <>
struct RawValues<OAuthService> {
    static constexpr std::string_view name = "OAuthService";
    static constexpr std::array cases = {
        std::pair{OAuthService::google, std::string_view("google")},
        std::pair{OAuthService::microsoft, std::string_view("microsoft")},
    };
};

/// The sign-in service of a calendar provider; the two map one to one.
constexpr OAuthService oauthService(RemoteCalendarProviderKind provider)
{
    switch (provider) {
    case RemoteCalendarProviderKind::google:
        return OAuthService::google;
    case RemoteCalendarProviderKind::microsoft:
        return OAuthService::microsoft;
    }
    return OAuthService::google;
}

} // namespace orvane
