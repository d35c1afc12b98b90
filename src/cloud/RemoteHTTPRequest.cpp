// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteHTTPRequest.h"

#include <algorithm>

namespace orvane {

void RemoteHTTPRequest::setHeader(const QByteArray& name, const QByteArray& value)
{
    const auto existing = std::find_if(headers.begin(), headers.end(), [&](const auto& field) {
        return field.first.compare(name, Qt::CaseInsensitive) == 0;
    });
    if (existing != headers.end()) {
        existing->second = value;
    } else {
        headers.emplace_back(name, value);
    }
}

QByteArray RemoteHTTPRequest::header(const QByteArray& name) const
{
    for (const auto& [fieldName, value] : headers) {
        if (fieldName.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

void RemoteHTTPRequest::setBearerToken(const QString& accessToken)
{
    setHeader(QByteArrayLiteral("Authorization"), QByteArrayLiteral("Bearer ") + accessToken.toUtf8());
}

} // namespace orvane
