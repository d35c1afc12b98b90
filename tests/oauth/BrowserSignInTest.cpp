// SPDX-License-Identifier: GPL-3.0-or-later
// A whole sign-in as a user goes through it: the user's browser (headless Chromium) opens the provider's page, the
// provider (a small OAuth 2.0 authorization server written for this test) asks for consent and redirects to Orvane's
// loopback receiver, the grant is exchanged for tokens over real HTTP, and the refresh token goes to a real keyring.
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/LoopbackOAuthReceiver.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "support/LocalOAuthProvider.h"
#include "support/RunTask.h"
#include "support/SecretServiceTestSession.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>
#include <QWebSocket>

#include <gtest/gtest.h>

#include <map>

using namespace orvane;
using namespace orvane::testing;
using namespace Qt::StringLiterals;

namespace {

/// The text of the page the browser's tab shows once it has left `provider` and finished loading, read through
/// Chromium's DevTools protocol; empty when it never does.
QString pageShownAfterLeaving(const HeadlessBrowser& browser, const QUrl& provider)
{
    constexpr int deadlineMs = 60'000;
    QFile portFile(browser.profilePath() + u"/DevToolsActivePort"_s);
    if (!QTest::qWaitFor([&] { return portFile.open(QIODevice::ReadOnly); }, deadlineMs)) {
        return {};
    }
    QNetworkAccessManager network;
    const std::unique_ptr<QNetworkReply> targets(network.get(QNetworkRequest(
        QUrl(u"http://127.0.0.1:"_s + QString::fromLatin1(portFile.readLine().trimmed()) + u"/json/list"_s))));
    if (!QTest::qWaitFor([&] { return targets->isFinished(); }, deadlineMs)) {
        return {};
    }
    QWebSocket tab;
    for (const QJsonValue target : QJsonDocument::fromJson(targets->readAll()).array()) {
        if (target[u"type"_s] == u"page"_s) {
            tab.open(QUrl(target[u"webSocketDebuggerUrl"_s].toString()));
        }
    }

    const QString expression =
        u"document.readyState == 'complete' && !location.href.startsWith('%1') && "
        u"location.href != 'about:blank' ? document.body.innerText : null"_s.arg(provider.toString());
    const QJsonObject evaluate{
        {u"id"_s, 1}, {u"method"_s, u"Runtime.evaluate"_s}, {u"params"_s, QJsonObject{{u"expression"_s, expression}}}};
    bool answered = true;
    std::optional<QString> text;
    QObject::connect(&tab, &QWebSocket::textMessageReceived, [&](const QString& message) {
        answered = true;
        // Null while the tab is still on the provider's pages; no value at all while it is between two pages.
        const QJsonValue value = QJsonDocument::fromJson(message.toUtf8())[u"result"_s][u"result"_s][u"value"_s];
        if (value.isString()) {
            text = value.toString();
        }
    });
    const bool shown = QTest::qWaitFor(
        [&] {
            if (tab.state() == QAbstractSocket::ConnectedState && answered && !text) {
                answered = false;
                tab.sendTextMessage(QString::fromUtf8(QJsonDocument(evaluate).toJson(QJsonDocument::Compact)));
            }
            return text.has_value();
        },
        deadlineMs);
    return shown ? *text : QString();
}

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
    // Read after the sign-in ended and its receiver was destroyed: the page must have reached the browser anyway.
    const QString page = pageShownAfterLeaving(browser, provider.url(u"/"_s));
    EXPECT_TRUE(page.contains(LoopbackOAuthReceiver::acceptedMessage)) << page.toStdString();

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
