// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteHTTPRequest.h"
#include "cloud/RemoteHTTPResponse.h"

#include <qcoro/qcorotask.h>

namespace orvane {

/// Which redirects a transport follows.
enum class RemoteHTTPRedirectPolicy {
    /// Ordinary redirect handling.
    follow,
    /// Redirects only within the request's origin; any other ends the request with CrossOriginRedirect.
    sameOrigin,
};

/// Sends requests to calendar and sign-in services. It does not judge status codes: the caller decides what a status
/// means. Failures to get an answer at all throw RemoteHTTPError.
class RemoteHTTPTransport {
public:
    virtual ~RemoteHTTPTransport() = default;

    virtual QCoro::Task<RemoteHTTPResponse> send(RemoteHTTPRequest request) = 0;
};

} // namespace orvane
