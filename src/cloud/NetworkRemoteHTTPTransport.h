// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteHTTPTransport.h"

#include <memory>

class QNetworkAccessManager;

namespace orvane {

/// The transport Orvane uses in production: Qt's network access manager, driven without blocking.
///
/// It owns one QNetworkAccessManager that lives on the thread that created the transport; requests must be sent
/// from that thread. Under `sameOrigin` every redirect is checked before it is followed, and a redirect to another
/// scheme, host or port ends the request with CrossOriginRedirect without anything being sent to that origin, so a
/// bearer token never leaves the service it was meant for. Under `follow` Qt's own policy applies
/// (QNetworkRequest::NoLessSafeRedirectPolicy: any origin, but never from https down to http).
///
/// Cookies are neither stored nor sent: every request carries its own authorisation, and a shared cookie jar would
/// let one account's session leak into another's requests. Destroying the transport while requests are pending
/// ends them with TransportFailure.
class NetworkRemoteHTTPTransport final : public RemoteHTTPTransport {
public:
    explicit NetworkRemoteHTTPTransport(RemoteHTTPRedirectPolicy redirectPolicy = RemoteHTTPRedirectPolicy::sameOrigin);
    ~NetworkRemoteHTTPTransport() override;

    NetworkRemoteHTTPTransport(const NetworkRemoteHTTPTransport&) = delete;
    NetworkRemoteHTTPTransport& operator=(const NetworkRemoteHTTPTransport&) = delete;

    QCoro::Task<RemoteHTTPResponse> send(RemoteHTTPRequest request) override;

    RemoteHTTPRedirectPolicy redirectPolicy() const { return m_redirectPolicy; }

private:
    RemoteHTTPRedirectPolicy m_redirectPolicy;
    std::unique_ptr<QNetworkAccessManager> m_manager;
};

} // namespace orvane
