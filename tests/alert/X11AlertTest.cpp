// SPDX-License-Identifier: GPL-3.0-or-later
// The full-screen alert on a real X server managed by openbox, over another application's focused full-screen
// window: stacking, window states, focus held back while a password prompt holds the keyboard, Escape, a button
// click, and focus given back afterwards. Screenshots land in artifacts/.
//
// This executable has a main of its own: Qt must find DISPLAY and the xcb platform before its application object
// exists, so the X server and openbox start first.
#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/AlertView.h"
#include "alert/AlertViewModel.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "alert/linux/QtAlertWindowSystem.h"
#include "alert/linux/X11Ewmh.h"
#include "alert/linux/X11KeyboardGrabProbe.h"
#include "scheduling/Clock.h"
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"
#include "support/MeetingFixtures.h"
#include "support/Patience.h"
#include "support/X11TestSession.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

X11TestSession* session = nullptr;

std::string artifact(const std::string& name)
{
    return std::string(ORVANE_ALERT_X11_ARTIFACTS_DIR) + "/" + name;
}

/// Runs the event loop until `condition` holds or `milliseconds` pass; returns whether it held.
template <class Condition>
bool waitUntil(Condition condition, int milliseconds = patience)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.elapsed() > milliseconds) {
            return false;
        }
        QTest::qWait(10);
    }
    return true;
}

/// The test's own view of the display, on a connection separate from Qt's.
class Observer {
public:
    Observer()
        : m_connection(xcb_connect(nullptr, nullptr))
        , m_ewmh(m_connection)
    {
    }
    ~Observer() { xcb_disconnect(m_connection); }

    X11Ewmh& ewmh() { return m_ewmh; }

    /// The root's children, bottom to top.
    std::vector<xcb_window_t> stacking() const
    {
        auto* tree = xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_ewmh.root()), nullptr);
        std::vector<xcb_window_t> children;
        if (tree) {
            const xcb_window_t* begin = xcb_query_tree_children(tree);
            children.assign(begin, begin + xcb_query_tree_children_length(tree));
        }
        std::free(tree);
        return children;
    }
    /// The root's child that holds `window` (the window manager's frame for a managed window).
    xcb_window_t topLevel(xcb_window_t window) const
    {
        while (true) {
            auto* tree = xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr);
            const xcb_window_t parent = tree ? tree->parent : xcb_window_t(XCB_WINDOW_NONE);
            std::free(tree);
            if (parent == XCB_WINDOW_NONE || parent == m_ewmh.root()) {
                return window;
            }
            window = parent;
        }
    }
    /// Whether `upper` is stacked above `lower` (both the root's children).
    bool isAbove(xcb_window_t upper, xcb_window_t lower) const
    {
        const auto order = stacking();
        const auto upperAt = std::find(order.begin(), order.end(), upper);
        const auto lowerAt = std::find(order.begin(), order.end(), lower);
        return upperAt != order.end() && lowerAt != order.end() && upperAt > lowerAt;
    }

private:
    xcb_connection_t* m_connection;
    X11Ewmh m_ewmh;
};

/// Starts the other application in `mode` (see X11ForeignClient.cpp) and returns its process and window.
std::pair<pid_t, xcb_window_t> startForeignClient(const std::string& mode)
{
    int output = -1;
    const pid_t pid = session->spawn({ORVANE_X11_FOREIGN_CLIENT, mode}, &output);
    const std::string line = X11TestSession::readLine(output);
    close(output);
    return {pid, line.empty() ? xcb_window_t(0) : xcb_window_t(std::stoul(line))};
}

class X11AlertTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::tie(m_foreignPid, foreign) = startForeignClient("fullscreen");
        ASSERT_NE(foreign, 0u);
        ASSERT_TRUE(waitUntil([&] { return observer.ewmh().activeWindow() == foreign; }))
            << "openbox did not focus the full-screen window";
    }
    void TearDown() override { session->end(m_foreignPid); }

    bool present()
    {
        return controller.present(
            {fixtures::meeting(u"Quarterly review"_s, clock.now().secondsSinceReferenceDate + 60, 30)}, std::nullopt,
            [this](FullScreenAlertAction action) { actions.push_back(action); });
    }
    xcb_window_t panelWindow() const { return alertWindow ? xcb_window_t(alertWindow->winId()) : 0; }
    /// The panel has the keyboard and takes keys (the controller holds keys back for a moment after Orvane
    /// becomes the active application).
    bool panelTakesKeys()
    {
        return alertWindow && observer.ewmh().inputFocus() == panelWindow() &&
               QGuiApplication::applicationState() == Qt::ApplicationActive &&
               !alertWindow->flags().testFlag(Qt::WindowDoesNotAcceptFocus);
    }
    std::uint64_t activeWindowPerXdotool()
    {
        try {
            return std::stoull(session->run({"xdotool", "getactivewindow"}));
        } catch (const std::exception&) {
            return 0;
        }
    }
    bool isDismiss() const
    {
        return actions.size() == 1 && std::holds_alternative<FullScreenAlertAction::Dismiss>(actions[0].value);
    }

    Observer observer;
    xcb_window_t foreign = 0;
    SystemClock clock;
    TimerfdAlertTimerScheduler timers;
    X11KeyboardGrabProbe probe;
    SecureEventInputActivationGate gate{clock, timers, [this] {
                                            return probe.anotherClientHoldsKeyboard();
                                        }};
    AlertPresentationAvailability monitor;
    QQmlEngine engine;
    AlertView view{engine};
    QPointer<QQuickWindow> alertWindow;
    QtAlertWindowSystem windows{[this](QQuickWindow& window, const AlertPanelContent& content) {
        if (content.meetings.empty()) {
            return;
        }
        alertWindow = &window;
        auto* model = new AlertViewModel(content.meetings, clock, content.onAction, &window);
        model->setActive(true);
        ASSERT_NE(view.create(model, window.contentItem()), nullptr) << view.errorString().toStdString();
    }};
    FullScreenAlertController controller{monitor, windows, clock, timers, gate};
    std::vector<FullScreenAlertAction> actions;

