// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthProviderConfiguration.h"
#include "support/LocalHttpServer.h"
#include "support/Patience.h"

#include <QCryptographicHash>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QUrlQuery>

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace orvane::testing {

using namespace Qt::StringLiterals;

namespace oauthdetail {

inline QString base64Url(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

inline std::map<QString, QString> formFields(const QByteArray& encoded)
{
    std::map<QString, QString> fields;
    const QUrlQuery query(QString::fromUtf8(encoded));
    for (const auto& [name, value] : query.queryItems(QUrl::FullyDecoded)) {
        fields[name] = value;
    }
    return fields;
}

inline QString htmlEscaped(QString text)
{
    return text.replace(u'&', u"&amp;"_s).replace(u'"', u"&quot;"_s).replace(u'<', u"&lt;"_s);
}

} // namespace oauthdetail

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
        m_server.route("POST", "/revoke", [this](const LocalHttpRequest& request) { return revoke(request); });
    }

    QUrl url(const QString& path) const { return m_server.url(path); }
    /// The published configuration of `kind`, signing in here instead.
    orvane::OAuthProviderConfiguration configuration(orvane::RemoteCalendarProviderKind kind, const QString& clientID,
                                                     const std::optional<QString>& secret) const
    {
        auto configuration = kind == orvane::RemoteCalendarProviderKind::google
                                 ? orvane::OAuthProviderConfiguration::google(clientID, secret)
                                 : orvane::OAuthProviderConfiguration::microsoft(clientID);
        configuration.authorizationEndpoint = url(u"/authorize"_s);
        configuration.tokenEndpoint = url(u"/token"_s);
        return configuration;
    }
    const LocalHttpServer& server() const { return m_server; }
    const std::vector<Issued>& issued() const { return m_issued; }
    /// The refresh tokens revoked so far (through the revocation endpoint or revokeAll()).
    const std::set<QString>& revoked() const { return m_revoked; }
    /// Makes every refresh token issued so far invalid, as a password change would.
    void revokeAll()
    {
        for (std::size_t index = 1; index <= m_issued.size(); ++index) {
            m_revoked.insert(u"refresh-code-"_s + QString::number(index));
        }
    }
    /// How long issued access tokens live, in seconds.
    int accessTokenLifetime = 3599;
    /// The scope reported as granted; the one asked for unless set (a user who unticked a permission).
    std::optional<QString> grantedScope;
    /// Clients that sign in without the secret (Microsoft's public clients) when one is set.
    std::set<QString> publicClients;
    /// The status the revocation endpoint answers with instead of revoking, as an outage would.
    std::optional<int> revocationStatus;
    /// Whether a code exchange issues a refresh token (offline access granted).
    bool issuesRefreshToken = true;
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
                    oauthdetail::htmlEscaped(target.query(QUrl::FullyEncoded)) +
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
        const auto fields = oauthdetail::formFields(request.body);
        const auto field = [&](const QString& name) {
            const auto found = fields.find(name);
            return found == fields.end() ? QString() : found->second;
        };
        const auto refuse = [this](const QString& why) {
            tokenErrors.push_back(why);
            return LocalHttpResponse::json(400,
                                           R"({"error":"invalid_grant","error_description":")" + why.toUtf8() + "\"}");
        };
        if (field(u"grant_type"_s) == u"refresh_token"_s) {
            const QString refreshToken = field(u"refresh_token"_s);
            if (!refreshToken.startsWith(u"refresh-code-"_s) || m_revoked.contains(refreshToken)) {
                return LocalHttpResponse::json(400, R"({"error":"invalid_grant","error_description":"Token has )"
                                                    R"(been expired or revoked."})");
            }
            ++m_refreshes;
            return LocalHttpResponse::json(
                200, R"({"access_token":"access-renewed-)" + QByteArray::number(m_refreshes) + R"(","expires_in":)" +
                         QByteArray::number(accessTokenLifetime) + R"(,"token_type":"Bearer"})");
        }
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
        if (oauthdetail::base64Url(QCryptographicHash::hash(field(u"code_verifier"_s).toUtf8(),
                                                            QCryptographicHash::Sha256)) != issued.challenge) {
            return refuse(u"PKCE verifier does not match"_s);
        }
        if (m_clientSecret && !publicClients.contains(issued.clientID) &&
            field(u"client_secret"_s) != *m_clientSecret) {
            return refuse(u"client secret"_s);
        }
        const QByteArray scope = grantedScope.value_or(issued.authorizationQuery.at(u"scope"_s)).toUtf8();
        const QByteArray refresh =
            issuesRefreshToken ? R"("refresh_token":"refresh-)" + code.toUtf8() + R"(",)" : QByteArray();
        return LocalHttpResponse::json(200, R"({"access_token":"access-)" + code.toUtf8() + R"(","expires_in":)" +
                                                QByteArray::number(accessTokenLifetime) + R"(,"token_type":"Bearer",)" +
                                                refresh + R"("scope":")" + scope + "\"}");
    }

    LocalHttpResponse revoke(const LocalHttpRequest& request)
    {
        if (revocationStatus) {
            return LocalHttpResponse::json(*revocationStatus, R"({"error":"temporarily_unavailable"})");
        }
        const QString token = oauthdetail::formFields(request.body)[u"token"_s];
        if (!token.startsWith(u"refresh-code-"_s) || m_revoked.contains(token)) {
            return LocalHttpResponse::json(400, R"({"error":"invalid_token"})");
        }
        m_revoked.insert(token);
        return LocalHttpResponse::json(200, "{}");
    }

    std::optional<QString> m_clientSecret;
    LocalHttpServer m_server;
    std::vector<Issued> m_issued;
    std::set<QString> m_revoked;
    int m_refreshes = 0;
};

