// SPDX-License-Identifier: GPL-3.0-or-later
// How long the full-screen alert takes from present() until its window is on screen (mapped and exposed) on a
// real X server: Xvfb with openbox, which this program starts. The first presentation of a process (cold: the
// alert's QML is compiled and the scene graph starts) is reported apart from the following ones (warm).
//
//   alert_present_bench [presentations]      default 50; the target is a warm p95 under 150 ms
#include "alert/AlertPanelContentFactory.h"
#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "alert/linux/QtAlertWindowSystem.h"
#include "scheduling/Clock.h"
#include "scheduling/linux/TimerfdAlertTimerScheduler.h"
#include "support/MeetingFixtures.h"
#include "support/X11TestSession.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPointer>
#include <QQuickWindow>
#include <QSGRendererInterface>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace orvane;
using namespace Qt::StringLiterals;

namespace {

double percentile(std::vector<double> samples, double fraction)
{
    std::sort(samples.begin(), samples.end());
    const auto index = std::size_t(fraction * double(samples.size() - 1) + 0.5);
    return samples[std::min(index, samples.size() - 1)];
}

} // namespace

int main(int argc, char** argv)
{
    const int presentations = argc > 1 ? std::max(1, std::atoi(argv[1])) : 50;
    X11TestSession x11;
    x11.start();
    setenv("QT_QPA_PLATFORM", "xcb", 1);
    // As the application itself renders (see main.cpp).
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QGuiApplication application(argc, argv);

    SystemClock clock;
    TimerfdAlertTimerScheduler timers;
    SecureEventInputActivationGate gate{clock, timers, [] {
                                            return false;
                                        }};
    AlertPresentationAvailability monitor;
    QPointer<QQuickWindow> shown;
    std::function<void(FullScreenAlertAction)> answer;
    // The application's own content: its QML engine is made on the first alert, so "cold" includes that.
    const auto fill = makeAlertPanelContentFactory(clock);
    QtAlertWindowSystem windows{[&](QQuickWindow& window, const AlertPanelContent& content) {
        if (!content.meetings.empty()) {
            shown = &window;
            answer = content.onAction;
        }
        fill(window, content);
    }};
    FullScreenAlertController controller{monitor, windows, clock, timers, gate};

    const auto presentOnce = [&] {
        const Date start = clock.now() + 120;
        QElapsedTimer elapsed;
        elapsed.start();
        controller.present({fixtures::meeting(u"Quarterly review"_s, start.secondsSinceReferenceDate, 30)},
                           std::nullopt, [](const FullScreenAlertAction&) {});
        while (!shown || !shown->isExposed()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            if (elapsed.elapsed() > 10'000) {
                std::fprintf(stderr, "the alert did not appear within 10 s\n");
                std::exit(1);
            }
        }
        const double milliseconds = double(elapsed.nsecsElapsed()) / 1e6;
        answer(FullScreenAlertAction{FullScreenAlertAction::Dismiss{}});
        // Let the window go (it is deleted later) and the server see the unmap before the next round.
        while (shown) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            // Outside a running event loop, deferred deletes wait for an explicit send.
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
        return milliseconds;
    };

    const double cold = presentOnce();
    std::vector<double> warm;
    for (int round = 0; round < presentations; ++round) {
        warm.push_back(presentOnce());
    }
    std::printf(
        "alert present -> exposed on %s (Qt Quick %s backend)\n", x11.display().c_str(),
        qPrintable(QQuickWindow::sceneGraphBackend().isEmpty() ? u"default"_s : QQuickWindow::sceneGraphBackend()));
    std::printf("cold (first): %.1f ms\n", cold);
    std::printf("warm over %d: median %.1f ms, p95 %.1f ms, max %.1f ms\n", presentations, percentile(warm, 0.5),
                percentile(warm, 0.95), *std::max_element(warm.begin(), warm.end()));
    std::fflush(stdout);
    return 0;
}
