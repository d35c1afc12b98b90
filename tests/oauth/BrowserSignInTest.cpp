// SPDX-License-Identifier: GPL-3.0-or-later
// A whole sign-in as a user goes through it: the user's browser (headless Chromium) opens the provider's page, the
// provider (a small OAuth 2.0 authorization server written for this test) asks for consent and redirects to Orvane's
// loopback receiver, the grant is exchanged for tokens over real HTTP, and the refresh token goes to a real keyring.
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "support/LocalHttpServer.h"
#include "support/RunTask.h"
#include "support/SecretServiceTestSession.h"

#include <QCryptographicHash>
#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <map>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

QString base64Url(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

std::map<QString, QString> formFields(const QByteArray& encoded)
{
    std::map<QString, QString> fields;
    const QUrlQuery query(QString::fromUtf8(encoded));
    for (const auto& [name, value] : query.queryItems(QUrl::FullyDecoded)) {
        fields[name] = value;
    }
    return fields;
}

QString htmlEscaped(QString text)
{
    return text.replace(u'&', u"&amp;"_s).replace(u'"', u"&quot;"_s).replace(u'<', u"&lt;"_s);
}

/// An authorization server in the shape of the real providers: a consent page that posts back, a redirect to the
/// client's loopback URI, and a token endpoint that checks PKCE, the client, the redirect URI and (for a
/// confidential desktop client) the secret.
class LocalOAuthProvider {
public:
    struct Issued {
        QString clientID;
        QString redirectURI;
        QString challenge;
        std::map<QString, QString> authorizationQuery;
    };

    explicit LocalOAuthProvider(std::optional<QString> clientSecret)
        : m_clientSecret(std::move(clientSecret))
    {
        m_server.route("GET", "/authorize", [this](const LocalHttpRequest& request) { return consentPage(request); });
        m_server.route("POST", "/consent", [this](const LocalHttpRequest& request) { return consent(request); });
        m_server.route("POST", "/token", [this](const LocalHttpRequest& request) { return token(request); });
    }

    QUrl url(const QString& path) const { return m_server.url(path); }
    const LocalHttpServer& server() const { return m_server; }
    const std::vector<Issued>& issued() const { return m_issued; }
    std::vector<QString> tokenErrors;

private:
    static LocalHttpResponse html(const QString& page)
    {
        return {200, {{"Content-Type", "text/html; charset=utf-8"}}, page.toUtf8()};
    }

    LocalHttpResponse consentPage(const LocalHttpRequest& request)
    {
        // The browser shows the page and the user agrees; here a script presses the button.
        const QUrl target(QString::fromUtf8(request.target));
        return html(u"<!doctype html><title>Sign in</title><form id=f method=post action=\"/consent?"_s +
                    htmlEscaped(target.query(QUrl::FullyEncoded)) +
                    u"\"><button>Allow</button></form><script>document.getElementById('f').submit()</script>"_s);
    }

    LocalHttpResponse consent(const LocalHttpRequest& request)
    {
        std::map<QString, QString> query;
        for (const auto& [name, value] :
             QUrlQuery(QUrl(QString::fromUtf8(request.target))).queryItems(QUrl::FullyDecoded)) {
            query[name] = value;
        }
        const QString code = u"code-"_s + QString::number(m_issued.size() + 1);
        m_issued.push_back({query[u"client_id"_s], query[u"redirect_uri"_s], query[u"code_challenge"_s], query});
        QUrl redirect(query[u"redirect_uri"_s]);
        QUrlQuery answer;
        answer.addQueryItem(u"code"_s, code);
        answer.addQueryItem(u"state"_s, query[u"state"_s]);
        redirect.setQuery(answer);
        return LocalHttpResponse::redirect(redirect.toEncoded());
    }

    LocalHttpResponse token(const LocalHttpRequest& request)
    {
        const auto fields = formFields(request.body);
        const auto field = [&](const QString& name) {
            const auto found = fields.find(name);
            return found == fields.end() ? QString() : found->second;
        };
        const auto refuse = [this](const QString& why) {
            tokenErrors.push_back(why);
            return LocalHttpResponse::json(400,
                                           R"({"error":"invalid_grant","error_description":")" + why.toUtf8() + "\"}");
        };
        const QString code = field(u"code"_s);
        const qsizetype index = code.mid(5).toInt() - 1;
        if (!code.startsWith(u"code-"_s) || index < 0 || index >= std::ssize(m_issued)) {
            return refuse(u"unknown code"_s);
        }
        const Issued& issued = m_issued[index];
        if (field(u"grant_type"_s) != u"authorization_code"_s) {
            return refuse(u"grant type"_s);
        }
        if (field(u"client_id"_s) != issued.clientID || field(u"redirect_uri"_s) != issued.redirectURI) {
            return refuse(u"client or redirect URI differ"_s);
        }
        if (base64Url(QCryptographicHash::hash(field(u"code_verifier"_s).toUtf8(), QCryptographicHash::Sha256)) !=
            issued.challenge) {
            return refuse(u"PKCE verifier does not match"_s);
        }
        if (m_clientSecret && field(u"client_secret"_s) != *m_clientSecret) {
            return refuse(u"client secret"_s);
        }
        return LocalHttpResponse::json(200, R"({"access_token":"access-)" + code.toUtf8() +
                                                R"(","expires_in":3599,"token_type":"Bearer",)"
                                                R"("refresh_token":"refresh-)" +
                                                code.toUtf8() + R"(","scope":")" +
                                                issued.authorizationQuery.at(u"scope"_s).toUtf8() + "\"}");
    }

    std::optional<QString> m_clientSecret;
    LocalHttpServer m_server;
    std::vector<Issued> m_issued;
};

