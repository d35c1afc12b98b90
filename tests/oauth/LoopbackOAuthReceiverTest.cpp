// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/LoopbackOAuthReceiver.h"

#include "support/Patience.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QTcpSocket>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sys/socket.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using orvane::LoopbackOAuthReceiver;
using orvane::OAuthError;

namespace {

const QString expectedState = u"q9-Xv_R2~state"_s;

/// A browser stand-in: one real TCP connection driven from the test's event loop (the receiver serves on this same
/// thread, so blocking socket calls would starve it).
class Client {
public:
    explicit Client(quint16 port, const QHostAddress& host = QHostAddress(QHostAddress::LocalHost))
    {
        QObject::connect(&m_socket, &QTcpSocket::readyRead, [this] { m_reply += m_socket.readAll(); });
        m_socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        m_socket.connectToHost(host, port);
        EXPECT_TRUE(QTest::qWaitFor([this] { return m_socket.state() != QAbstractSocket::ConnectingState; }, patience));
        // Give the receiver a turn to accept (or refuse) the connection.
        QTest::qWait(20);
    }

    bool isOpen() const { return m_socket.state() == QAbstractSocket::ConnectedState; }

    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
        QTest::qWait(10);
    }

    QByteArray replyWhenClosed(int timeoutMs = patience)
    {
        EXPECT_TRUE(
            QTest::qWaitFor([this] { return m_socket.state() == QAbstractSocket::UnconnectedState; }, timeoutMs))
            << "the receiver left the connection open";
        return m_reply += m_socket.readAll();
    }

    QByteArray replySoFar() const { return m_reply; }

    /// Ends the request with the connection instead of a blank line; QTcpSocket itself cannot half-close.
    void shutdownWrite() { ::shutdown(static_cast<int>(m_socket.socketDescriptor()), SHUT_WR); }

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

QByteArray accepted()
{
    return LoopbackOAuthReceiver::httpResponse(u"200 OK"_s, LoopbackOAuthReceiver::acceptedMessage);
}

QByteArray rejected(const QString& message = LoopbackOAuthReceiver::unverifiedMessage)
{
    return LoopbackOAuthReceiver::httpResponse(u"400 Bad Request"_s, message);
}

QUrl expectedCallback(const QString& code = u"first"_s)
{
    return QUrl(u"http://127.0.0.1/?code="_s + code + u"&state="_s + expectedState, QUrl::StrictMode);
}

/// The error `body` threw, if any.
std::optional<OAuthError> oauthError(const std::function<void()>& body)
{
    try {
        body();
    } catch (const OAuthError& error) {
        return error;
    }
    return std::nullopt;
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
    /// The callback as the authorizer takes it: waiting before it arrives, and destroying the receiver at once.
    QCoro::Task<QUrl> resultThenGone()
    {
        const QUrl callback = co_await receiver->waitForCallback();
        receiver.reset();
        co_return callback;
    }

    std::unique_ptr<LoopbackOAuthReceiver> receiver;
    QUrl redirectUri;
};

} // namespace

TEST(LoopbackOAuthReceiverTest, PageEscapesTheMessageAndCountsUtf8Bytes)
{
    // "é" is two bytes: a length counted in characters would cut the page short.
    const QByteArray body = "<!doctype html><meta charset=\"utf-8\"><title>Orvane</title>\n<body style=\"font: "
                            "-apple-system-body; max-width: 38rem; margin: 5rem auto; padding: 1rem\">\n"
                            "<h1>Orvane</h1><p>Caf\xc3\xa9 &lt;b&gt; &amp;amp; &amp; x</p></body>"_ba;
    EXPECT_EQ(rejected(u"Café <b> &amp; & x"_s),
              "HTTP/1.1 400 Bad Request\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: "_ba +
                  QByteArray::number(body.size()) + "\r\nConnection: close\r\nCache-Control: no-store\r\n\r\n"_ba +
                  body);
}

