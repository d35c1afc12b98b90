// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/NetworkRemoteHTTPTransport.h"

#include "cloud/RemoteHTTPError.h"
#include "cloud/RemoteHTTPOrigin.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QStringDecoder>
#include <QTimer>

#include <algorithm>
#include <coroutine>
#include <limits>
#include <optional>

using namespace Qt::StringLiterals;

namespace orvane {
namespace {

/// What the signal handlers of one pending request learn; shared with them because the handlers may outlive
/// neither the reply nor the coroutine, whichever ends first.
struct ExchangeState {
    /// The URL of the request currently being answered, for resolving a relative Location.
    QUrl currentURL;
    bool crossOriginRedirectBlocked = false;
    bool timedOut = false;
};

/// Resumes the awaiting coroutine once the reply finished, or was destroyed together with its manager.
///
/// The coroutine is resumed from the event loop, never from inside the reply's signal: it then never runs inside
/// Qt's network code nor inside the manager's destructor, and it may delete the reply at once.
class ReplyCompletion {
public:
    explicit ReplyCompletion(QPointer<QNetworkReply> reply)
        : m_reply(std::move(reply))
    {
    }

    bool await_ready() const noexcept { return !m_reply || m_reply->isFinished(); }

    void await_suspend(std::coroutine_handle<> awaiting)
    {
        auto resumed = std::make_shared<bool>(false);
        const auto resume = [awaiting, resumed] {
            if (std::exchange(*resumed, true)) {
                return;
            }
            QTimer::singleShot(0, [awaiting] { awaiting.resume(); });
        };
        QObject::connect(m_reply.data(), &QNetworkReply::finished, resume);
        QObject::connect(m_reply.data(), &QObject::destroyed, resume);
    }