private:
    pid_t m_foreignPid = -1;
};

TEST_F(X11AlertTest, CoversFullScreenAppWaitsForTheKeyboardThenEscapeDismissesAndGivesFocusBack)
{
    const auto [grabPid, grabWindow] = startForeignClient("grab");
    ASSERT_NE(grabWindow, 0u) << "the password prompt could not grab the keyboard";

    ASSERT_TRUE(present());
    ASSERT_TRUE(waitUntil([&] { return alertWindow && alertWindow->isExposed(); }));
    const xcb_window_t panel = panelWindow();

    EXPECT_EQ(observer.ewmh().frameInRoot(panel), QRect(0, 0, X11TestSession::width, X11TestSession::height));
    EXPECT_TRUE(observer.isAbove(panel, observer.topLevel(foreign)));
    const std::string properties =
        session->run({"xprop", "-id", std::to_string(panel), "WM_NAME", "_NET_WM_STATE", "_NET_WM_DESKTOP"});
    for (const char* expected : {"\"Meeting reminder\"", "_NET_WM_STATE_ABOVE", "_NET_WM_STATE_STICKY",
                                 "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "4294967295"}) {
        EXPECT_NE(properties.find(expected), std::string::npos) << expected << " missing from:\n" << properties;
    }
    const std::string clientList = session->run({"xprop", "-root", "_NET_CLIENT_LIST"});
    EXPECT_EQ(clientList.find(std::to_string(panel)), std::string::npos) << "no taskbar or switcher lists it";

    // The gate asks again while the prompt holds the keyboard; the alert never takes it meanwhile.
    QTest::qWait(800);
    EXPECT_NE(observer.ewmh().inputFocus(), panel);
    EXPECT_NE(QGuiApplication::focusWindow(), alertWindow.data());
    session->screenshot(artifact("alert-over-fullscreen-while-keyboard-held.png"));

    // Something stacked over the alert while it shows is covered again at once.
    const auto [coverPid, cover] = startForeignClient("cover");
    ASSERT_NE(cover, 0u);
    EXPECT_TRUE(waitUntil([&, cover = cover] { return observer.isAbove(panel, cover); }));
    session->end(coverPid);

    session->end(grabPid);
    ASSERT_TRUE(waitUntil([&] { return panelTakesKeys(); })) << "the alert did not take the keyboard";
    session->screenshot(artifact("alert-focused.png"));

    session->run({"xdotool", "key", "Escape"});
    ASSERT_TRUE(waitUntil([&] { return !actions.empty(); }));
    EXPECT_TRUE(isDismiss());
    EXPECT_TRUE(waitUntil([&] { return activeWindowPerXdotool() == foreign; }))
        << "the full-screen application did not get focus back";
    EXPECT_TRUE(waitUntil([&] { return alertWindow.isNull(); }));
    session->screenshot(artifact("after-dismiss.png"));
}

TEST_F(X11AlertTest, TakesFocusAtOnceWhenTheKeyboardIsFreeAndAButtonEndsIt)
{
    ASSERT_TRUE(present());
    ASSERT_TRUE(waitUntil([&] { return alertWindow && alertWindow->isExposed(); }));
    EXPECT_TRUE(waitUntil([&] { return observer.ewmh().inputFocus() == panelWindow(); }));

    const auto* button = alertWindow->contentItem()->findChild<QQuickItem*>(u"dismissButton"_s);
    ASSERT_NE(button, nullptr);
    const QPoint centre = alertWindow->mapToGlobal(button->mapToScene(button->boundingRect().center()).toPoint());
    session->run({"xdotool", "mousemove", std::to_string(centre.x()), std::to_string(centre.y()), "click", "1"});
    ASSERT_TRUE(waitUntil([&] { return !actions.empty(); }));
    EXPECT_TRUE(isDismiss());
    EXPECT_TRUE(waitUntil([&] { return alertWindow.isNull(); })) << "the clicked panel was not deleted";
    EXPECT_TRUE(waitUntil([&] { return activeWindowPerXdotool() == foreign; }));
}

} // namespace

int main(int argc, char** argv)
{
    return runTestsOnX11(argc, argv, session);
}
