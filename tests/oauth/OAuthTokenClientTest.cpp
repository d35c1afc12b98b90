// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthTokenClient.h"

#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteHTTPError.h"
#include "oauth/OAuthError.h"
#include "support/LocalHttpServer.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QTcpServer>

#include <gtest/gtest.h>

#include <variant>

using namespace Qt::StringLiterals;
using orvane::Date;
using orvane::NetworkRemoteHTTPTransport;
using orvane::OAuthAuthorizationGrant;
using orvane::OAuthError;
using orvane::OAuthProviderConfiguration;
using orvane::OAuthTokenClient;
using orvane::OAuthTokenSet;
using orvane::RemoteHTTPError;

namespace orvane {
inline void PrintTo(const OAuthError& error, std::ostream* out)
{
    *out << error.what();
}
} // namespace orvane

namespace {

const Date receivedAt{700'000'000};
const QByteArray formContentType = "application/x-www-form-urlencoded";

/// A client whose token and revocation endpoints are a local server, over the production transport.
class OAuthTokenClientTest : public ::testing::Test {
protected:
    OAuthProviderConfiguration google(std::optional<QString> secret = std::nullopt) const
    {
        auto configuration = OAuthProviderConfiguration::google(u"123.apps.googleusercontent.com"_s, secret);
        configuration.tokenEndpoint = server.url(u"/token"_s);
        return configuration;
    }

    OAuthProviderConfiguration microsoft() const
    {
        auto configuration = OAuthProviderConfiguration::microsoft(u"ms-client"_s);
        configuration.tokenEndpoint = server.url(u"/token"_s);
        return configuration;
    }

    OAuthAuthorizationGrant grant(OAuthProviderConfiguration configuration) const
    {
        return {std::move(configuration), u"4/0Ab c"_s, u"v~_-.verifier"_s, u"http://127.0.0.1:5000/"_s};
    }

    /// The one request the token endpoint received.
    LocalHttpRequest tokenRequest() const
    {
        const auto requests = server.requestsFor("/token");
        EXPECT_EQ(requests.size(), 1U);
        return requests.empty() ? LocalHttpRequest{} : requests.front();
    }

