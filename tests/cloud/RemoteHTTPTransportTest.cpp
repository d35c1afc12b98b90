// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteHTTPError.h"
#include "cloud/RemoteHTTPOrigin.h"
#include "support/LocalHttpServer.h"
#include "support/Patience.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orvane::NetworkRemoteHTTPTransport;
using orvane::RemoteHTTPError;
using orvane::RemoteHTTPOrigin;
using orvane::RemoteHTTPRedirectPolicy;
using orvane::RemoteHTTPRequest;
using orvane::RemoteHTTPResponse;

namespace orvane {
inline void PrintTo(const RemoteHTTPError& error, std::ostream* out)
{
    *out << error.what();
}
} // namespace orvane

namespace {

RemoteHTTPRequest request(const QUrl& url, const QByteArray& method = "GET")
{
    RemoteHTTPRequest result;
    result.url = url;
    result.method = method;
    result.timeout = 10s;
    return result;
}

/// The error a send ends with, or none when it returned a response.
std::optional<RemoteHTTPError> sendError(NetworkRemoteHTTPTransport& transport, const RemoteHTTPRequest& request)
{
    try {
        runTask(transport.send(request));
    } catch (const RemoteHTTPError& error) {
        return error;
    }
    return std::nullopt;
}

TEST(RemoteHTTPOriginTest, TrustsOnlySameSchemeHostAndPort)
{
    struct Row {
        QString first;
        QString second;
        bool sameOrigin;
    };
    const Row rows[] = {
        {u"https://api.example.com/a"_s, u"https://api.example.com:443/b?c"_s, true},
        {u"https://API.Example.COM/a"_s, u"https://api.example.com/a"_s, true},
        {u"https://example.com/"_s, u"http://example.com/"_s, false},
        {u"https://example.com/"_s, u"https://example.com:8443/"_s, false},
        {u"https://example.com/"_s, u"https://www.example.com/"_s, false},
        {u"http://127.0.0.1:8080/"_s, u"http://localhost:8080/"_s, false},
    };
    for (const Row& row : rows) {
        const auto first = RemoteHTTPOrigin::of(QUrl(row.first));
        const auto second = RemoteHTTPOrigin::of(QUrl(row.second));
        ASSERT_TRUE(first && second) << row.first.toStdString() << " / " << row.second.toStdString();
        EXPECT_EQ(*first == *second, row.sameOrigin) << row.first.toStdString() << " / " << row.second.toStdString();
    }
    EXPECT_EQ(RemoteHTTPOrigin::of(QUrl(u"https://Example.com/x"_s)),
              (RemoteHTTPOrigin{u"https"_s, u"example.com"_s, 443}));
    EXPECT_EQ(RemoteHTTPOrigin::of(QUrl(u"ftp://example.com:21/x"_s)),
              (RemoteHTTPOrigin{u"ftp"_s, u"example.com"_s, 21}));
    for (const QString& url : {u"/relative/path"_s, u"ftp://example.com/x"_s, u"mailto:a@example.com"_s, QString()}) {
        EXPECT_EQ(RemoteHTTPOrigin::of(QUrl(url)), std::nullopt) << url.toStdString();
    }
}

TEST(RemoteHTTPTransportTest, RedirectsAreCheckedAgainstTheOrigin)
{
    enum class Target { relative, sameOriginAbsolute, otherPort, otherHostName, sameThenOtherPort };
    struct Row {
        const char* name;
        Target target;
        RemoteHTTPRedirectPolicy policy;
        /// The server expected to answer "/final"; none when the redirect must be refused.
        std::optional<int> finalServer;
    };
    const Row rows[] = {
        {"relative", Target::relative, RemoteHTTPRedirectPolicy::sameOrigin, 0},
        {"absolute same origin", Target::sameOriginAbsolute, RemoteHTTPRedirectPolicy::sameOrigin, 0},
        {"other port", Target::otherPort, RemoteHTTPRedirectPolicy::sameOrigin, std::nullopt},
        {"localhost for 127.0.0.1", Target::otherHostName, RemoteHTTPRedirectPolicy::sameOrigin, std::nullopt},
        {"second hop to other port", Target::sameThenOtherPort, RemoteHTTPRedirectPolicy::sameOrigin, std::nullopt},
        {"other port, follow", Target::otherPort, RemoteHTTPRedirectPolicy::follow, 1},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LocalHttpServer servers[2];
        const QByteArray otherFinal = servers[1].url(u"/final"_s).toEncoded();
        const QByteArray location = [&]() -> QByteArray {
            switch (row.target) {
            case Target::relative:
                return "final";
            case Target::sameOriginAbsolute:
                return servers[0].url(u"/final"_s).toEncoded();
            case Target::otherPort:
                return otherFinal;
            case Target::otherHostName:
                return servers[0].url(u"/final"_s, u"localhost"_s).toEncoded();
            case Target::sameThenOtherPort:
                return "/hop";
            }
            return {};
        }();
        servers[0].route("GET", "/start", LocalHttpResponse::redirect(location));
        servers[0].route("GET", "/hop", LocalHttpResponse::redirect(otherFinal, 307));
        for (LocalHttpServer& server : servers) {
            server.route("GET", "/final", LocalHttpResponse{200, {}, "arrived"});
        }
        NetworkRemoteHTTPTransport transport(row.policy);
        RemoteHTTPRequest sent = request(servers[0].url(u"/start"_s));
        sent.setBearerToken(u"secret-token"_s);

        if (row.finalServer) {
            const RemoteHTTPResponse response = runTask(transport.send(sent));
            EXPECT_EQ(response.statusCode, 200);
            EXPECT_EQ(response.data, "arrived");
            EXPECT_EQ(response.finalURL, servers[*row.finalServer].url(u"/final"_s));
            EXPECT_EQ(servers[*row.finalServer].requestsFor("/final").size(), 1U);
        } else {
            EXPECT_EQ(sendError(transport, sent), RemoteHTTPError(RemoteHTTPError::CrossOriginRedirect{}));
            EXPECT_TRUE(servers[0].requestsFor("/final").empty());
            // The other origin never hears from us, so the token cannot reach it.
            EXPECT_TRUE(servers[1].requests().empty());
        }
        ASSERT_EQ(servers[0].requestsFor("/start").size(), 1U);
        EXPECT_EQ(servers[0].requestsFor("/start")[0].header("authorization"), "Bearer secret-token");
    }
}

TEST(RemoteHTTPTransportTest, ConcurrentRequestsJudgeTheirOwnRedirects)
{
    LocalHttpServer server;
    LocalHttpServer other;
    server.route("GET", "/away", LocalHttpResponse::redirect(other.url(u"/x"_s).toEncoded()));
    server.route("GET", "/stay", LocalHttpResponse::redirect("/x"));
    server.route("GET", "/x", LocalHttpResponse{200, {}, "x"});
    NetworkRemoteHTTPTransport transport(RemoteHTTPRedirectPolicy::sameOrigin);

    // Tasks start at once, so both are in flight together.
    auto away = transport.send(request(server.url(u"/away"_s)));
    auto stay = transport.send(request(server.url(u"/stay"_s)));
    EXPECT_THROW(runTask(std::move(away)), RemoteHTTPError);
    EXPECT_EQ(runTask(std::move(stay)).data, "x");
    EXPECT_TRUE(other.requests().empty());
}

TEST(RemoteHTTPTransportTest, ErrorStatusesAreAnswersNotFailures)
{
    LocalHttpServer server;
    for (const int status : {201, 404, 503}) {
        server.route("GET", "/status/" + QByteArray::number(status),
                     LocalHttpResponse{status, {{"X-Request-Id", "r-1"}, {"Content-Type", "text/plain"}}, "body"});
    }
    NetworkRemoteHTTPTransport transport;
    for (const int status : {201, 404, 503}) {
        SCOPED_TRACE(status);
        const auto response = runTask(transport.send(request(server.url(u"/status/%1"_s.arg(status)))));
        EXPECT_EQ(response.statusCode, status);
        EXPECT_EQ(response.data, "body");
        EXPECT_EQ(response.header(u"x-request-id"_s), u"r-1"_s);
        EXPECT_EQ(response.header(u"CONTENT-TYPE"_s), u"text/plain"_s);
        EXPECT_EQ(response.header(u"X-Missing"_s), std::nullopt);
    }
}

TEST(RemoteHTTPTransportTest, SendsMethodHeadersAndBodyAsGiven)
{
    LocalHttpServer server;
    server.route("PATCH", "/items", LocalHttpResponse{204, {}, {}});
    server.route("POST", "/items", LocalHttpResponse{201, {}, {}});
    NetworkRemoteHTTPTransport transport;
    for (const QByteArray method : {"PATCH", "POST"}) {
        RemoteHTTPRequest sent = request(server.url(u"/items?a=1&b=%C3%A9"_s), method);
        sent.setHeader("Content-Type", "application/json");
        sent.setHeader("X-Custom", "first");
        sent.setHeader("x-custom", "second");
        sent.body = R"({"k":"v"})";
        EXPECT_EQ(runTask(transport.send(sent)).statusCode, method == "POST" ? 201 : 204);
        const LocalHttpRequest received = server.requests().back();
        EXPECT_EQ(received.method, method);
        EXPECT_EQ(received.target, "/items?a=1&b=%C3%A9");
        EXPECT_EQ(received.body, R"({"k":"v"})");
        EXPECT_EQ(received.header("content-type"), "application/json");
        EXPECT_EQ(received.header("X-CUSTOM"), "second");
    }
    RemoteHTTPRequest bearer;
    bearer.setBearerToken(u"x"_s);
    EXPECT_EQ(bearer.header("AUTHORIZATION"), "Bearer x");
}

TEST(RemoteHTTPTransportTest, FailuresWithoutAnAnswer)
{
    LocalHttpServer server;
    server.route("GET", "/silent", LocalHttpResponse::silence());
    quint16 closedPort = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost));
        closedPort = probe.serverPort();
    }
    NetworkRemoteHTTPTransport sameOrigin(RemoteHTTPRedirectPolicy::sameOrigin);
    NetworkRemoteHTTPTransport follow(RemoteHTTPRedirectPolicy::follow);

    RemoteHTTPRequest slow = request(server.url(u"/silent"_s));
    slow.timeout = 300ms;
    const auto timedOut = sendError(sameOrigin, slow);
    ASSERT_TRUE(timedOut);
    const auto* failure = std::get_if<RemoteHTTPError::TransportFailure>(&timedOut->value());
    ASSERT_NE(failure, nullptr);
    EXPECT_TRUE(failure->timedOut);

    const auto refused = sendError(sameOrigin, request(QUrl(u"http://127.0.0.1:%1/"_s.arg(closedPort))));
    ASSERT_TRUE(refused);
    failure = std::get_if<RemoteHTTPError::TransportFailure>(&refused->value());
    ASSERT_NE(failure, nullptr);
    EXPECT_FALSE(failure->timedOut);
    EXPECT_FALSE(failure->detail.isEmpty());

    const RemoteHTTPError invalidURL(RemoteHTTPError::InvalidURL{});
    EXPECT_EQ(sendError(sameOrigin, request(QUrl(u"data:text/plain,hello"_s))), invalidURL);
    EXPECT_EQ(sendError(sameOrigin, request(QUrl(u"/relative"_s))), invalidURL);
    EXPECT_EQ(sendError(follow, request(QUrl(u"/relative"_s))), invalidURL);
    EXPECT_EQ(sendError(follow, request(QUrl(u"data:text/plain,hello"_s))),
              RemoteHTTPError(RemoteHTTPError::NonHTTPResponse{}));
}