TEST(LoopbackOAuthReceiverTest, RedirectKeepsTheHostTextButListensOnIpv4LoopbackOnly)
{
    Receiver receiver(u"localhost"_s);
    EXPECT_NE(receiver.port(), 0);
    EXPECT_EQ(receiver.redirectUri.toString(), u"http://localhost:%1/"_s.arg(receiver.port()));
    EXPECT_FALSE(Client(receiver.port(), QHostAddress(QHostAddress::LocalHostIPv6)).isOpen());
    EXPECT_EQ(exchange(receiver.port(), validRequest()), accepted());
    EXPECT_EQ(receiver.result(), QUrl(u"http://localhost/?code=first&state="_s + expectedState, QUrl::StrictMode));
}

/// A valid callback padded with a header to exactly `size` bytes.
QByteArray padded(qsizetype size)
{
    const QByteArray head = "GET /?code=first&state="_ba + expectedState.toUtf8() + " HTTP/1.1\r\nX-Pad: "_ba;
    return head + QByteArray(size - head.size() - 4, 'p') + "\r\n\r\n"_ba;
}

TEST(LoopbackOAuthReceiverTest, AcceptsCallbacksThatCarryTheExpectedStateOnTheCallbackPath)
{
    const QString state = expectedState;
    const QString encodedState = QString(state).replace(u'-', u"%2D"_s);
    const std::tuple<const char*, QByteArray, QString> cases[] = {
        {"plain callback", validRequest(), u"/?code=first&state="_s + state},
        // Error parameters are the authorizer's business; the receiver only vouches for path and state.
        {"provider error with state", callbackRequest(u"/?error=access_denied&state="_s + state),
         u"/?error=access_denied&state="_s + state},
        {"runs of spaces", "GET   /?state="_ba + state.toUtf8() + "   HTTP/1.1\r\n\r\n"_ba, u"/?state="_s + state},
        {"no protocol version", "GET /?state="_ba + state.toUtf8() + "\r\n\r\n"_ba, u"/?state="_s + state},
        {"percent-encoded state", callbackRequest(u"/?state="_s + encodedState), u"/?state="_s + encodedState},
        {"first of two states counts", callbackRequest(u"/?state="_s + state + u"&state=other"_s),
         u"/?state="_s + state + u"&state=other"_s},
        {"a body after the headers", validRequest() + "ignored body"_ba, u"/?code=first&state="_s + state},
        {"exactly the size limit", padded(LoopbackOAuthReceiver::maximumRequestSize), u"/?code=first&state="_s + state},
    };
    for (const auto& [name, request, target] : cases) {
        SCOPED_TRACE(name);
        Receiver receiver;
        auto result = receiver.resultThenGone();
        Client client(receiver.port());
        client.send(request);
        EXPECT_EQ(runTask(std::move(result)), QUrl(u"http://127.0.0.1"_s + target, QUrl::StrictMode));
        // The page is read only after the receiver is gone: it must not die with it.
        EXPECT_EQ(client.replyWhenClosed(), accepted());
    }
}

