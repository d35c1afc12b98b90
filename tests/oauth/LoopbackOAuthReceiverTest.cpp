// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/LoopbackOAuthReceiver.h"

#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QTcpSocket>
#include <QTest>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orvane::LoopbackOAuthReceiver;
using orvane::OAuthError;

namespace {

const QString expectedState = u"q9-Xv_R2~state"_s;
const QString okStatus = u"200 OK"_s;
const QString badRequest = u"400 Bad Request"_s;

/// A browser stand-in: one real TCP connection to the receiver, driven from the test's event loop (the receiver
/// serves on this same thread, so blocking socket calls would starve it).
class Client {
public:
    explicit Client(quint16 port)
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] { m_reply += m_socket.readAll(); });
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        EXPECT_TRUE(QTest::qWaitFor([this] { return m_socket.state() != QAbstractSocket::ConnectingState; }, 5'000));
        // Give the receiver a turn to accept (or refuse) the connection.
        QTest::qWait(20);
    }

    bool isOpen() const { return m_socket.state() == QAbstractSocket::ConnectedState; }

    /// Sends bytes and lets the receiver read them before anything else is sent.
    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
        QTest::qWait(10);
    }

    /// Everything the receiver sent, once it has closed the connection.
    QByteArray replyWhenClosed(int timeoutMs = 5'000)
    {
        const bool closed =
            QTest::qWaitFor([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; }, timeoutMs);
        EXPECT_TRUE(closed) << "the receiver left the connection open";
        m_reply += m_socket.readAll();
        return m_reply;
    }

    QByteArray replySoFar() const { return m_reply; }

private:
    QTcpSocket m_socket;
    QByteArray m_reply;
};

QByteArray exchange(quint16 port, const QByteArray& request)
{
    Client client(port);
    client.send(request);
    return client.replyWhenClosed();
}

QByteArray callbackRequest(const QString& target)
{
    return "GET "_ba + target.toUtf8() + " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: test\r\n\r\n"_ba;
}

QByteArray validRequest(const QString& code = u"first"_s)
{
    return callbackRequest(u"/?code="_s + code + u"&state="_s + expectedState);
}

QByteArray response(const QString& status, const QString& message)
{
    return LoopbackOAuthReceiver::httpResponse(status, message);
}

QUrl expectedCallback(const QString& code = u"first"_s)
{
    return QUrl(u"http://127.0.0.1/?code="_s + code + u"&state="_s + expectedState, QUrl::StrictMode);
}

