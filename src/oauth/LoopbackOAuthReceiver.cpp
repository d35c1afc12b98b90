// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/LoopbackOAuthReceiver.h"

#include <QHostAddress>
#include <QStringDecoder>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

const QString okStatus = u"200 OK"_s;
const QString badRequestStatus = u"400 Bad Request"_s;
const QString tooLargeStatus = u"413 Content Too Large"_s;

const QByteArray headerTerminator = "\r\n\r\n"_ba;

} // namespace

const QString LoopbackOAuthReceiver::acceptedMessage =
    u"Sign-in complete. You can close this tab and return to Orvane."_s;
const QString LoopbackOAuthReceiver::unreadableMessage = u"Invalid sign-in callback."_s;
const QString LoopbackOAuthReceiver::unverifiedMessage = u"This sign-in response could not be verified."_s;
const QString LoopbackOAuthReceiver::tooLargeMessage = u"The sign-in callback was too large."_s;

/// One caller suspended in waitForCallback(). The result is handed over here rather than read from the receiver,
/// because the caller typically destroys the receiver as soon as it resumes.
struct LoopbackOAuthReceiver::Waiter {
    std::coroutine_handle<> handle;
    std::optional<Result> result;

    struct Awaiter {
        std::shared_ptr<Waiter> waiter;

        // Should the suspended frame ever be destroyed, a later finish must not resume it.
        ~Awaiter() { waiter->handle = {}; }
        bool await_ready() const noexcept { return waiter->result.has_value(); }
        void await_suspend(std::coroutine_handle<> handle) noexcept { waiter->handle = handle; }
        void await_resume() const noexcept {}
    };
};

/// A connection whose request is not complete yet; an answered one is released (see respond()).
struct LoopbackOAuthReceiver::Connection {
    QTcpSocket* socket = nullptr;
    QTimer* idleTimer = nullptr;
    QByteArray buffer;
};

LoopbackOAuthReceiver::LoopbackOAuthReceiver(QString expectedState, QString callbackHost, QString callbackPath,
                                             std::chrono::milliseconds idleTimeout, int maximumConnections,
                                             QObject* parent)
    : QObject(parent)
    , m_expectedState(std::move(expectedState))
    , m_callbackHost(std::move(callbackHost))
    , m_callbackPath(std::move(callbackPath))
    , m_idleTimeout(idleTimeout)
    , m_maximumConnections(maximumConnections)
{
}

LoopbackOAuthReceiver::~LoopbackOAuthReceiver()
{
    finish(OAuthError(OAuthError::Cancelled{}));
    // Sockets die with the server below; they must not call back into a receiver that is half gone.
    for (const auto& entry : m_connections) {
        entry.first->disconnect(this);
    }
    m_connections.clear();
    delete m_server.data();
}

QUrl LoopbackOAuthReceiver::start()
{
    if (m_started || m_result) {
        throw OAuthError(OAuthError::UnableToListen{});
    }
    m_started = true;
    auto* server = new QTcpServer(this);
    // IPv4 loopback only, whatever the redirect host says: nothing beyond this machine may reach the callback.
    if (!server->listen(QHostAddress(QHostAddress::LocalHost), 0)) {
        delete server;
        throw OAuthError(OAuthError::UnableToListen{});
    }
    m_server = server;
    connect(server, &QTcpServer::newConnection, this, &LoopbackOAuthReceiver::acceptConnections);
    return QUrl(u"http://"_s + m_callbackHost + u':' + QString::number(server->serverPort()) + m_callbackPath,
                QUrl::StrictMode);
}

QCoro::Task<QUrl> LoopbackOAuthReceiver::waitForCallback()
{
    auto waiter = std::make_shared<Waiter>();
    if (m_result) {
        waiter->result = m_result;
    } else {
        m_waiters.push_back(waiter);
    }
    // Named, not a temporary: GCC 12 destroys a temporary awaiter twice.
    Waiter::Awaiter awaiter{waiter};
    co_await awaiter;
    // The receiver may be gone by now; only the waiter is touched.
    if (const auto* url = std::get_if<QUrl>(&*waiter->result)) {
        co_return *url;
    }
    throw std::get<OAuthError>(*waiter->result);
}

void LoopbackOAuthReceiver::cancel()
{
    // Callers on another thread hop onto the receiver's own; on its thread this runs at once.
    QMetaObject::invokeMethod(this, [this] { finish(OAuthError(OAuthError::Cancelled{})); });
}

bool LoopbackOAuthReceiver::isListening() const
{
    return m_server && m_server->isListening();
}

QByteArray LoopbackOAuthReceiver::httpResponse(const QString& status, const QString& message)
{
    QString escaped = message;
    // Ampersands first, or the entities written for the other two would be escaped again.
    escaped.replace(u'&', u"&amp;"_s).replace(u'<', u"&lt;"_s).replace(u'>', u"&gt;"_s);
    const QByteArray body =
        (u"<!doctype html><meta charset=\"utf-8\"><title>Orvane</title>\n"
         u"<body style=\"font: -apple-system-body; max-width: 38rem; margin: 5rem auto; padding: 1rem\">\n"
         u"<h1>Orvane</h1><p>"_s +
         escaped + u"</p></body>"_s)
            .toUtf8();
    return "HTTP/1.1 "_ba + status.toUtf8() + "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: "_ba +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\nCache-Control: no-store\r\n\r\n"_ba + body;
}

