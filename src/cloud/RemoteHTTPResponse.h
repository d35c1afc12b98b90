// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <map>
#include <optional>

namespace orvane {

/// What a service answered: the body, the status, the text header fields and where the answer finally came from.
struct RemoteHTTPResponse {
    /// Orders header names without regard to case, so a lookup finds "content-type" as "Content-Type".
    struct CaseInsensitiveLess {
        bool operator()(const QString& lhs, const QString& rhs) const
        {
            return lhs.compare(rhs, Qt::CaseInsensitive) < 0;
        }
    };

    QByteArray data;
    int statusCode = 0;
    std::map<QString, QString, CaseInsensitiveLess> headers;
    /// The URL after any redirects that were followed.
    std::optional<QUrl> finalURL;

    /// The value of header field `name`, whatever its case; absent when the response has no such field.
    std::optional<QString> header(const QString& name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? std::nullopt : std::optional<QString>(found->second);
    }

    friend bool operator==(const RemoteHTTPResponse&, const RemoteHTTPResponse&) = default;
};

} // namespace orvane
