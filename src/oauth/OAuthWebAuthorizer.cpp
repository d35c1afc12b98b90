// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/OAuthWebAuthorizer.h"

#include "oauth/LoopbackOAuthReceiver.h"
#include "oauth/OAuthError.h"
#include "oauth/OAuthPKCE.h"

#include <QDesktopServices>

#include <algorithm>
#include <coroutine>
#include <exception>
#include <map>
#include <memory>
#include <variant>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// The receiver's answer, handed from a detached relay to the sign-in waiting for it.
///
/// The sign-in does not co_await the receiver's task itself: a QCoro task whose awaiting frame is destroyed would
/// later resume that frame. Here the frame's awaiter withdraws its handle when destroyed, so the relay, finishing
/// after the receiver is gone, touches nothing but this shared record.
struct PendingCallback {
    std::coroutine_handle<> handle;
    std::variant<std::monostate, QUrl, std::exception_ptr> result;

    struct Awaiter {
        std::shared_ptr<PendingCallback> pending;

        ~Awaiter() { pending->handle = {}; }
        bool await_ready() const noexcept { return pending->result.index() != 0; }
        void await_suspend(std::coroutine_handle<> handle) noexcept { pending->handle = handle; }
        QUrl await_resume() const
        {
            if (const auto* error = std::get_if<std::exception_ptr>(&pending->result)) {
                std::rethrow_exception(*error);
            }
            return std::get<QUrl>(pending->result);
        }
    };
};

QCoro::Task<> relay(QCoro::Task<QUrl> callback, std::shared_ptr<PendingCallback> pending)
{
    try {
        pending->result = co_await std::move(callback);
    } catch (...) {
        pending->result = std::current_exception();
    }
    if (const auto handle = std::exchange(pending->handle, {})) {
        handle.resume();
    }
}

/// Every character outside the unreserved set percent-encoded, so that ":" "/" "?" in a redirect URI and spaces in
/// the scope list reach the provider as data, not as structure.
QString encoded(const QString& text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

/// One query value as a form decoder reads it: "+" is a space, then percent-escapes are undone.
QString formDecoded(QString text)
{
    text.replace(u'+', u' ');
    return QUrl::fromPercentEncoding(text.toLatin1());
}

} // namespace

OAuthWebAuthorizer::OAuthWebAuthorizer()
    : OAuthWebAuthorizer([](const QUrl& url) { return QDesktopServices::openUrl(url); })
{
}

OAuthWebAuthorizer::OAuthWebAuthorizer(UrlOpener openUrl)
    : m_openUrl(std::move(openUrl))
{
}

OAuthWebAuthorizer::~OAuthWebAuthorizer()
{
    cancel();
}

void OAuthWebAuthorizer::cancel()
{
    for (const auto& receiver : std::exchange(m_waiting, {})) {
        if (receiver) {
            receiver->cancel();
        }
    }
}

