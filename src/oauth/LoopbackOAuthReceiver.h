// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthError.h"

#include <QObject>
#include <QPointer>
#include <QUrl>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <coroutine>
#include <map>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

class QTcpServer;
class QTcpSocket;
class QTimer;

namespace orvane {

/// A temporary HTTP/1.1 endpoint on 127.0.0.1 that receives the browser's redirect at the end of one sign-in.
///
/// It answers every request with a short page, accepts only a GET of the callback path carrying the expected state,
/// and hands that one callback URL to the waiting caller. The first accepted callback or a cancellation finishes the
/// receiver for good and frees its port; requests it rejects (a favicon fetch, a stale state) leave it listening, so
/// a stray request cannot end a sign-in. It lives on one thread: its connections are served there. A connection it
/// has answered finishes on its own, so destroying the receiver right after the callback still shows the page.
class LoopbackOAuthReceiver final : public QObject {
    Q_OBJECT

public:
    /// Requests larger than this are answered "413 Content Too Large" and never parsed.
    static constexpr qsizetype maximumRequestSize = 65'536;
    /// The most read from a connection at a time.
    static constexpr qint64 readChunkSize = 32'768;
    /// How long a connection may stay silent before it is closed.
    static constexpr std::chrono::milliseconds defaultIdleTimeout{10'000};
    /// How many connections may be open at once; further ones are closed on arrival.
    static constexpr int defaultMaximumConnections = 16;

    /// The page texts the browser is shown.
    static const QString acceptedMessage;
    static const QString unreadableMessage;
    static const QString unverifiedMessage;
    static const QString tooLargeMessage;

    /// A receiver that will accept `callbackPath` with `expectedState` and write `callbackHost` ("127.0.0.1" or
    /// "localhost") into its redirect URI. It does not listen until start().
    LoopbackOAuthReceiver(QString expectedState, QString callbackHost, QString callbackPath,
                          std::chrono::milliseconds idleTimeout = defaultIdleTimeout,
                          int maximumConnections = defaultMaximumConnections, QObject* parent = nullptr);
    ~LoopbackOAuthReceiver() override;

    /// Starts listening on 127.0.0.1 on a port the system picks and returns the redirect URI
    /// ("http://" + host + ":" + port + path). Throws OAuthError::UnableToListen when it cannot listen, including
    /// when it was already started or has finished.
    QUrl start();
    /// Completes with the full URL of the accepted callback, at once if it already arrived. Throws the OAuthError the
    /// receiver finished with (Cancelled after cancel() or when the receiver is destroyed while waiting).
    QCoro::Task<QUrl> waitForCallback();
    /// Finishes the receiver as cancelled, unless it already finished, and frees its port.
    void cancel();

    /// Whether a result (callback or cancellation) has been produced.
    bool isFinished() const { return m_result.has_value(); }
    /// Whether the port is still open to new connections.
    bool isListening() const;

    /// What the receiver answers to one complete request, and the callback URL when the request is the one it waits
    /// for.
    struct Verdict {
        QString status;
        QString message;
        std::optional<QUrl> callback;
    };
    /// Judges the bytes of one request (request line and headers) without touching any connection.
    Verdict evaluateRequest(const QByteArray& request) const;

    /// The complete answer sent to the browser: status line, headers and an HTML page showing `message`.
    static QByteArray httpResponse(const QString& status, const QString& message);

private:
    using Result = std::variant<QUrl, OAuthError>;
    struct Waiter;
    struct Connection;

    void acceptConnections();
    void readFrom(QTcpSocket* socket);
    void forget(QTcpSocket* socket);
    void handleRequest(Connection& connection);
    /// Sends the page and releases the connection: `connection` is gone when this returns.
    void respond(Connection& connection, const QString& status, const QString& message);
    void finish(Result result);

    QString m_expectedState;
    QString m_callbackHost;
    QString m_callbackPath;
    std::chrono::milliseconds m_idleTimeout;
    int m_maximumConnections;
    QPointer<QTcpServer> m_server;
    std::map<QTcpSocket*, std::unique_ptr<Connection>> m_connections;
    std::vector<std::shared_ptr<Waiter>> m_waiters;
    std::optional<Result> m_result;
    bool m_started = false;
};

} // namespace orvane
