// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthWebAuthorizer.h"

#include "../support/Patience.h"
#include "../support/QtPrinters.h"
#include "../support/RunTask.h"
#include "oauth/OAuthError.h"
#include "oauth/OAuthPKCE.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkRequest>
#include <QTcpSocket>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using orvane::OAuthAuthorizationGrant;
using orvane::OAuthError;
using orvane::OAuthProviderConfiguration;
using orvane::OAuthWebAuthorizer;

namespace {

/// What `run` threw as an OAuthError; absent when it returned.
template <class Run>
std::optional<OAuthError> thrownBy(Run&& run)
{
    try {
        run();
    } catch (const OAuthError& error) {
        return error;
    }
    return std::nullopt;
}

bool acceptsConnections(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    return socket.waitForConnected(patience);
}

/// The browser: records what it is asked to open and, as the provider would once the user consents, sends a real
/// HTTP request to the redirect URI with a code and the state it was given.
class Browser {
public:
    static inline const QString code = u"4/0AeanS0b-code"_s;

    Browser() { m_network.setProxy(QNetworkProxy::NoProxy); }

    OAuthWebAuthorizer::UrlOpener opener()
    {
        return [this](const QUrl& url) {
            opened.append(url);
            if (opens && redirects) {
                const QUrlQuery request(url);
                QUrl callback = redirectURI(url);
                // The receiver listens on IPv4 loopback whichever name the redirect URI gives it.
                callback.setHost(u"127.0.0.1"_s);
                callback.setQuery(QUrlQuery{{u"code"_s, code}, {u"state"_s, request.queryItemValue(u"state"_s)}});
                m_network.get(QNetworkRequest(callback));
            }
            return opens;
        };
    }

    static QUrl redirectURI(const QUrl& authorization)
    {
        return QUrl(QUrlQuery(authorization).queryItemValue(u"redirect_uri"_s, QUrl::FullyDecoded));
    }

    QList<QUrl> opened;
    bool opens = true;
    bool redirects = true;

private:
    QNetworkAccessManager m_network;
};

} // namespace

TEST(OAuthWebAuthorizer, BlankClientIDFailsBeforeAnythingStarts)
{
    Browser browser;
    OAuthWebAuthorizer authorizer(browser.opener());
    const auto error =
        thrownBy([&] { runTask(authorizer.authorize(OAuthProviderConfiguration::google(u" \t\n"_s, u"secret"_s))); });
    EXPECT_EQ(error, OAuthError(OAuthError::InvalidClientId{}));
    EXPECT_TRUE(browser.opened.isEmpty());
}

TEST(OAuthWebAuthorizer, SignInSendsTheRequestInOrderAndReturnsTheGrantForTheSentChallenge)
{
    const QStringList fixed = {u"client_id"_s, u"redirect_uri"_s,   u"response_type"_s,        u"scope"_s,
                               u"state"_s,     u"code_challenge"_s, u"code_challenge_method"_s};
    const struct {
        const char* name;
        OAuthProviderConfiguration configuration;
        QString host;
        QStringList extraNames;
    } cases[] = {
        {"google",
         OAuthProviderConfiguration::google(u" 123.apps \n"_s, u"secret"_s),
         u"127.0.0.1"_s,
         {u"access_type"_s, u"prompt"_s}},
        {"microsoft",
         OAuthProviderConfiguration::microsoft(u"\t123.apps"_s),
         u"localhost"_s,
         {u"nonce"_s, u"response_mode"_s}},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.name);
        Browser browser;
        OAuthWebAuthorizer authorizer(browser.opener());
        const OAuthAuthorizationGrant grant = runTask(authorizer.authorize(entry.configuration));
        ASSERT_EQ(browser.opened.size(), 1);
        const QUrl& url = browser.opened.front();
        const QUrlQuery query(url);

        QStringList names;
        for (const auto& item : query.queryItems()) {
            names.append(item.first);
        }
        EXPECT_EQ(names, fixed + entry.extraNames);
        const auto value = [&query](const QString& name) {
            return query.queryItemValue(name, QUrl::FullyDecoded);
        };
        EXPECT_EQ(value(u"client_id"_s), u"123.apps"_s);
        EXPECT_EQ(value(u"response_type"_s), u"code"_s);
        EXPECT_EQ(value(u"scope"_s), entry.configuration.scopes.join(u' '));
        EXPECT_EQ(value(u"state"_s).size(), 43);
        EXPECT_EQ(value(u"code_challenge"_s), orvane::OAuthPKCE::makeChallenge(grant.codeVerifier));
        EXPECT_EQ(value(u"code_challenge_method"_s), u"S256"_s);
        if (entry.extraNames.contains(u"nonce"_s)) {
            EXPECT_EQ(value(u"nonce"_s).size(), 43);
        }
        for (const auto& [name, expected] : entry.configuration.additionalAuthorizationParameters) {
            EXPECT_EQ(value(name), expected);
        }

        const QUrl redirect = Browser::redirectURI(url);
        EXPECT_EQ(redirect.scheme(), u"http"_s);
        EXPECT_EQ(redirect.host(), entry.host);
        EXPECT_EQ(redirect.path(), u"/"_s);
        // What goes on the wire: the redirect URI and scope list are data inside one query item each.
        const QByteArray wire = url.toEncoded();
        EXPECT_TRUE(wire.contains("&redirect_uri=http%3A%2F%2F" + entry.host.toLatin1() + "%3A")) << wire.data();
        EXPECT_TRUE(wire.contains("&scope=openid%20")) << wire.data();

        // The token request must repeat the client ID exactly as sent, so the grant carries the trimmed one.
        auto sent = entry.configuration;
        sent.clientID = u"123.apps"_s;
        EXPECT_EQ(grant, (OAuthAuthorizationGrant{sent, Browser::code, grant.codeVerifier, redirect.toString()}));
        EXPECT_EQ(grant.codeVerifier.size(), 64);
        EXPECT_FALSE(acceptsConnections(quint16(redirect.port())));
    }
}

