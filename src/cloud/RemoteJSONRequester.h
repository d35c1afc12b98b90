// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarClient.h"

#include <QByteArray>
#include <QJsonObject>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace orvane {

class RemoteHTTPTransport;

/// The part of talking to a calendar API that Google and Microsoft share: an authorised GET that answers a JSON
/// object, one token renewal when the service refuses the token, polite retries when it is busy, and paging that
/// never leaves the origin the first page came from.
class RemoteJSONRequester {
public:
    struct Options {
        /// How often a busy answer (429, 500, 502, 503, 504) is retried before it counts as a failure.
        int maximumRetries = 2;
        /// The longest wait before a retry; a service asking for longer gets its failure reported instead, so a
        /// refresh never stalls for minutes.
        std::chrono::milliseconds maximumRetryDelay{std::chrono::seconds(20)};
        /// The wait before the first retry when the service names none; it doubles for each further retry.
        std::chrono::milliseconds defaultRetryDelay{std::chrono::seconds(1)};
        std::chrono::milliseconds requestTimeout{std::chrono::seconds(30)};
        /// A guard against a service that keeps handing out next pages.
        int maximumPages = 500;
    };

    /// Reads the service's own explanation from an error body; absent when it has none.
    using ErrorMessageReader = std::function<std::optional<QString>(const QByteArray& body)>;
    /// Takes one page and returns where the next one is, if there is one.
    using PageConsumer = std::function<std::optional<QUrl>(const QJsonObject& page)>;
    using Headers = std::vector<std::pair<QByteArray, QByteArray>>;

    /// `transport` must outlive the requester.
    RemoteJSONRequester(RemoteHTTPTransport& transport, ErrorMessageReader readErrorMessage, Options options);

    /// GETs `url` with the account's token and returns the reply's JSON object. Throws RemoteHTTPError:
    /// UnexpectedStatus for a status other than 2xx (after renewal and retries), InvalidResponse for a body that is
    /// not a JSON object; the token provider's own errors pass through.
    QCoro::Task<QJsonObject> get(QUrl url, RemoteAccessTokenProvider accessToken, Headers headers = {});

    /// GETs `first` and every page after it, handing each to `consume`. A next page on another origin than the
    /// first is refused with CrossOriginRedirect before anything is sent to it; a page that links back to one
    /// already read, or more than maximumPages pages, is InvalidResponse.
    QCoro::Task<> getPages(QUrl first, RemoteAccessTokenProvider accessToken, PageConsumer consume,
                           Headers headers = {});

    /// How long a Retry-After value (delta seconds or an HTTP date, relative to `now`) asks to wait; absent when
    /// it cannot be read.
    static std::optional<std::chrono::milliseconds> retryAfter(const QString& value, const QDateTime& now);

private:
    RemoteHTTPTransport& m_transport;
    ErrorMessageReader m_readErrorMessage;
    Options m_options;
};

} // namespace orvane
