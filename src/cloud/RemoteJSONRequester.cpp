// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteJSONRequester.h"

#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "cloud/RemoteHTTPOrigin.h"
#include "cloud/RemoteHTTPRequest.h"
#include "cloud/RemoteHTTPTransport.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QLocale>
#include <QSet>
#include <qcoro/qcorotimer.h>

#include <QTimeZone>

#include <algorithm>
#include <limits>

namespace orvane {

using namespace Qt::StringLiterals;

namespace {

bool isRetriable(int status)
{
    return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

} // namespace

RemoteJSONRequester::RemoteJSONRequester(RemoteHTTPTransport& transport, ErrorMessageReader readErrorMessage,
                                         Options options)
    : m_transport(transport)
    , m_readErrorMessage(std::move(readErrorMessage))
    , m_options(options)
{
}

std::optional<std::chrono::milliseconds> RemoteJSONRequester::retryAfter(const QString& value, const QDateTime& now)
{
    const QString trimmed = value.trimmed();
    bool isNumber = false;
    const qint64 seconds = trimmed.toLongLong(&isNumber);
    if (isNumber) {
        if (seconds < 0) {
            return std::nullopt;
        }
        // A hostile value must not overflow into a short wait; anything this long is refused as too long anyway.
        return std::chrono::milliseconds(std::min<qint64>(seconds, std::numeric_limits<qint64>::max() / 1000) * 1000);
    }
    // The HTTP date form: "Sun, 06 Nov 1994 08:49:37 GMT".
    QDateTime date = QLocale::c().toDateTime(trimmed, u"ddd, dd MMM yyyy HH:mm:ss 'GMT'"_s);
    if (!date.isValid()) {
        return std::nullopt;
    }
    date.setTimeZone(QTimeZone::utc());
    return std::chrono::milliseconds(std::max<qint64>(0, now.msecsTo(date)));
}

QCoro::Task<QJsonObject> RemoteJSONRequester::get(QUrl url, RemoteAccessTokenProvider accessToken, Headers headers)
{
    std::optional<QString> rejected;
    QString token = co_await accessToken(rejected);
    bool renewed = false;
    int retries = 0;
    std::chrono::milliseconds nextDelay = m_options.defaultRetryDelay;
    for (;;) {
        RemoteHTTPRequest request{.url = url, .timeout = m_options.requestTimeout};
        request.setHeader("Accept", "application/json");
        for (const auto& [name, value] : headers) {
            request.setHeader(name, value);
        }
        request.setBearerToken(token);
        const RemoteHTTPResponse response = co_await m_transport.send(std::move(request));
        const int status = response.statusCode;

        if (status >= 200 && status < 300) {
            QJsonParseError parseError;
            const QJsonDocument document = QJsonDocument::fromJson(response.data, &parseError);
            if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
                throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
            }
            co_return document.object();
        }
        if (status == 401 && !renewed) {
            // The token expired early or was revoked: one fresh token, then the refusal stands.
            renewed = true;
            rejected = token;
            token = co_await accessToken(rejected);
            continue;
        }
        if (isRetriable(status) && retries < m_options.maximumRetries) {
            std::chrono::milliseconds delay = nextDelay;
            if (const auto header = response.header(u"Retry-After"_s)) {
                delay = retryAfter(*header, QDateTime::currentDateTimeUtc()).value_or(delay);
            }
            if (delay <= m_options.maximumRetryDelay) {
                ++retries;
                nextDelay *= 2;
                co_await QCoro::sleepFor(delay);
                continue;
            }
        }
        std::optional<QString> message = m_readErrorMessage ? m_readErrorMessage(response.data) : std::nullopt;
        if (message && message->trimmed().isEmpty()) {
            message.reset();
        }
        throw RemoteHTTPError(RemoteHTTPError::UnexpectedStatus{status, message});
    }
}

QCoro::Task<> RemoteJSONRequester::getPages(QUrl first, RemoteAccessTokenProvider accessToken, PageConsumer consume,
                                            Headers headers)
{
    const std::optional<RemoteHTTPOrigin> origin = RemoteHTTPOrigin::of(first);
    if (!origin) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidURL{});
    }
    QSet<QString> seen;
    std::optional<QUrl> next = first;
    for (int page = 0; next; ++page) {
        if (page >= m_options.maximumPages || seen.contains(next->toString())) {
            throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
        }
        if (RemoteHTTPOrigin::of(*next) != origin) {
            // A next-page link is the service's word, not a redirect, but following it elsewhere would hand the
            // bearer token to whoever it names.
            throw RemoteHTTPError(RemoteHTTPError::CrossOriginRedirect{});
        }
        seen.insert(next->toString());
        const QUrl url = *next;
        const QJsonObject object = co_await get(url, accessToken, headers);
        next = consume(object);
    }
}

QString providerCalendarIdentifier(const RemoteCalendarAccountMetadata& account,
                                   const RemoteCalendarDescriptor& calendar)
{
    const auto decoded = RemoteCalendarIdentityNamespace::decodeCalendarIdentifier(calendar.identifier);
    if (!decoded || decoded->accountID != account.id) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidURL{});
    }
    return decoded->providerCalendarIdentifier;
}

QString remoteSourceTitle(const RemoteCalendarAccountMetadata& account)
{
    if (account.emailAddress && !account.emailAddress->trimmed().isEmpty()) {
        return *account.emailAddress;
    }
    return account.displayName;
}

} // namespace orvane
