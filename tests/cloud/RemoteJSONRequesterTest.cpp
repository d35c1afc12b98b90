// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteJSONRequester.h"

#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteHTTPError.h"
#include "support/LocalHttpServer.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orvane::NetworkRemoteHTTPTransport;
using orvane::RemoteAccessTokenProvider;
using orvane::RemoteHTTPError;
using orvane::RemoteJSONRequester;

namespace orvane {
inline void PrintTo(const RemoteHTTPError& error, std::ostream* out)
{
    *out << error.what();
}
} // namespace orvane

namespace {

RemoteJSONRequester::Options fastOptions()
{
    RemoteJSONRequester::Options options;
    options.defaultRetryDelay = 10ms;
    options.maximumRetryDelay = 2s;
    options.requestTimeout = 5s;
    options.maximumPages = 5;
    return options;
}

/// A token provider like the real one: the same token until one is refused, then "token-<refusals + 1>".
struct Tokens {
    std::vector<QString> rejected;

    RemoteAccessTokenProvider provider()
    {
        return [this](std::optional<QString> refused) -> QCoro::Task<QString> {
            if (refused) {
                rejected.push_back(*refused);
            }
            co_return u"token-%1"_s.arg(rejected.size() + 1);
        };
    }
};

/// Answers with `responses` in turn, repeating the last one.
LocalHttpServer::Handler inTurn(std::vector<LocalHttpResponse> responses)
{
    auto next = std::make_shared<std::size_t>(0);
    return [responses = std::move(responses), next](const LocalHttpRequest&) {
        return responses[std::min((*next)++, responses.size() - 1)];
    };
}

LocalHttpResponse withHeader(LocalHttpResponse response, QByteArray name, QByteArray value)
{
    response.headers.emplace_back(std::move(name), std::move(value));
    return response;
}

template <class Run>
std::optional<RemoteHTTPError> errorOf(Run&& run)
{
    try {
        run();
    } catch (const RemoteHTTPError& error) {
        return error;
    }
    return std::nullopt;
}

RemoteHTTPError status(int code, std::optional<QString> message = std::nullopt)
{
    return RemoteHTTPError(RemoteHTTPError::UnexpectedStatus{code, std::move(message)});
}

const RemoteHTTPError invalidResponse(RemoteHTTPError::InvalidResponse{});

TEST(RemoteJSONRequesterTest, RetryAfterValues)
{
    const QDateTime now(QDate(2026, 11, 22), QTime(10, 0), QTimeZone::utc());
    const std::pair<QString, std::optional<std::chrono::milliseconds>> rows[] = {
        {u"0"_s, 0ms},
        {u" 7 "_s, 7s},
        {u"Sun, 22 Nov 2026 10:00:30 GMT"_s, 30s},
        {u"Sun, 22 Nov 2026 09:00:00 GMT"_s, 0ms},
        {u"-1"_s, std::nullopt},
        {u"1.5"_s, std::nullopt},
        {u"soon"_s, std::nullopt},
        {u""_s, std::nullopt},
        {u"Sun, 22 Nov 2026 10:00:30 PST"_s, std::nullopt},
        {u"22 Nov 2026 10:00:30"_s, std::nullopt},
    };
    for (const auto& [value, expected] : rows) {
        EXPECT_EQ(RemoteJSONRequester::retryAfter(value, now), expected) << value.toStdString();
    }
    // A hostile number must not wrap around into a short wait.
    EXPECT_GT(RemoteJSONRequester::retryAfter(u"9223372036854775807"_s, now).value_or(0ms), 24h);
}

TEST(RemoteJSONRequesterTest, StatusesRenewalAndRetries)
{
    const auto busy = [](int code, QByteArray retryAfter) {
        return withHeader(LocalHttpResponse::json(code, R"({"message":"busy"})"), "Retry-After", retryAfter);
    };
    const LocalHttpResponse ok = LocalHttpResponse::json(200, R"({"ok":true})");
    const LocalHttpResponse expired = LocalHttpResponse::json(401, R"({"message":"token expired"})");
    struct Row {
        const char* name;
        std::vector<LocalHttpResponse> responses;
        std::optional<RemoteHTTPError> error;
        std::size_t requests;
    };
    const Row rows[] = {
        {"401 then renewed", {expired, ok}, std::nullopt, 2},
        {"401 twice", {expired}, status(401, u"token expired"_s), 2},
        {"429 after 0 s", {busy(429, "0"), ok}, std::nullopt, 2},
        {"503 until a past date", {busy(503, "Sun, 06 Nov 1994 08:49:37 GMT"), ok}, std::nullopt, 2},
        {"500 with garbage delay", {busy(500, "soon"), ok}, std::nullopt, 2},
        {"retries exhausted", {busy(503, "0")}, status(503, u"busy"_s), 3},
        {"delay above maximum", {busy(429, "3600"), ok}, status(429, u"busy"_s), 1},
        {"404 is final", {LocalHttpResponse::json(404, R"({"message":"gone"})"), ok}, status(404, u"gone"_s), 1},
        {"blank message", {LocalHttpResponse::json(403, R"({"message":" "})")}, status(403), 1},
        {"array body", {LocalHttpResponse::json(200, "[1]")}, invalidResponse, 1},
        {"empty body", {LocalHttpResponse{204, {}, {}}}, invalidResponse, 1},
        {"broken JSON", {LocalHttpResponse::json(200, "{\"a\":")}, invalidResponse, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LocalHttpServer server;
        server.route("GET", "/thing", inTurn(row.responses));
        NetworkRemoteHTTPTransport transport;
        RemoteJSONRequester requester(
            transport,
            [](const QByteArray& body) -> std::optional<QString> {
                return QJsonDocument::fromJson(body).object().value(u"message"_s).toString();
            },
            fastOptions());
        Tokens tokens;
        QJsonObject reply;
        const auto error = errorOf([&] {
            reply = runTask(requester.get(server.url(u"/thing?a=1"_s), tokens.provider(), {{"X-Extra", "yes"}}));
        });
        EXPECT_EQ(error, row.error);
        if (!row.error) {
            EXPECT_EQ(reply.value(u"ok"_s).toBool(), true);
        }
        ASSERT_EQ(server.requests().size(), row.requests);
        const bool renewed = row.responses.front().status == 401;
        for (std::size_t index = 0; index < row.requests; ++index) {
            const LocalHttpRequest& received = server.requests()[index];
            EXPECT_EQ(received.target, "/thing?a=1");
            EXPECT_EQ(received.header("X-Extra"), "yes");
            EXPECT_EQ(received.header("Authorization"), renewed && index > 0 ? "Bearer token-2" : "Bearer token-1");
        }
        EXPECT_EQ(tokens.rejected, renewed ? std::vector{u"token-1"_s} : std::vector<QString>{});
    }
}

TEST(RemoteJSONRequesterTest, Pages)
{
    struct Row {
        const char* name;
        /// Where page n links to: "/pN" on the same server, "other" for a page elsewhere, "" for the last page.
        std::vector<QString> links;
        std::optional<RemoteHTTPError> error;
        std::size_t pagesRead;
    };
    const Row rows[] = {
        {"three pages", {u"/p2"_s, u"/p3"_s, u""_s}, std::nullopt, 3},
        {"loop", {u"/p2"_s, u"/p1"_s}, invalidResponse, 2},
        {"too many pages", {u"/p2"_s, u"/p3"_s, u"/p4"_s, u"/p5"_s, u"/p6"_s, u"/p7"_s}, invalidResponse, 5},
        {"other origin", {u"/p2"_s, u"other"_s}, RemoteHTTPError(RemoteHTTPError::CrossOriginRedirect{}), 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LocalHttpServer server;
        LocalHttpServer other;
        other.route("GET", "/p3", LocalHttpResponse::json(200, "{}"));
        for (std::size_t index = 0; index < row.links.size(); ++index) {
            const QString& link = row.links[index];
            const QString next = link == u"other"_s ? other.url(u"/p3"_s).toString()
                                 : link.isEmpty()   ? QString()
                                                    : server.url(link).toString();
            server.route("GET", "/p" + QByteArray::number(qsizetype(index + 1)),
                         LocalHttpResponse::json(200, QJsonDocument(QJsonObject{{u"next"_s, next}}).toJson()));
        }
        NetworkRemoteHTTPTransport transport;
        RemoteJSONRequester requester(transport, {}, fastOptions());
        Tokens tokens;
        std::size_t pagesRead = 0;
        const RemoteJSONRequester::PageConsumer consume = [&](const QJsonObject& page) -> std::optional<QUrl> {
            ++pagesRead;
            const QString next = page.value(u"next"_s).toString();
            return next.isEmpty() ? std::nullopt : std::optional(QUrl(next));
        };
        const auto error =
            errorOf([&] { runTask(requester.getPages(server.url(u"/p1"_s), tokens.provider(), consume)); });
        EXPECT_EQ(error, row.error);
        EXPECT_EQ(pagesRead, row.pagesRead);
        EXPECT_EQ(server.requests().size(), row.pagesRead);
        EXPECT_TRUE(other.requests().empty());
    }
}

} // namespace