TEST(RemoteHTTPTransportTest, DestroyingTheTransportEndsPendingRequests)
{
    LocalHttpServer server;
    server.route("GET", "/silent", LocalHttpResponse::silence());
    auto transport = std::make_unique<NetworkRemoteHTTPTransport>();
    auto pending = transport->send(request(server.url(u"/silent"_s)));
    ASSERT_TRUE(QTest::qWaitFor([&] { return !server.requests().empty(); }, patience));
    transport.reset();
    try {
        runTask(std::move(pending));
        ADD_FAILURE() << "the request outlived its transport";
    } catch (const RemoteHTTPError& error) {
        EXPECT_TRUE(std::holds_alternative<RemoteHTTPError::TransportFailure>(error.value()));
    }
}

TEST(RemoteHTTPErrorTest, Descriptions)
{
    struct Row {
        RemoteHTTPError::Case value;
        QString text;
    };
    const Row rows[] = {
        {RemoteHTTPError::UnexpectedStatus{403, std::nullopt}, u"The calendar service returned HTTP 403."_s},
        {RemoteHTTPError::UnexpectedStatus{429, u"Slow down"_s},
         u"The calendar service returned HTTP 429: Slow down"_s},
        {RemoteHTTPError::TransportFailure{u"Connection refused"_s, false},
         u"The calendar service could not be reached: Connection refused"_s},
        {RemoteHTTPError::TransportFailure{{}, false}, u"The calendar service could not be reached."_s},
        {RemoteHTTPError::TransportFailure{u"Operation canceled"_s, true},
         u"The calendar service did not answer in time."_s},
    };
    for (const Row& row : rows) {
        const RemoteHTTPError error(row.value);
        EXPECT_EQ(error.description(), row.text);
        EXPECT_STREQ(error.what(), row.text.toUtf8().constData());
    }
}

} // namespace
