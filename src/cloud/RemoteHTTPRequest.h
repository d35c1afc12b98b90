// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <chrono>
#include <utility>
#include <vector>

namespace orvane {

/// One request to a calendar or sign-in service: what the transport sends, nothing it decides.
struct RemoteHTTPRequest {
    QUrl url;
    QByteArray method = QByteArrayLiteral("GET");
    /// Header fields in the order they are sent; setting a field again replaces it.
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    /// How long the whole exchange may take before it fails as timed out.
    std::chrono::milliseconds timeout{std::chrono::seconds(60)};

    /// Sets (or replaces) the header field `name`.
    void setHeader(const QByteArray& name, const QByteArray& value);
    /// The value of header field `name`, compared without regard to case; empty when absent.
    QByteArray header(const QByteArray& name) const;
    /// Authorises the request with an OAuth access token ("Authorization: Bearer <token>").
    void setBearerToken(const QString& accessToken);
};

} // namespace orvane
