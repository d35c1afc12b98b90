// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QUrl>

#include <optional>

namespace orvane {

/// Where a URL points, as far as trusting it with a token goes: scheme, host and port.
struct RemoteHTTPOrigin {
    /// Lower-cased.
    QString scheme;
    /// Lower-cased.
    QString host;
    /// The URL's explicit port, else 443 for "https" and 80 for "http".
    int port = 0;

    /// The origin of `url`. A URL without a scheme or host, or with a scheme other than "http" or "https" and no
    /// explicit port, has none.
    static std::optional<RemoteHTTPOrigin> of(const QUrl& url);

    friend bool operator==(const RemoteHTTPOrigin&, const RemoteHTTPOrigin&) = default;
};

} // namespace orvane