void LoopbackOAuthReceiver::acceptConnections()
{
    while (m_server && m_server->hasPendingConnections()) {
        QTcpSocket* socket = m_server->nextPendingConnection();
        if (std::ssize(m_connections) >= m_maximumConnections) {
            // A local program opening connections by the hundred must not exhaust descriptors or memory.
            socket->abort();
            socket->deleteLater();
            continue;
        }
        // Qt would otherwise pull everything the peer sends into memory before we could look at its size.
        socket->setReadBufferSize(readChunkSize);
        auto* idleTimer = new QTimer(socket);
        idleTimer->setSingleShot(true);
        idleTimer->setInterval(m_idleTimeout);
        connect(idleTimer, &QTimer::timeout, this, [this, socket] {
            // Forgotten first, so that the abort is not taken for a peer that finished its request.
            forget(socket);
            socket->abort();
        });
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            const auto found = m_connections.find(socket);
            if (found != m_connections.end() && !found->second->buffer.isEmpty()) {
                // The peer finished sending without a blank line: what it sent is the whole request. The answer
                // cannot reach it any more, but a valid callback still counts.
                handleRequest(*found->second);
            }
            forget(socket);
        });
        m_connections.emplace(socket, std::make_unique<Connection>(Connection{socket, idleTimer, {}}));
        idleTimer->start();
        if (socket->bytesAvailable() > 0) {
            readFrom(socket);
        }
    }
}

void LoopbackOAuthReceiver::readFrom(QTcpSocket* socket)
{
    const auto found = m_connections.find(socket);
    if (found == m_connections.end()) {
        return;
    }
    Connection& connection = *found->second;
    connection.idleTimer->start();
    // Once answered, the connection is released and no longer ours to read.
    while (m_connections.contains(socket) && socket->bytesAvailable() > 0) {
        const QByteArray chunk = socket->read(readChunkSize);
        if (chunk.isEmpty()) {
            break;
        }
        connection.buffer += chunk;
        if (connection.buffer.size() > maximumRequestSize) {
            respond(connection, tooLargeStatus, tooLargeMessage);
        } else if (connection.buffer.contains(headerTerminator)) {
            handleRequest(connection);
        }
    }
}

void LoopbackOAuthReceiver::forget(QTcpSocket* socket)
{
    if (m_connections.erase(socket) > 0) {
        socket->disconnect(this);
        socket->deleteLater();
    }
}

LoopbackOAuthReceiver::Verdict LoopbackOAuthReceiver::evaluateRequest(const QByteArray& request) const
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(request);
    if (decoder.hasError() || text.isEmpty()) {
        return {badRequestStatus, unreadableMessage, std::nullopt};
    }
    const Verdict unverified{badRequestStatus, unverifiedMessage, std::nullopt};
    const QString requestLine = text.left(text.indexOf(u"\r\n"_s));
    const QStringList pieces = requestLine.split(u' ', Qt::SkipEmptyParts);
    if (pieces.size() < 2 || pieces.at(0) != u"GET"_s) {
        return unverified;
    }
    // Only a path may follow the host: a target such as "@other.host/" would otherwise turn the loopback host into
    // user information and hand the authorizer a URL naming another host.
    const QString& target = pieces.at(1);
    const QUrl url(u"http://"_s + m_callbackHost + target, QUrl::StrictMode);
    if (!target.startsWith(u'/') || !url.isValid() || url.path(QUrl::FullyDecoded) != m_callbackPath) {
        return unverified;
    }
    std::optional<QString> state;
    const auto items = QUrlQuery(url).queryItems(QUrl::FullyDecoded);
    for (const auto& [name, value] : items) {
        if (name == u"state"_s) {
            state = value;
            break;
        }
    }
    if (state != m_expectedState) {
        return unverified;
    }
    return {okStatus, acceptedMessage, url};
}

void LoopbackOAuthReceiver::handleRequest(Connection& connection)
{
    const Verdict verdict = evaluateRequest(connection.buffer);
    respond(connection, verdict.status, verdict.message);
    if (verdict.callback) {
        finish(*verdict.callback);
    }
}

void LoopbackOAuthReceiver::respond(Connection& connection, const QString& status, const QString& message)
{
    QTcpSocket* const socket = connection.socket;
    if (socket->state() == QAbstractSocket::ConnectedState) {
        // Only buffered here: Qt writes it from the event loop, and closes once everything is written.
        socket->write(httpResponse(status, message));
        socket->disconnectFromHost();
    }
    // The caller typically destroys the receiver as soon as it has the callback, and with it the server, the
    // sockets' parent: the answered socket leaves both and deletes itself once closed, so that the page still
    // reaches the browser. Its idle timer stays as the bound on its life.
    const auto released = m_connections.extract(socket);
    socket->disconnect(this);
    connection.idleTimer->disconnect(this);
    socket->setParent(nullptr);
    connect(connection.idleTimer, &QTimer::timeout, socket, &QAbstractSocket::abort);
    connect(socket, &QAbstractSocket::disconnected, socket, &QObject::deleteLater);
    // What the browser still sends is read and dropped: closing a socket with unread data resets the connection,
    // and the browser could then lose the page it was just sent.
    connect(socket, &QIODevice::readyRead, socket, [socket] { socket->readAll(); });
    socket->readAll();
    if (socket->state() == QAbstractSocket::UnconnectedState) {
        socket->deleteLater();
    }
}

void LoopbackOAuthReceiver::finish(Result result)
{
    if (m_result) {
        return;
    }
    m_result = result;
    if (m_server) {
        // Frees the port; connections already open still get their answer.
        m_server->close();
    }
    for (const auto& waiter : std::exchange(m_waiters, {})) {
        waiter->result = result;
        // Resumed from the event loop, not from inside a socket's signal: the caller usually deletes the receiver
        // (and with it that socket) as soon as it has the result.
        QTimer::singleShot(0, [waiter] {
            if (const auto handle = std::exchange(waiter->handle, {})) {
                handle.resume();
            }
        });
    }
}

} // namespace orvane