/// Whether anything still accepts connections on the port.
bool acceptsConnections(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
    EXPECT_TRUE(QTest::qWaitFor([&] { return socket.state() != QAbstractSocket::ConnectingState; }, 5'000));
    return socket.state() == QAbstractSocket::ConnectedState;
}

struct Receiver {
    explicit Receiver(QString host = u"127.0.0.1"_s, std::chrono::milliseconds idleTimeout = 5s,
                      int maximumConnections = LoopbackOAuthReceiver::defaultMaximumConnections)
        : receiver(std::make_unique<LoopbackOAuthReceiver>(expectedState, std::move(host), u"/"_s, idleTimeout,
                                                           maximumConnections))
        , redirectUri(receiver->start())
    {
    }
    quint16 port() const { return static_cast<quint16>(redirectUri.port()); }
    QUrl result() { return runTask(receiver->waitForCallback()); }

    std::unique_ptr<LoopbackOAuthReceiver> receiver;
    QUrl redirectUri;
};

} // namespace

TEST(LoopbackOAuthReceiverTest, AnswersTheBrowserByteForByte)
{
    Receiver receiver;
    const QByteArray body = "<!doctype html><meta charset=\"utf-8\"><title>Orvane</title>\n<body style=\"font: "
                            "-apple-system-body; max-width: 38rem; margin: 5rem auto; padding: 1rem\">\n"
                            "<h1>Orvane</h1><p>Sign-in complete. You can close this tab and return to Orvane."
                            "</p></body>"_ba;
    EXPECT_EQ(exchange(receiver.port(), validRequest()),
              "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: 242\r\n"
              "Connection: close\r\nCache-Control: no-store\r\n\r\n"_ba +
                  body);
    EXPECT_EQ(body.size(), 242);
}

TEST(LoopbackOAuthReceiverTest, PageEscapesTheMessageAndCountsUtf8Bytes)
{
    // "é" is two bytes: a length counted in characters would cut the page short.
    const QByteArray body = "<!doctype html><meta charset=\"utf-8\"><title>Orvane</title>\n<body style=\"font: "
                            "-apple-system-body; max-width: 38rem; margin: 5rem auto; padding: 1rem\">\n"
                            "<h1>Orvane</h1><p>Caf\xc3\xa9 &lt;b&gt; &amp;amp; &amp; x</p></body>"_ba;
    EXPECT_EQ(LoopbackOAuthReceiver::httpResponse(badRequest, u"Café <b> &amp; & x"_s),
              "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: "_ba +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\nCache-Control: no-store\r\n\r\n"_ba +
                  body);
}

TEST(LoopbackOAuthReceiverTest, RedirectKeepsTheHostTextButListensOnIpv4LoopbackOnly)
{
    Receiver receiver(u"localhost"_s);
    EXPECT_EQ(receiver.redirectUri.toString(), u"http://localhost:%1/"_s.arg(receiver.port()));
    EXPECT_NE(receiver.port(), 0);

    QTcpSocket ipv6;
    ipv6.connectToHost(QHostAddress(QHostAddress::LocalHostIPv6), receiver.port());
    EXPECT_TRUE(QTest::qWaitFor([&] { return ipv6.state() != QAbstractSocket::ConnectingState; }, 5'000));
    EXPECT_NE(ipv6.state(), QAbstractSocket::ConnectedState);

    EXPECT_EQ(exchange(receiver.port(), validRequest()), response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
    EXPECT_EQ(receiver.result(), QUrl(u"http://localhost/?code=first&state="_s + expectedState, QUrl::StrictMode));
}

TEST(LoopbackOAuthReceiverTest, AcceptsCallbacksThatCarryTheExpectedStateOnTheCallbackPath)
{
    struct Case {
        const char* name;
        QByteArray request;
        QString expectedUrl;
    };
    const QString state = expectedState;
    const Case cases[] = {
        {"plain callback", validRequest(), u"http://127.0.0.1/?code=first&state="_s + state},
        // Error parameters are the authorizer's business; the receiver only vouches for path and state.
        {"provider error with state", callbackRequest(u"/?error=access_denied&error_description=No&state="_s + state),
         u"http://127.0.0.1/?error=access_denied&error_description=No&state="_s + state},
        {"runs of spaces in the request line", "GET   /?state="_ba + state.toUtf8() + "   HTTP/1.1\r\n\r\n"_ba,
         u"http://127.0.0.1/?state="_s + state},
        {"no protocol version", "GET /?state="_ba + state.toUtf8() + "\r\n\r\n"_ba,
         u"http://127.0.0.1/?state="_s + state},
        {"percent-encoded state", callbackRequest(u"/?state="_s + QString(state).replace(u'-', u"%2D"_s)),
         u"http://127.0.0.1/?state="_s + QString(state).replace(u'-', u"%2D"_s)},
        {"first of two states counts", callbackRequest(u"/?state="_s + state + u"&state=other"_s),
         u"http://127.0.0.1/?state="_s + state + u"&state=other"_s},
        {"a body after the headers", validRequest() + "ignored body"_ba,
         u"http://127.0.0.1/?code=first&state="_s + state},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Receiver receiver;
        EXPECT_EQ(exchange(receiver.port(), test.request), response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
        ASSERT_TRUE(receiver.receiver->isFinished());
        EXPECT_EQ(receiver.result(), QUrl(test.expectedUrl, QUrl::StrictMode));
    }
}

TEST(LoopbackOAuthReceiverTest, RejectsOtherRequestsAndKeepsWaitingForTheRealCallback)
{
    struct Case {
        const char* name;
        QByteArray request;
        QString message;
    };
    const QByteArray state = expectedState.toUtf8();
    const QString unverified = LoopbackOAuthReceiver::unverifiedMessage;
    const Case cases[] = {
        {"POST with the right state", "POST /?state="_ba + state + " HTTP/1.1\r\nContent-Length: 0\r\n\r\n"_ba,
         unverified},
        {"HEAD with the right state", "HEAD /?state="_ba + state + " HTTP/1.1\r\n\r\n"_ba, unverified},
        {"lower-case method", "get /?state="_ba + state + " HTTP/1.1\r\n\r\n"_ba, unverified},
        {"favicon fetch", callbackRequest(u"/favicon.ico"_s), unverified},
        {"other path with the right state", callbackRequest(u"/callback?state="_s + expectedState), unverified},
        {"missing state", callbackRequest(u"/?code=abc"_s), unverified},
        {"state without a value", callbackRequest(u"/?state&code=abc"_s), unverified},
        {"wrong state", callbackRequest(u"/?state=stale&code=abc"_s), unverified},
        {"state differing in case", callbackRequest(u"/?state="_s + expectedState.toUpper()), unverified},
        {"state cut short", callbackRequest(u"/?state="_s + expectedState.chopped(1)), unverified},
        {"state with extra text", callbackRequest(u"/?state="_s + expectedState + u"x"_s), unverified},
        {"wrong state before the right one", callbackRequest(u"/?state=stale&state="_s + expectedState), unverified},
        {"provider error without state", callbackRequest(u"/?error=access_denied"_s), unverified},
        {"absolute-form target", callbackRequest(u"http://127.0.0.1/?state="_s + expectedState), unverified},
        {"target naming another host", callbackRequest(u"@evil.example/?state="_s + expectedState), unverified},
        {"method alone", "GET\r\n\r\n"_ba, unverified},
        {"empty request line", "\r\n\r\n"_ba, unverified},
        {"garbage", "hello there\r\n\r\n"_ba, unverified},
        {"not UTF-8", "GET /?state=\xff\xfe HTTP/1.1\r\n\r\n"_ba, LoopbackOAuthReceiver::unreadableMessage},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Receiver receiver;
        EXPECT_EQ(exchange(receiver.port(), test.request), response(badRequest, test.message));
        EXPECT_FALSE(receiver.receiver->isFinished());
        EXPECT_EQ(exchange(receiver.port(), validRequest()),
                  response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
        EXPECT_EQ(receiver.result(), expectedCallback());
    }
}

TEST(LoopbackOAuthReceiverTest, ReassemblesARequestSentInPieces)
{
    const QByteArray request = validRequest();
    const qsizetype terminator = request.indexOf("\r\n\r\n");
    struct Case {
        const char* name;
        QList<qsizetype> cuts;
    };
    const Case cases[] = {
        {"inside the request line", {5, 20}},
        {"inside the blank line", {terminator + 3}},
        {"before the blank line", {terminator}},
        {"every byte on its own",
         [&] {
             QList<qsizetype> cuts;
             for (qsizetype at = 1; at < request.size(); ++at) {
                 cuts.append(at);
             }
             return cuts;
         }()},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Receiver receiver;
        Client client(receiver.port());
        qsizetype from = 0;
        for (const qsizetype cut : test.cuts) {
            client.send(request.mid(from, cut - from));
            from = cut;
        }
        EXPECT_TRUE(client.replySoFar().isEmpty());
        EXPECT_FALSE(receiver.receiver->isFinished());
        client.send(request.mid(from));
        EXPECT_EQ(client.replyWhenClosed(), response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
        EXPECT_EQ(receiver.result(), expectedCallback());
    }
}

TEST(LoopbackOAuthReceiverTest, RefusesOversizedRequestsWithoutEndingTheSignIn)
{
    // A valid callback padded with a header to exactly `size` bytes.
    const auto padded = [](qsizetype size) {
        const QByteArray head = "GET /?code=first&state="_ba + expectedState.toUtf8() + " HTTP/1.1\r\nX-Pad: "_ba;
        return head + QByteArray(size - head.size() - 4, 'p') + "\r\n\r\n"_ba;
    };
    struct Case {
        const char* name;
        QByteArray request;
        bool accepted;
    };
    const Case cases[] = {
        {"exactly at the limit", padded(LoopbackOAuthReceiver::maximumRequestSize), true},
        {"one byte over the limit", padded(LoopbackOAuthReceiver::maximumRequestSize + 1), false},
        {"headers that never end", QByteArray(70'000, 'a'), false},
        {"far over the limit", padded(400'000), false},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        ASSERT_EQ(test.request.size() > LoopbackOAuthReceiver::maximumRequestSize, !test.accepted);
        Receiver receiver;
        if (test.accepted) {
            EXPECT_EQ(exchange(receiver.port(), test.request),
                      response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
        } else {
            EXPECT_EQ(exchange(receiver.port(), test.request),
                      response(u"413 Content Too Large"_s, LoopbackOAuthReceiver::tooLargeMessage));
            EXPECT_FALSE(receiver.receiver->isFinished());
            EXPECT_EQ(exchange(receiver.port(), validRequest()),
                      response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
        }
        EXPECT_EQ(receiver.result(), expectedCallback());
    }
}

TEST(LoopbackOAuthReceiverTest, TakesARequestThatEndsWithTheConnectionInsteadOfABlankLine)
{
    Receiver receiver;
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(receiver.port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const QByteArray request = "GET /?code=first&state="_ba + expectedState.toUtf8() + " HTTP/1.1\r\n"_ba;
    ASSERT_EQ(::send(fd, request.constData(), request.size(), 0), request.size());
    ::shutdown(fd, SHUT_WR);
    EXPECT_TRUE(QTest::qWaitFor([&] { return receiver.receiver->isFinished(); }, 5'000));
    ::close(fd);
    EXPECT_EQ(receiver.result(), expectedCallback());
}

TEST(LoopbackOAuthReceiverTest, DeliversOnlyTheFirstAcceptedCallback)
{
    Receiver receiver;
    // Opened before the first callback arrives, so it is still served after the port closes.
    Client early(receiver.port());
    ASSERT_TRUE(early.isOpen());

    auto waiting = receiver.receiver->waitForCallback();
    EXPECT_EQ(exchange(receiver.port(), validRequest(u"first"_s)),
              response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
    early.send(validRequest(u"second"_s));
    early.replyWhenClosed();

    EXPECT_FALSE(receiver.receiver->isListening());
    EXPECT_FALSE(acceptsConnections(receiver.port()));
    receiver.receiver->cancel();
    EXPECT_EQ(runTask(std::move(waiting)), expectedCallback(u"first"_s));
    // A result that arrived earlier is handed to a later waiter at once.
    EXPECT_EQ(receiver.result(), expectedCallback(u"first"_s));
}

TEST(LoopbackOAuthReceiverTest, CancellationEndsTheWaitUnlessACallbackCameFirst)
{
    enum class Before { Nothing, RejectedRequest, AcceptedRequest };
    enum class End { Cancel, Destroy };
    struct Case {
        const char* name;
        Before before;
        bool waitingWhenEnded;
        End end;
        bool cancelled;
    };
    const Case cases[] = {
        {"before any request", Before::Nothing, false, End::Cancel, true},
        {"while waiting", Before::Nothing, true, End::Cancel, true},
        {"after a rejected request", Before::RejectedRequest, false, End::Cancel, true},
        {"while waiting after a rejected request", Before::RejectedRequest, true, End::Cancel, true},
        {"after the callback", Before::AcceptedRequest, false, End::Cancel, false},
        {"receiver destroyed while waiting", Before::Nothing, true, End::Destroy, true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Receiver receiver;
        const quint16 port = receiver.port();
        if (test.before != Before::Nothing) {
            exchange(port, test.before == Before::AcceptedRequest ? validRequest() : callbackRequest(u"/x"_s));
        }
        std::optional<QCoro::Task<QUrl>> waiting;
        if (test.waitingWhenEnded) {
            waiting = receiver.receiver->waitForCallback();
        }
        if (test.end == End::Cancel) {
            receiver.receiver->cancel();
        } else {
            receiver.receiver.reset();
        }
        EXPECT_FALSE(acceptsConnections(port));
        if (!waiting) {
            waiting = receiver.receiver->waitForCallback();
        }
        if (!test.cancelled) {
            EXPECT_EQ(runTask(std::move(*waiting)), expectedCallback());
            continue;
        }
        try {
            runTask(std::move(*waiting));
            ADD_FAILURE() << "the wait was not cancelled";
        } catch (const OAuthError& error) {
            EXPECT_TRUE(std::holds_alternative<OAuthError::Cancelled>(error.value()));
        }
    }
}

TEST(LoopbackOAuthReceiverTest, StartsOnlyOnce)
{
    Receiver started;
    LoopbackOAuthReceiver cancelled(expectedState, u"127.0.0.1"_s, u"/"_s);
    cancelled.cancel();
    for (LoopbackOAuthReceiver* receiver : {started.receiver.get(), &cancelled}) {
        try {
            receiver->start();
            ADD_FAILURE() << "started again";
        } catch (const OAuthError& error) {
            EXPECT_TRUE(std::holds_alternative<OAuthError::UnableToListen>(error.value()));
            EXPECT_EQ(error.description(), u"Orvane could not start its temporary local sign-in callback."_s);
        }
    }
}

TEST(LoopbackOAuthReceiverTest, ClosesConnectionsBeyondTheCapAndFreesTheirSlots)
{
    Receiver receiver(u"127.0.0.1"_s, 5s, 2);
    Client first(receiver.port());
    Client second(receiver.port());
    Client extra(receiver.port());
    EXPECT_TRUE(extra.replyWhenClosed(2'000).isEmpty());
    EXPECT_TRUE(first.isOpen());
    EXPECT_TRUE(second.isOpen());

    first.send(callbackRequest(u"/favicon.ico"_s));
    EXPECT_EQ(first.replyWhenClosed(), response(badRequest, LoopbackOAuthReceiver::unverifiedMessage));
    EXPECT_EQ(exchange(receiver.port(), validRequest()), response(okStatus, LoopbackOAuthReceiver::acceptedMessage));
    EXPECT_EQ(receiver.result(), expectedCallback());
}

TEST(LoopbackOAuthReceiverTest, ClosesConnectionsThatFallSilent)
{
    const QByteArray request = validRequest();
    const qsizetype quarter = request.size() / 4 + 1;
    struct Case {
        const char* name;
        QList<QByteArray> pieces;
        bool accepted;
    };
    const Case cases[] = {
        {"nothing sent", {}, false},
        // A callback cut before its blank line must not be taken when the receiver gives up on it.
        {"callback without its blank line", {request.chopped(2)}, false},
        // Longer than the timeout in all, but never silent for as long.
        {"slow but steady",
         {request.mid(0, quarter), request.mid(quarter, quarter), request.mid(2 * quarter, quarter),
          request.mid(3 * quarter)},
         true},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Receiver receiver(u"127.0.0.1"_s, 300ms);
        Client client(receiver.port());
        for (const QByteArray& piece : test.pieces) {
            client.send(piece);
            QTest::qWait(100);
        }
        EXPECT_EQ(client.replyWhenClosed(3'000),
                  test.accepted ? response(okStatus, LoopbackOAuthReceiver::acceptedMessage) : QByteArray());
        EXPECT_EQ(receiver.receiver->isFinished(), test.accepted);
        EXPECT_EQ(receiver.receiver->isListening(), !test.accepted);
    }
}