QCoro::Task<OAuthAuthorizationGrant> OAuthWebAuthorizer::authorize(OAuthProviderConfiguration configuration)
{
    const QString clientID = configuration.clientID.trimmed();
    if (clientID.isEmpty()) {
        throw OAuthError(OAuthError::InvalidClientId{});
    }
    // The token request repeats the client ID from the grant's configuration, and must send exactly what the
    // authorization request did.
    configuration.clientID = clientID;
    const QString verifier = OAuthPKCE::makeVerifier();
    const QString state = OAuthPKCE::makeState();

    // Deleting the receiver finishes it and closes its port, however this frame ends: by returning, by throwing,
    // or by being destroyed while it waits.
    const auto receiver = std::make_unique<LoopbackOAuthReceiver>(state, configuration.loopbackCallbackHost(),
                                                                  configuration.loopbackCallbackPath());
    const QString redirectURI = receiver->start().toString(QUrl::FullyEncoded);

    // Microsoft's OpenID sign-in requires a nonce; the ID token carrying it is never read, so it is not kept.
    const std::optional<QString> nonce =
        configuration.service == OAuthService::microsoft ? std::optional(OAuthPKCE::makeNonce()) : std::nullopt;
    const QUrl url =
        authorizationURL(configuration, clientID, redirectURI, state, OAuthPKCE::makeChallenge(verifier), nonce);
    if (!url.isValid() || url.isRelative() || url.host().isEmpty()) {
        receiver->cancel();
        throw OAuthError(OAuthError::InvalidCallback{});
    }
    if (!m_openUrl(url)) {
        receiver->cancel();
        throw OAuthError(OAuthError::UnableToOpenBrowser{});
    }
    std::erase_if(m_waiting, [](const auto& waiting) { return waiting.isNull(); });
    m_waiting.emplace_back(receiver.get());

    // From here on `this` may be gone: only locals are used.
    auto pending = std::make_shared<PendingCallback>();
    relay(receiver->waitForCallback(), pending);
    // Named, not a temporary: GCC 12 destroys a temporary awaiter twice.
    PendingCallback::Awaiter awaiter{pending};
    const QUrl callback = co_await awaiter;
    co_return validateCallback(callback, state, configuration, verifier, redirectURI);
}

QUrl OAuthWebAuthorizer::authorizationURL(const OAuthProviderConfiguration& configuration, const QString& clientID,
                                          const QString& redirectURI, const QString& state,
                                          const QString& codeChallenge, const std::optional<QString>& nonce)
{
    QStringList items;
    const auto add = [&items](const QString& name, const QString& value) {
        items.append(encoded(name) + u'=' + encoded(value));
    };
    add(u"client_id"_s, clientID);
    add(u"redirect_uri"_s, redirectURI);
    add(u"response_type"_s, u"code"_s);
    add(u"scope"_s, configuration.scopes.join(u' '));
    add(u"state"_s, state);
    add(u"code_challenge"_s, codeChallenge);
    add(u"code_challenge_method"_s, u"S256"_s);
    if (nonce) {
        add(u"nonce"_s, *nonce);
    }
    // A std::map iterates in name order.
    for (const auto& [name, value] : configuration.additionalAuthorizationParameters) {
        add(name, value);
    }
    QUrl url = configuration.authorizationEndpoint;
    url.setQuery(items.join(u'&'), QUrl::StrictMode);
    return url;
}

OAuthAuthorizationGrant OAuthWebAuthorizer::validateCallback(const QUrl& callback, const QString& expectedState,
                                                             const OAuthProviderConfiguration& configuration,
                                                             const QString& codeVerifier, const QString& redirectURI)
{
    std::map<QString, QString> items;
    const QString query = callback.query(QUrl::FullyEncoded);
    for (const QString& item : query.split(u'&', Qt::SkipEmptyParts)) {
        const qsizetype equals = item.indexOf(u'=');
        const QString name = formDecoded(item.left(equals));
        // The first occurrence counts, as it does for the receiver that accepted this callback.
        items.emplace(name, equals < 0 ? QString() : formDecoded(item.mid(equals + 1)));
    }
    const auto value = [&items](const QString& name) -> std::optional<QString> {
        const auto found = items.find(name);
        return found == items.end() ? std::nullopt : std::optional(found->second);
    };

    // Checked before anything else: a redirect this sign-in did not start must not report an error or yield a code.
    if (value(u"state"_s) != expectedState) {
        throw OAuthError(OAuthError::StateMismatch{});
    }
    if (const auto error = value(u"error"_s)) {
        const auto description = value(u"error_description"_s);
        if (*error == u"access_denied"_s) {
            throw OAuthError(OAuthError::AccessDenied{description});
        }
        throw OAuthError(OAuthError::ProviderError{*error, description});
    }
    const auto code = value(u"code"_s);
    if (!code || code->isEmpty()) {
        throw OAuthError(OAuthError::MissingAuthorizationCode{});
    }
    return OAuthAuthorizationGrant{configuration, *code, codeVerifier, redirectURI};
}

} // namespace orvane