/// The user's browser: headless Chromium with a profile of its own, left running as a browser would be.
class HeadlessBrowser {
public:
    ~HeadlessBrowser()
    {
        for (auto& process : m_processes) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
    bool open(const QUrl& url)
    {
        const QString chromium = QStandardPaths::findExecutable(u"chromium"_s);
        if (chromium.isEmpty()) {
            return false;
        }
        auto process = std::make_unique<QProcess>();
        // Chromium reports every missing desktop service (no system bus, no UPower) on standard error.
        process->setStandardOutputFile(QProcess::nullDevice());
        process->setStandardErrorFile(QProcess::nullDevice());
        process->start(chromium, {u"--headless=new"_s, u"--no-sandbox"_s, u"--disable-gpu"_s, u"--no-first-run"_s,
                                  u"--disable-dev-shm-usage"_s, u"--user-data-dir="_s + m_profile.path(),
                                  url.toString(QUrl::FullyEncoded)});
        const bool started = process->waitForStarted(10'000);
        m_processes.push_back(std::move(process));
        return started;
    }

private:
    QTemporaryDir m_profile;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

class BrowserSignInTest : public ::testing::TestWithParam<OAuthService> {
protected:
    static void SetUpTestSuite()
    {
        keyring = new SecretServiceTestSession;
        keyring->start();
    }
    static void TearDownTestSuite()
    {
        delete keyring;
        keyring = nullptr;
    }
    static inline SecretServiceTestSession* keyring = nullptr;
};

TEST_P(BrowserSignInTest, SignsInThroughTheBrowserAndKeepsTheRefreshTokenInTheKeyring)
{
    ASSERT_FALSE(QStandardPaths::findExecutable(u"chromium"_s).isEmpty()) << "Debian's chromium package is needed";
    const bool google = GetParam() == OAuthService::google;
    const std::optional<QString> secret = google ? std::optional(u"desktop-secret"_s) : std::nullopt;
    LocalOAuthProvider provider(secret);
    auto configuration = google ? OAuthProviderConfiguration::google(u" client-g \n"_s, secret)
                                : OAuthProviderConfiguration::microsoft(u"client-m"_s);
    configuration.authorizationEndpoint = provider.url(u"/authorize"_s);
    configuration.tokenEndpoint = provider.url(u"/token"_s);

    HeadlessBrowser browser;
    OAuthWebAuthorizer authorizer([&browser](const QUrl& url) { return browser.open(url); });
    const OAuthAuthorizationGrant grant = runTask(authorizer.authorize(configuration));

    ASSERT_EQ(provider.issued().size(), 1u);
    const auto& issued = provider.issued().front();
    EXPECT_EQ(issued.clientID, google ? u"client-g"_s : u"client-m"_s);
    EXPECT_EQ(QUrl(issued.redirectURI).host(), google ? u"127.0.0.1"_s : u"localhost"_s);
    EXPECT_EQ(issued.authorizationQuery.contains(u"nonce"_s), !google);
    EXPECT_EQ(issued.authorizationQuery.contains(u"access_type"_s), google);
    EXPECT_EQ(grant.redirectURI, issued.redirectURI);

    NetworkRemoteHTTPTransport transport(RemoteHTTPRedirectPolicy::sameOrigin);
    OAuthTokenClient tokens(transport, [] { return Date{700'000'000}; });
    const OAuthTokenSet tokenSet = runTask(tokens.exchange(grant));
    EXPECT_TRUE(provider.tokenErrors.empty()) << provider.tokenErrors.front().toStdString();
    EXPECT_EQ(tokenSet.accessToken, u"access-code-1"_s);
    ASSERT_EQ(tokenSet.refreshToken, u"refresh-code-1"_s);
    EXPECT_TRUE(configuration.missingRequiredResourceScopes(tokenSet.grantedScopes).isEmpty());

    const QString account = google ? u"google-account"_s : u"microsoft-account"_s;
    KeyringOAuthRefreshTokenStore store;
    runTask(store.saveRefreshToken(*tokenSet.refreshToken, account));
    EXPECT_EQ(runTask(store.readRefreshToken(account)), tokenSet.refreshToken);

    // The refresh token exists in the keyring only (whose file is encrypted): no file under the home holds it.
    QProcess grep;
    grep.start(u"grep"_s, {u"-rl"_s, *tokenSet.refreshToken, QDir::homePath()});
    grep.waitForFinished();
    EXPECT_TRUE(grep.readAllStandardOutput().isEmpty());
}

INSTANTIATE_TEST_SUITE_P(Providers, BrowserSignInTest, ::testing::Values(OAuthService::google, OAuthService::microsoft),
                         [](const auto& info) { return rawValue(info.param).toStdString(); });

} // namespace
