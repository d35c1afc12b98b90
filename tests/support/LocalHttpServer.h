// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QString>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

/// One request as a LocalHttpServer received it.
struct LocalHttpRequest {
    QByteArray method;
    /// The request target as sent: path and query.
    QByteArray target;
    /// Header fields in the order received, names as sent.
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    /// When the request had fully arrived, and when its answer was handed to the socket (absent while it is withheld
    /// or still delayed): what a benchmark needs to see how requests overlapped at the server.
    std::chrono::steady_clock::time_point receivedAt;
    std::optional<std::chrono::steady_clock::time_point> answeredAt;

    /// The target without its query.
    QByteArray path() const { return target.left(target.indexOf('?') < 0 ? target.size() : target.indexOf('?')); }

    /// The value of header field `name`, whatever its case; absent when the request had none.
    std::optional<QByteArray> header(const QByteArray& name) const
    {
        for (const auto& [fieldName, value] : headers) {
            if (fieldName.compare(name, Qt::CaseInsensitive) == 0) {
                return value;
            }
        }
        return std::nullopt;
    }
};

/// What a LocalHttpServer route answers.
struct LocalHttpResponse {
    int status = 200;
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    QByteArray body;
    /// Keeps the connection open without ever answering, for timeouts and requests left pending.
    bool withheld = false;

    static LocalHttpResponse json(int status, QByteArray body)
    {
        return {status, {{"Content-Type", "application/json"}}, std::move(body)};
    }
    static LocalHttpResponse redirect(const QByteArray& location, int status = 302)
    {
        return {status, {{"Location", location}}, {}};
    }
    static LocalHttpResponse silence()
    {
        LocalHttpResponse response;
        response.withheld = true;
        return response;
    }
};

/// A small HTTP/1.1 server on a real loopback socket, for tests that need a service to talk to.
///
/// It serves on the test's own thread (answers flow while the test runs an event loop, e.g. inside runTask), routes
/// by method and path (query ignored), answers 404 to anything unrouted, and records every request it received so a
/// test can check what was, or was not, sent to it. Each connection carries one request and is closed after the
/// answer. Bodies are read by Content-Length only, which is all Qt's network access sends.
class LocalHttpServer {
public:
    using Handler = std::function<LocalHttpResponse(const LocalHttpRequest&)>;

    /// Listens on `address` (127.0.0.1 unless told otherwise) on `port`, 0 meaning a port the system picks.
    explicit LocalHttpServer(const QHostAddress& address = QHostAddress(QHostAddress::LocalHost), quint16 port = 0)
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] { acceptConnections(); });
        m_server.listen(address, port);
    }

    LocalHttpServer(const LocalHttpServer&) = delete;
    LocalHttpServer& operator=(const LocalHttpServer&) = delete;

    bool isListening() const { return m_server.isListening(); }
    quint16 port() const { return m_server.serverPort(); }

    /// "http://<host>:<port><pathAndQuery>"; `host` may name the listening address another way ("localhost").
    QUrl url(const QString& pathAndQuery = QStringLiteral("/"), const QString& host = QStringLiteral("127.0.0.1")) const
    {
        return QUrl(QStringLiteral("http://%1:%2%3").arg(host).arg(port()).arg(pathAndQuery));
    }

    /// Answers requests for `method` and `path` with what `handler` returns; a later route for the same pair wins.
    void route(const QByteArray& method, const QByteArray& path, Handler handler)
    {
        m_routes[{method, path}] = std::move(handler);
    }
    /// Answers requests for `method` and `path` with `response`, always.
    void route(const QByteArray& method, const QByteArray& path, LocalHttpResponse response)
    {
        route(method, path, [response](const LocalHttpRequest&) { return response; });
    }

    /// Holds every answer back for `latency` after its request arrived, like a distant service. The wait is a timer,
    /// not a pause, so requests on other connections are received and answered meanwhile.
    void setLatency(std::chrono::milliseconds latency) { m_latency = latency; }

    /// Every complete request received so far, oldest first.
    const std::vector<LocalHttpRequest>& requests() const { return m_requests; }
    /// The received requests whose path is `path`.
    std::vector<LocalHttpRequest> requestsFor(const QByteArray& path) const
    {
        std::vector<LocalHttpRequest> matching;
        for (const auto& request : m_requests) {
            if (request.path() == path) {
                matching.push_back(request);
            }
        }
        return matching;
    }

private:
    void acceptConnections()
    {
        while (QTcpSocket* const socket = m_server.nextPendingConnection()) {
            // The socket is the server's child; its state lives exactly as long as the connection.
            auto connection = std::make_shared<Connection>();
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, connection] {
                connection->buffer.append(socket->readAll());
                if (!connection->answered) {
                    serve(*socket, *connection);
                }
            });
            QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    }

    struct Connection {
        QByteArray buffer;
        bool answered = false;
    };

    /// Answers the connection's request once it has fully arrived.
    void serve(QTcpSocket& socket, Connection& connection)
    {
        const QByteArray& buffer = connection.buffer;
        const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
        if (headerEnd < 0) {
            return;
        }
        connection.answered = true;
        LocalHttpRequest request;
        const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
        const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
        if (requestLine.size() != 3) {
            answer(socket, {400, {}, "malformed request line"});
            return;
        }
        request.method = requestLine[0];
        request.target = requestLine[1];
        for (qsizetype index = 1; index < lines.size(); ++index) {
            const QByteArray line = lines[index].trimmed();
            const qsizetype colon = line.indexOf(':');
            if (colon > 0) {
                request.headers.emplace_back(line.left(colon).trimmed(), line.mid(colon + 1).trimmed());
            }
        }
        const qsizetype length = request.header("Content-Length").value_or("0").toLongLong();
        if (buffer.size() < headerEnd + 4 + length) {
            connection.answered = false;
            return;
        }
        request.body = buffer.mid(headerEnd + 4, length);
        request.receivedAt = std::chrono::steady_clock::now();
        const std::size_t index = m_requests.size();
        m_requests.push_back(request);

        const auto route = m_routes.find({request.method, request.path()});
        const LocalHttpResponse response =
            route == m_routes.end() ? LocalHttpResponse{404, {}, "no such route"} : route->second(request);
        if (response.withheld) {
            return;
        }
        if (m_latency.count() > 0) {
            // The socket is the timer's context: a client that gave up meanwhile gets no answer.
            QTimer::singleShot(m_latency, &socket,
                               [this, &socket, index, response] { answerRequest(socket, response, index); });
        } else {
            answerRequest(socket, response, index);
        }
    }

    void answerRequest(QTcpSocket& socket, const LocalHttpResponse& response, std::size_t index)
    {
        answer(socket, response);
        m_requests[index].answeredAt = std::chrono::steady_clock::now();
    }

    static void answer(QTcpSocket& socket, const LocalHttpResponse& response)
    {
        QByteArray bytes = "HTTP/1.1 " + QByteArray::number(response.status) + " Answer\r\n";
        for (const auto& [name, value] : response.headers) {
            bytes += name + ": " + value + "\r\n";
        }
        bytes += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\nConnection: close\r\n\r\n";
        bytes += response.body;
        socket.write(bytes);
        socket.disconnectFromHost();
    }

    QTcpServer m_server;
    std::map<std::pair<QByteArray, QByteArray>, Handler> m_routes;
    std::vector<LocalHttpRequest> m_requests;
    std::chrono::milliseconds m_latency{0};
};