    LocalHttpServer server;
    NetworkRemoteHTTPTransport transport;
    Date now = receivedAt;
    OAuthTokenClient client{transport, [this] { return now; }, server.url(u"/revoke"_s)};
};

TEST_F(OAuthTokenClientTest, TokenEndpointAnswers)
{
    enum class Provider { googleWithoutSecret, googleWithSecret, microsoft };
    using Outcome = std::variant<OAuthTokenSet, OAuthError>;
    const OAuthError invalid(OAuthError::InvalidTokenResponse{});
    const auto failed = [](int status, std::optional<QString> error, std::optional<QString> description) {
        return OAuthError(OAuthError::TokenExchangeFailed{status, std::move(error), std::move(description)});
    };
    struct Row {
        const char* name;
        Provider provider;
        int status;
        QByteArray body;
        Outcome outcome;
    };
    const Row rows[] = {
        {"everything", Provider::googleWithoutSecret, 200,
         R"({"access_token":"at","expires_in":3599,"refresh_token":"rt","scope":"a  b c ","id_token":"idt",
             "token_type":"Bearer"})",
         OAuthTokenSet{u"at"_s, u"rt"_s, receivedAt + 3599, {u"a"_s, u"b"_s, u"c"_s}, u"idt"_s}},
        {"minimal", Provider::microsoft, 200, R"({"access_token":"at","expires_in":0.5})",
         OAuthTokenSet{u"at"_s, std::nullopt, receivedAt + 0.5, {}, std::nullopt}},
        {"expires_in 0", Provider::googleWithoutSecret, 200, R"({"access_token":"at","expires_in":0})", invalid},
        {"expires_in missing", Provider::googleWithoutSecret, 200, R"({"access_token":"at"})", invalid},
        {"expires_in string", Provider::googleWithoutSecret, 200, R"({"access_token":"at","expires_in":"3600"})",
         invalid},
        {"empty access token", Provider::googleWithoutSecret, 200, R"({"access_token":"","expires_in":3600})", invalid},
        {"scope not a string", Provider::googleWithoutSecret, 200,
         R"({"access_token":"at","expires_in":3600,"scope":["a"]})", invalid},
        {"not JSON", Provider::googleWithoutSecret, 200, "<html>ok</html>", invalid},
        {"array", Provider::googleWithoutSecret, 201, R"([{"access_token":"at","expires_in":3600}])", invalid},
        {"google wants its secret", Provider::googleWithoutSecret, 400,
         R"({"error":"invalid_request","error_description":"Missing Client_Secret."})",
         OAuthError(OAuthError::MissingGoogleClientSecret{})},
        {"google secret present", Provider::googleWithSecret, 400,
         R"({"error":"invalid_request","error_description":"Missing Client_Secret."})",
         failed(400, u"invalid_request"_s, u"Missing Client_Secret."_s)},
        {"microsoft never needs a secret", Provider::microsoft, 400,
         R"({"error":"invalid_request","error_description":"client_secret"})",
         failed(400, u"invalid_request"_s, u"client_secret"_s)},
        {"error only", Provider::googleWithoutSecret, 400, R"({"error":"invalid_grant"})",
         failed(400, u"invalid_grant"_s, std::nullopt)},
        {"unparsable error", Provider::googleWithoutSecret, 502, "<html>Bad Gateway</html>",
         failed(502, std::nullopt, std::nullopt)},
        {"error of wrong type", Provider::googleWithoutSecret, 400, R"({"error":5,"error_description":"x"})",
         failed(400, std::nullopt, std::nullopt)},
        {"redirect is not success", Provider::googleWithoutSecret, 304, {}, failed(304, std::nullopt, std::nullopt)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        server.route("POST", "/token", LocalHttpResponse::json(row.status, row.body));
        const OAuthProviderConfiguration configuration = row.provider == Provider::microsoft          ? microsoft()
                                                         : row.provider == Provider::googleWithSecret ? google(u"s"_s)
                                                                                                      : google();
        try {
            const OAuthTokenSet tokens = runTask(client.exchange(grant(configuration)));
            ASSERT_TRUE(std::holds_alternative<OAuthTokenSet>(row.outcome)) << "no error thrown";
            EXPECT_EQ(tokens, std::get<OAuthTokenSet>(row.outcome));
        } catch (const OAuthError& error) {
            ASSERT_TRUE(std::holds_alternative<OAuthError>(row.outcome)) << error.what();
            EXPECT_EQ(error, std::get<OAuthError>(row.outcome));
        }
    }
}

TEST_F(OAuthTokenClientTest, RequestsCarryExactlyTheFormFields)
{
    server.route("POST", "/token", LocalHttpResponse::json(200, R"({"access_token":"at","expires_in":60})"));
    struct Row {
        const char* name;
        std::function<QCoro::Task<OAuthTokenSet>()> send;
        QByteArray body;
    };
    const QByteArray exchangeTail = "code=4%2F0Ab%20c&code_verifier=v~_-.verifier&grant_type=authorization_code&"
                                    "redirect_uri=http%3A%2F%2F127.0.0.1%3A5000%2F";
    const Row rows[] = {
        {"exchange", [&] { return client.exchange(grant(google())); },
         "client_id=123.apps.googleusercontent.com&" + exchangeTail},
        {"exchange with secret", [&] { return client.exchange(grant(google(u"GOCSPX+s/e"_s))); },
         "client_id=123.apps.googleusercontent.com&client_secret=GOCSPX%2Bs%2Fe&" + exchangeTail},
        {"google refresh", [&] { return client.refresh(google(), u"1//rt"_s); },
         "client_id=123.apps.googleusercontent.com&grant_type=refresh_token&refresh_token=1%2F%2Frt"},
        {"microsoft refresh", [&] { return client.refresh(microsoft(), u"M.rt"_s); },
         "client_id=ms-client&grant_type=refresh_token&refresh_token=M.rt&scope=openid%20profile%20offline_access"
         "%20https%3A%2F%2Fgraph.microsoft.com%2FUser.Read%20https%3A%2F%2Fgraph.microsoft.com%2FCalendars.Read"
         "%20https%3A%2F%2Fgraph.microsoft.com%2FCalendars.Read.Shared"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        runTask(row.send());
        const LocalHttpRequest received = server.requests().back();
        EXPECT_EQ(received.method, "POST");
        EXPECT_EQ(received.target, "/token");
        EXPECT_EQ(received.header("Content-Type"), formContentType);
        EXPECT_EQ(received.body, row.body);
    }
}

TEST_F(OAuthTokenClientTest, RefreshKeepsTheRefreshTokenUnlessReplaced)
{
    server.route("POST", "/token", LocalHttpResponse::json(200, R"({"access_token":"a1","expires_in":60})"));
    EXPECT_EQ(runTask(client.refresh(google(), u"old"_s)).refreshToken, u"old"_s);
    server.route("POST", "/token",
                 LocalHttpResponse::json(200, R"({"access_token":"a2","expires_in":60,"refresh_token":"new"})"));
    now = now + 100;
    const OAuthTokenSet tokens = runTask(client.refresh(microsoft(), u"old"_s));
    EXPECT_EQ(tokens.refreshToken, u"new"_s);
    EXPECT_EQ(tokens.expirationDate, receivedAt + 160);
}

TEST_F(OAuthTokenClientTest, TransportFailuresPassThrough)
{
    quint16 closedPort = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost));
        closedPort = probe.serverPort();
    }
    auto configuration = google();
    configuration.tokenEndpoint = QUrl(u"http://127.0.0.1:%1/token"_s.arg(closedPort));
    try {
        runTask(client.exchange(grant(configuration)));
        ADD_FAILURE() << "no error thrown";
    } catch (const RemoteHTTPError& error) {
        EXPECT_TRUE(std::holds_alternative<RemoteHTTPError::TransportFailure>(error.value()));
    }
}