/// The user's browser: headless Chromium with a profile of its own, left running as a browser would be.
class HeadlessBrowser {
public:
    /// The profile folder; Chromium writes the DevTools port it picked into "DevToolsActivePort" there.
    QString profilePath() const { return m_profile.path(); }

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
        // The DevTools port lets a test read what the tab shows.
        process->start(chromium, {u"--headless=new"_s, u"--no-sandbox"_s, u"--disable-gpu"_s, u"--no-first-run"_s,
                                  u"--disable-dev-shm-usage"_s, u"--remote-debugging-port=0"_s,
                                  u"--user-data-dir="_s + m_profile.path(), url.toString(QUrl::FullyEncoded)});
        const bool started = process->waitForStarted(patience);
        m_processes.push_back(std::move(process));
        return started;
    }

private:
    QTemporaryDir m_profile;
    std::vector<std::unique_ptr<QProcess>> m_processes;
};

/// A user who agrees at once, without a browser: posts the consent form of a LocalOAuthProvider and delivers its
/// redirect to the loopback receiver, through the event loop as a browser would. For tests about what happens around
/// a sign-in; BrowserSignInTest covers the browser itself.
class ConsentingUserAgent {
public:
    bool open(const QUrl& authorizationURL)
    {
        ++opened;
        QUrl consent = authorizationURL;
        consent.setPath(u"/consent"_s);
        QNetworkRequest request(consent);
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/x-www-form-urlencoded"_s);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
        QNetworkReply* const reply = m_network.post(request, QByteArray());
        QObject::connect(reply, &QNetworkReply::finished, reply, [this, reply] {
            reply->deleteLater();
            const QUrl location(QString::fromUtf8(reply->rawHeader("Location")));
            if (location.isValid() && !declines) {
                QNetworkReply* const delivered = m_network.get(QNetworkRequest(location));
                QObject::connect(delivered, &QNetworkReply::finished, delivered, &QObject::deleteLater);
            }
        });
        return true;
    }

    int opened = 0;
    /// Leaves the sign-in page open without answering, as a user who walked away.
    bool declines = false;

private:
    QNetworkAccessManager m_network;
};

} // namespace orvane::testing