TEST(LoopbackOAuthReceiverTest, RejectsOtherRequestsAndKeepsWaitingForTheRealCallback)
{
    const QByteArray state = expectedState.toUtf8();
    const QByteArray tooLarge =
        LoopbackOAuthReceiver::httpResponse(u"413 Content Too Large"_s, LoopbackOAuthReceiver::tooLargeMessage);
    const std::tuple<const char*, QByteArray, QByteArray> cases[] = {
        {"POST with the right state", "POST /?state="_ba + state + " HTTP/1.1\r\nContent-Length: 0\r\n\r\n"_ba,
         rejected()},
        {"lower-case method", "get /?state="_ba + state + " HTTP/1.1\r\n\r\n"_ba, rejected()},
        {"other path with the right state", callbackRequest(u"/callback?state="_s + expectedState), rejected()},
        {"missing state", callbackRequest(u"/?code=abc"_s), rejected()},
        {"state without a value", callbackRequest(u"/?state&code=abc"_s), rejected()},
        {"state differing in case", callbackRequest(u"/?state="_s + expectedState.toUpper()), rejected()},
        {"state cut short", callbackRequest(u"/?state="_s + expectedState.chopped(1)), rejected()},
        {"state with extra text", callbackRequest(u"/?state="_s + expectedState + u"x"_s), rejected()},
        {"wrong state before the right one", callbackRequest(u"/?state=stale&state="_s + expectedState), rejected()},
        {"absolute-form target", callbackRequest(u"http://127.0.0.1/?state="_s + expectedState), rejected()},
        {"target naming another host", callbackRequest(u"@evil.example/?state="_s + expectedState), rejected()},
        {"method alone", "GET\r\n\r\n"_ba, rejected()},
        {"empty request line", "\r\n\r\n"_ba, rejected()},
        {"not UTF-8", "GET /?state=\xff\xfe HTTP/1.1\r\n\r\n"_ba, rejected(LoopbackOAuthReceiver::unreadableMessage)},
        {"one byte over the size limit", padded(LoopbackOAuthReceiver::maximumRequestSize + 1), tooLarge},
        {"headers that never end", QByteArray(70'000, 'a'), tooLarge},
    };
    for (const auto& [name, request, reply] : cases) {
        SCOPED_TRACE(name);
        Receiver receiver;
        EXPECT_EQ(exchange(receiver.port(), request), reply);
        EXPECT_FALSE(receiver.receiver->isFinished());
        EXPECT_EQ(exchange(receiver.port(), validRequest()), accepted());
        EXPECT_EQ(receiver.result(), expectedCallback());
    }
}

TEST(LoopbackOAuthReceiverTest, DeliversOnlyTheFirstAcceptedCallback)
{
    Receiver receiver;
    // Opened before the first callback arrives, so it is still served after the port closes.
    Client early(receiver.port());
    ASSERT_TRUE(early.isOpen());

    auto waiting = receiver.receiver->waitForCallback();
    EXPECT_EQ(exchange(receiver.port(), validRequest(u"first"_s)), accepted());
    early.send(validRequest(u"second"_s));
    early.replyWhenClosed();

    EXPECT_FALSE(receiver.receiver->isListening());
    EXPECT_FALSE(Client(receiver.port()).isOpen());
    receiver.receiver->cancel();
    EXPECT_EQ(runTask(std::move(waiting)), expectedCallback(u"first"_s));
    // A result that arrived earlier is handed to a later waiter at once.
    EXPECT_EQ(receiver.result(), expectedCallback(u"first"_s));
}

TEST(LoopbackOAuthReceiverTest, CancellationEndsTheWaitUnlessACallbackCameFirst)
{
    // {name, request before the end, already waiting, destroyed rather than cancelled}
    const std::tuple<const char*, QByteArray, bool, bool> cases[] = {
        {"before any request", {}, false, false},
        {"while waiting after a rejected request", callbackRequest(u"/x"_s), true, false},
        {"after the callback", validRequest(), false, false},
        {"receiver destroyed while waiting", {}, true, true},
    };
    for (const auto& [name, before, waitFirst, destroy] : cases) {
        SCOPED_TRACE(name);
        Receiver receiver;
        const quint16 port = receiver.port();
        if (!before.isEmpty()) {
            exchange(port, before);
        }
        std::optional<QCoro::Task<QUrl>> waiting;
        if (waitFirst) {
            waiting = receiver.receiver->waitForCallback();
        }
        destroy ? receiver.receiver.reset() : receiver.receiver->cancel();
        EXPECT_FALSE(Client(port).isOpen());
        if (!waiting) {
            waiting = receiver.receiver->waitForCallback();
        }
        std::optional<QUrl> result;
        const auto error = oauthError([&] { result = runTask(std::move(*waiting)); });
        if (before == validRequest()) {
            EXPECT_EQ(result, expectedCallback());
        } else {
            ASSERT_TRUE(error) << "the wait was not cancelled";
            EXPECT_TRUE(std::holds_alternative<OAuthError::Cancelled>(error->value()));
        }
    }
}

TEST(LoopbackOAuthReceiverTest, StartsOnlyOnce)
{
    Receiver started;
    LoopbackOAuthReceiver cancelled(expectedState, u"127.0.0.1"_s, u"/"_s);
    cancelled.cancel();
    for (LoopbackOAuthReceiver* receiver : {started.receiver.get(), &cancelled}) {
        const auto error = oauthError([&] { receiver->start(); });
        ASSERT_TRUE(error) << "started again";
        EXPECT_TRUE(std::holds_alternative<OAuthError::UnableToListen>(error->value()));
    }
}

TEST(LoopbackOAuthReceiverTest, ClosesConnectionsBeyondTheCapAndFreesTheirSlots)
{
    Receiver receiver(u"127.0.0.1"_s, 5s, 2);
    Client first(receiver.port());
    Client second(receiver.port());
    Client extra(receiver.port());
    EXPECT_TRUE(extra.replyWhenClosed().isEmpty());
    EXPECT_TRUE(first.isOpen());
    EXPECT_TRUE(second.isOpen());

    first.send(callbackRequest(u"/favicon.ico"_s));
    EXPECT_EQ(first.replyWhenClosed(), rejected(LoopbackOAuthReceiver::unverifiedMessage));
    EXPECT_EQ(exchange(receiver.port(), validRequest()), accepted());
    EXPECT_EQ(receiver.result(), expectedCallback());
}

/// Requests arriving in pieces: only a complete one is taken, and the idle timeout counts silence, not total time.
TEST(LoopbackOAuthReceiverTest, ReassemblesPiecesAndClosesConnectionsThatFallSilent)
{
    const QByteArray request = validRequest();
    const auto split = [&request](qsizetype count) {
        QList<QByteArray> pieces;
        for (qsizetype at = 0, size = (request.size() + count - 1) / count; at < request.size(); at += size) {
            pieces.append(request.mid(at, size));
        }
        return pieces;
    };
    const QByteArray withoutBlankLine = request.first(request.indexOf("\r\n\r\n") + 2);
    enum class End { none, halfClose };
    const std::tuple<const char*, QList<QByteArray>, int, End, bool> cases[] = {
        {"nothing sent", {}, 0, End::none, false},
        // A callback cut before its blank line must not be taken when the receiver gives up on it.
        {"callback without its blank line", {withoutBlankLine}, 0, End::none, false},
        {"callback ended by the connection instead", {withoutBlankLine}, 0, End::halfClose, true},
        {"split inside the blank line", {request.chopped(1), request.last(1)}, 0, End::none, true},
        {"every byte on its own", split(request.size()), 0, End::none, true},
        // Longer than the timeout in all, but never silent for a tenth of it.
        {"slow but steady", split(12), 100, End::none, true},
    };
    for (const auto& [name, pieces, pauseMs, end, isAccepted] : cases) {
        SCOPED_TRACE(name);
        Receiver receiver(u"127.0.0.1"_s, 1s);
        Client client(receiver.port());
        for (const QByteArray& piece : pieces) {
            EXPECT_TRUE(client.replySoFar().isEmpty());
            EXPECT_FALSE(receiver.receiver->isFinished());
            client.send(piece);
            QTest::qWait(pauseMs);
        }
        if (end == End::halfClose) {
            client.shutdownWrite();
        }
        // A peer that ended its request by closing cannot be answered any more; the others get the page.
        const bool answered = isAccepted && end == End::none;
        EXPECT_EQ(client.replyWhenClosed(), answered ? accepted() : QByteArray());
        EXPECT_EQ(receiver.receiver->isFinished(), isAccepted);
        EXPECT_EQ(receiver.receiver->isListening(), !isAccepted);
        if (isAccepted) {
            EXPECT_EQ(receiver.result(), expectedCallback());
        }
    }
}