TEST_F(OAuthTokenClientTest, Revocation)
{
    struct Row {
        int status;
        QByteArray body;
        std::optional<OAuthError> error;
    };
    const Row rows[] = {
        {200, {}, std::nullopt},
        {400, R"({"error":"invalid_token","error_description":"Token expired or revoked"})", std::nullopt},
        {400, R"({"error":"invalid_request"})",
         OAuthError(OAuthError::TokenRevocationFailed{400, u"invalid_request"_s})},
        {400, "nonsense", OAuthError(OAuthError::TokenRevocationFailed{400, std::nullopt})},
        {401, R"({"error":"invalid_token"})", OAuthError(OAuthError::TokenRevocationFailed{401, u"invalid_token"_s})},
        {503, {}, OAuthError(OAuthError::TokenRevocationFailed{503, std::nullopt})},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.status);
        server.route("POST", "/revoke", LocalHttpResponse::json(row.status, row.body));
        std::optional<OAuthError> thrown;
        try {
            runTask(client.revokeGoogleToken(u"1//to ken"_s));
        } catch (const OAuthError& error) {
            thrown = error;
        }
        EXPECT_EQ(thrown, row.error);
        const LocalHttpRequest received = server.requests().back();
        EXPECT_EQ(received.target, "/revoke");
        EXPECT_EQ(received.header("Content-Type"), formContentType);
        EXPECT_EQ(received.body, "token=1%2F%2Fto%20ken");
    }
}

TEST(OAuthFormBodyTest, EncodesEveryByteOutsideTheUnreservedSet)
{
    const std::pair<QString, QByteArray> rows[] = {
        {u"a b"_s, "a%20b"}, {u"a+b"_s, "a%2Bb"}, {u"/?#[]@"_s, "%2F%3F%23%5B%5D%40"},
        {u"-._~"_s, "-._~"}, {u"é"_s, "%C3%A9"},  {u"€𝄞"_s, "%E2%82%AC%F0%9D%84%9E"},
        {u"%41"_s, "%2541"}, {QString(), ""},
    };
    for (const auto& [text, encoded] : rows) {
        EXPECT_EQ(OAuthTokenClient::formBody({{u"f"_s, text}}), "f=" + encoded) << text.toStdString();
    }
    EXPECT_EQ(OAuthTokenClient::formBody({{u"b"_s, u"2"_s}, {u"a b"_s, u"1"_s}, {u"A"_s, u"0"_s}}), "A=0&a%20b=1&b=2");
}

} // namespace
