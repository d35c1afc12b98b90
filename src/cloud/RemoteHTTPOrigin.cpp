// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteHTTPOrigin.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::optional<RemoteHTTPOrigin> RemoteHTTPOrigin::of(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    const QString host = url.host().toLower();
    if (!url.isValid() || scheme.isEmpty() || host.isEmpty()) {
        return std::nullopt;
    }
    int port = url.port();
    if (port < 0) {
        if (scheme == u"https"_s) {
            port = 443;
        } else if (scheme == u"http"_s) {
            port = 80;
        } else {
            return std::nullopt;
        }
    }
    return RemoteHTTPOrigin{scheme, host, port};
}

} // namespace orvane