    void await_resume() const noexcept {}

private:
    QPointer<QNetworkReply> m_reply;
};

/// Hands a reply back to Qt for deletion when the exchange is over, whatever way it ends.
class ReplyRelease {
public:
    explicit ReplyRelease(QPointer<QNetworkReply> reply)
        : m_reply(std::move(reply))
    {
    }
    ~ReplyRelease()
    {
        if (m_reply) {
            m_reply->deleteLater();
        }
    }
    ReplyRelease(const ReplyRelease&) = delete;
    ReplyRelease& operator=(const ReplyRelease&) = delete;

private:
    QPointer<QNetworkReply> m_reply;
};

QNetworkRequest networkRequest(const RemoteHTTPRequest& request, RemoteHTTPRedirectPolicy policy)
{
    QNetworkRequest result(request.url);
    for (const auto& [name, value] : request.headers) {
        result.setRawHeader(name, value);
    }
    result.setAttribute(QNetworkRequest::RedirectPolicyAttribute, policy == RemoteHTTPRedirectPolicy::sameOrigin
                                                                      ? QNetworkRequest::UserVerifiedRedirectPolicy
                                                                      : QNetworkRequest::NoLessSafeRedirectPolicy);
    // Each request carries its own authorisation; cookies from one account must never ride along with another's.
    result.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    result.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    // Qt's transfer timeout measures silence, not the whole exchange; the transport's own deadline covers the
    // rest, and this one makes Qt drop a stalled connection early too.
    result.setTransferTimeout(int(std::clamp<qint64>(request.timeout.count(), 0, std::numeric_limits<int>::max())));
    return result;
}

QNetworkReply* startReply(QNetworkAccessManager& manager, const QNetworkRequest& request, const QByteArray& method,
                          const QByteArray& body)
{
    // The named operations keep Qt's usual redirect rules for each method (a POST answered 302 becomes a GET).
    if (method == "GET" && body.isEmpty()) {
        return manager.get(request);
    }
    if (method == "HEAD" && body.isEmpty()) {
        return manager.head(request);
    }
    if (method == "DELETE" && body.isEmpty()) {
        return manager.deleteResource(request);
    }
    if (method == "POST") {
        return manager.post(request, body);
    }
    if (method == "PUT") {
        return manager.put(request, body);
    }
    return manager.sendCustomRequest(request, method, body);
}

/// A header value as text: UTF-8 when it is valid UTF-8, else Latin-1, as HTTP historically allowed. Values with
/// control characters are not text and are left out.
std::optional<QString> headerText(const QByteArray& bytes)
{
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString text = utf8.decode(bytes);
    if (utf8.hasError()) {
        text = QString::fromLatin1(bytes);
    }
    const bool hasControl = std::any_of(text.cbegin(), text.cend(), [](QChar character) {
        return (character.unicode() < 0x20 && character != u'\t') || character.unicode() == 0x7F;
    });
    if (hasControl) {
        return std::nullopt;
    }
    return text;
}

/// Whether `error` means no answer came at all: the connection, the proxy or the network failed.
bool isNetworkLayerError(QNetworkReply::NetworkError error)
{
    return error > QNetworkReply::NoError && error <= QNetworkReply::UnknownProxyError;
}

} // namespace

NetworkRemoteHTTPTransport::NetworkRemoteHTTPTransport(RemoteHTTPRedirectPolicy redirectPolicy)
    : m_redirectPolicy(redirectPolicy)
{
}

// The manager deletes its pending replies; their waiting coroutines then end with TransportFailure.
NetworkRemoteHTTPTransport::~NetworkRemoteHTTPTransport() = default;

QCoro::Task<RemoteHTTPResponse> NetworkRemoteHTTPTransport::send(RemoteHTTPRequest request)
{
    const RemoteHTTPRedirectPolicy policy = m_redirectPolicy;
    std::optional<RemoteHTTPOrigin> origin;
    if (policy == RemoteHTTPRedirectPolicy::sameOrigin) {
        origin = RemoteHTTPOrigin::of(request.url);
        if (!origin) {
            throw RemoteHTTPError(RemoteHTTPError::InvalidURL{});
        }
    } else if (!request.url.isValid() || request.url.isRelative()) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidURL{});
    }

    auto state = std::make_shared<ExchangeState>();
    state->currentURL = request.url;
    if (!m_manager) {
        // Made on first use: until an account is connected, Orvane sends nothing and keeps no network state.
        m_manager = std::make_unique<QNetworkAccessManager>();
    }
    QNetworkReply* const reply = startReply(*m_manager, networkRequest(request, policy), request.method, request.body);
    const QPointer<QNetworkReply> guard(reply);
    const ReplyRelease release(guard);

    if (origin) {
        QObject::connect(reply, &QNetworkReply::redirected, reply,
                         [reply, state, expected = *origin](const QUrl& target) {
                             const QUrl resolved = state->currentURL.resolved(target);
                             if (RemoteHTTPOrigin::of(resolved) == expected) {
                                 state->currentURL = resolved;
                                 Q_EMIT reply->redirectAllowed();
                                 return;
                             }
                             // Aborting before redirectAllowed() means the other origin is never contacted.
                             state->crossOriginRedirectBlocked = true;
                             reply->abort();
                         });
    }
    if (request.timeout.count() > 0) {
        auto* const deadline = new QTimer(reply);
        deadline->setSingleShot(true);
        QObject::connect(deadline, &QTimer::timeout, reply, [reply, state] {
            state->timedOut = true;
            reply->abort();
        });
        deadline->start(request.timeout);
    }

    ReplyCompletion completion(guard);
    co_await std::move(completion);
    // From here on the transport may be gone: only the reply and the shared state are used.

    if (!guard) {
        throw RemoteHTTPError(RemoteHTTPError::TransportFailure{u"The request was cancelled."_s, false});
    }
    if (state->crossOriginRedirectBlocked) {
        throw RemoteHTTPError(RemoteHTTPError::CrossOriginRedirect{});
    }
    if (state->timedOut || guard->error() == QNetworkReply::TimeoutError) {
        throw RemoteHTTPError(RemoteHTTPError::TransportFailure{guard->errorString(), true});
    }
    const QVariant status = guard->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        if (isNetworkLayerError(guard->error())) {
            throw RemoteHTTPError(RemoteHTTPError::TransportFailure{guard->errorString(), false});
        }
        throw RemoteHTTPError(RemoteHTTPError::NonHTTPResponse{});
    }

    // An error status is still an answer: the caller judges it, so Qt's ContentNotFoundError and the like are
    // ignored here.
    RemoteHTTPResponse response;
    response.statusCode = status.toInt();
    response.data = guard->readAll();
    for (const auto& [name, value] : guard->rawHeaderPairs()) {
        const auto nameText = headerText(name);
        const auto valueText = headerText(value);
        if (nameText && valueText) {
            response.headers.insert_or_assign(*nameText, *valueText);
        }
    }
    response.finalURL = guard->url();
    co_return response;
}

} // namespace orvane
