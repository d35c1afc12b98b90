// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/ApplicationControlService.h"
#include "app/ApplicationInstanceLock.h"
#include "app/BundleInfo.h"
#include "app/CommandLine.h"
#include "app/OrvaneApplication.h"
#include "app/linux/DBusApplicationActivation.h"
#include "domain/Overloaded.h"

#include <QApplication>
#include <QCoreApplication>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QString>
#include <QStringList>
#include <qcoro/qcorotask.h>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

void print(FILE* stream, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, std::size_t(bytes.size()), stream);
    if (!text.endsWith(u'\n')) {
        std::fputc('\n', stream);
    }
}

/// Asks the running copy; the command line never starts one.
int askRunningCopy(int& argc, char** argv, const QString& method, const QString& whatFor)
{
    QCoreApplication application(argc, argv);
    const auto answer = orvane::ApplicationControlClient::call(method);
    if (!answer) {
        print(stderr, u"Orvane is not running, so there is nothing to %1. Start it with \"orvane\"."_s.arg(whatFor));
        return 1;
    }
    if (method == u"ShowTestAlert"_s && *answer != u"true"_s) {
        print(stderr, u"Orvane could not show the test alert now (the screen is locked or asleep, or an alert is "
                      u"already showing)."_s);
        return 1;
    }
    if (method != u"ShowTestAlert"_s) {
        print(stdout, *answer);
    }
    return 0;
}

/// The second copy has no application object yet; it makes a bare one just for the call.
class CommandLineActivator final : public orvane::ApplicationActivating {
public:
    CommandLineActivator(int& argc, char** argv)
        : argc(argc)
        , argv(argv)
    {
    }
    void activateRunningInstance() override
    {
        QCoreApplication application(argc, argv);
        orvane::DBusApplicationActivator().activateRunningInstance();
    }

private:
    int& argc;
    char** argv;
};

bool hasDisplay()
{
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

int run(int& argc, char** argv, const orvane::BundleInfo& bundle, bool atLogin)
{
    if (!hasDisplay()) {
        print(stderr, u"Orvane needs a desktop session: neither DISPLAY nor WAYLAND_DISPLAY is set.\n"
                      u"To see it work without one, run scripts/start.sh, which starts a private demo session."_s);
        return 1;
    }
    // The lock comes before anything else: two copies would each show every alert.
    orvane::ApplicationInstanceFileLock lock;
    CommandLineActivator activator(argc, argv);
    orvane::ApplicationInstanceGate gate(lock, activator, [](const QString& error) { print(stderr, error); });
    const auto lease = gate.acquireOrActivate();
    if (!lease) {
        print(stderr, u"Orvane is already running; it was asked to come forward."_s);
        return 0;
    }

    // The panels' stacking and focus rules are X11 (EWMH); on a Wayland session Orvane runs through XWayland.
    if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && qEnvironmentVariableIsSet("DISPLAY") &&
        !qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    QApplication application(argc, argv);
    QApplication::setApplicationName(u"Orvane"_s);
    QApplication::setOrganizationDomain(u"velmont.com"_s);
    QApplication::setApplicationVersion(bundle.shortVersion());
    QApplication::setDesktopFileName(u"com.velmont.Orvane"_s);
    // The alert is a few rounded rectangles, gradients and text. Qt Quick's software renderer draws it in about 15 ms
    // and needs no graphics context per panel; with OpenGL a machine without a GPU (a virtual machine, llvmpipe)
    // took a quarter of a second per panel before the first frame, and every context costs memory all day.
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    // Orvane lives in the tray: closing its last window must not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    orvane::OrvaneApplication orvane(bundle);
    auto starting = orvane.start(atLogin);
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int index = 1; index < argc; ++index) {
        arguments.append(QString::fromLocal8Bit(argv[index]));
    }
    const auto bundle = orvane::BundleInfo::compiled();
    return std::visit(orvane::Overloaded{
                          [&](const orvane::CommandLine::Run& start) { return run(argc, argv, bundle, start.atLogin); },
                          [&](const orvane::CommandLine::ListUpcoming& list) {
                              return askRunningCopy(argc, argv, list.json ? u"UpcomingJson"_s : u"UpcomingText"_s,
                                                    u"list"_s);
                          },
                          [&](const orvane::CommandLine::ShowTestAlert&) {
                              return askRunningCopy(argc, argv, u"ShowTestAlert"_s, u"show the test alert in"_s);
                          },
                          [&](const orvane::CommandLine::ShowHelp&) {
                              print(stdout, orvane::CommandLine::helpText(bundle));
                              return 0;
                          },
                          [&](const orvane::CommandLine::ShowVersion&) {
                              print(stdout, orvane::CommandLine::versionText(bundle));
                              return 0;
                          },
                          [&](const orvane::CommandLine::Invalid& invalid) {
                              print(stderr, invalid.message + u"\n\n"_s + orvane::CommandLine::helpText(bundle));
                              return 2;
                          },
                      },
                      orvane::CommandLine::parse(arguments));
}