TEST(OAuthWebAuthorizer, EverySignInThatEndsEarlyClosesItsPort)
{
    enum class Ending { browserRefuses, cancelled, authorizerDestroyed, endpointUnusable };
    const struct {
        const char* name;
        Ending ending;
        OAuthError error;
    } cases[] = {
        {"browser refuses", Ending::browserRefuses, OAuthError(OAuthError::UnableToOpenBrowser{})},
        {"cancelled", Ending::cancelled, OAuthError(OAuthError::Cancelled{})},
        {"authorizer destroyed", Ending::authorizerDestroyed, OAuthError(OAuthError::Cancelled{})},
        {"endpoint unusable", Ending::endpointUnusable, OAuthError(OAuthError::InvalidCallback{})},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.name);
        Browser browser;
        browser.opens = entry.ending != Ending::browserRefuses;
        browser.redirects = false;
        auto authorizer = std::make_unique<OAuthWebAuthorizer>(browser.opener());
        auto configuration = OAuthProviderConfiguration::microsoft(u"client"_s);
        if (entry.ending == Ending::endpointUnusable) {
            configuration.authorizationEndpoint = QUrl();
        }
        // The task runs up to its wait at once, so the sign-in can be ended before anyone awaits it.
        auto task = authorizer->authorize(configuration);
        if (entry.ending == Ending::cancelled) {
            authorizer->cancel();
        } else if (entry.ending == Ending::authorizerDestroyed) {
            authorizer.reset();
        }
        EXPECT_EQ(thrownBy([&] { runTask(std::move(task)); }), entry.error);
        if (entry.ending == Ending::endpointUnusable) {
            EXPECT_TRUE(browser.opened.isEmpty());
        } else {
            ASSERT_EQ(browser.opened.size(), 1);
            EXPECT_FALSE(acceptsConnections(quint16(Browser::redirectURI(browser.opened.front()).port())));
        }
    }
}

TEST(OAuthWebAuthorizer, CallbackIsCheckedForStateThenErrorThenCode)
{
    const QString state = u"s-1_State"_s;
    const auto configuration = OAuthProviderConfiguration::google(u"client"_s, u"secret"_s);
    const std::optional<OAuthError> accepted;
    const struct {
        const char* query;
        std::optional<OAuthError> error;
    } cases[] = {
        {"state=s-1_State&code=4%2F0Ae", accepted},
        {"code=4%2F0Ae", OAuthError(OAuthError::StateMismatch{})},
        {"state=s-1_STATE&code=4%2F0Ae", OAuthError(OAuthError::StateMismatch{})},
        {"state=&code=4%2F0Ae", OAuthError(OAuthError::StateMismatch{})},
        {"state=other&error=access_denied", OAuthError(OAuthError::StateMismatch{})},
        {"state=s-1_State&error=access_denied", OAuthError(OAuthError::AccessDenied{})},
        {"state=s-1_State&error=access_denied&error_description=Calendar+access+was+not%20granted.",
         OAuthError(OAuthError::AccessDenied{u"Calendar access was not granted."_s})},
        {"error=invalid_scope&error_description=Unknown%20scope&state=s-1_State",
         OAuthError(OAuthError::ProviderError{u"invalid_scope"_s, u"Unknown scope"_s})},
        {"state=s-1_State&code=4%2F0Ae&error=server_error",
         OAuthError(OAuthError::ProviderError{u"server_error"_s, std::nullopt})},
        {"state=s-1_State", OAuthError(OAuthError::MissingAuthorizationCode{})},
        {"state=s-1_State&code=", OAuthError(OAuthError::MissingAuthorizationCode{})},
        {"state=s-1_State&code", OAuthError(OAuthError::MissingAuthorizationCode{})},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.query);
        const QUrl callback(u"http://127.0.0.1:4711/?"_s + QLatin1StringView(entry.query), QUrl::StrictMode);
        std::optional<OAuthAuthorizationGrant> grant;
        const auto error = thrownBy([&] {
            grant = OAuthWebAuthorizer::validateCallback(callback, state, configuration, u"verifier"_s,
                                                         u"http://127.0.0.1:4711/"_s);
        });
        EXPECT_EQ(error, entry.error) << (error ? error->description().toStdString() : "accepted");
        if (!entry.error) {
            EXPECT_EQ(grant,
                      (OAuthAuthorizationGrant{configuration, u"4/0Ae"_s, u"verifier"_s, u"http://127.0.0.1:4711/"_s}));
        }
    }
}
