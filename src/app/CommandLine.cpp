// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/CommandLine.h"

#include "app/BundleInfo.h"

using namespace Qt::StringLiterals;

namespace orvane {

CommandLine::Request CommandLine::parse(const QStringList& arguments)
{
    if (arguments.isEmpty()) {
        return Run{};
    }
    const QString& command = arguments.front();
    if (command == u"upcoming"_s) {
        if (arguments.size() == 1) {
            return ListUpcoming{false};
        }
        if (arguments.size() == 2 && arguments.at(1) == u"--json"_s) {
            return ListUpcoming{true};
        }
        return Invalid{u"\"upcoming\" takes only --json."_s};
    }
    if (command == u"test-alert"_s) {
        return arguments.size() == 1 ? Request(ShowTestAlert{})
                                     : Request(Invalid{u"\"test-alert\" takes no arguments."_s});
    }
    if (arguments.size() == 1) {
        const QString& argument = arguments.front();
        if (argument == u"--help"_s || argument == u"-h"_s) {
            return ShowHelp{};
        }
        if (argument == u"--version"_s || argument == u"-v"_s) {
            return ShowVersion{};
        }
        if (argument == u"--at-login"_s) {
            return Run{.atLogin = true};
        }
        if (argument.startsWith(u'-')) {
            return Invalid{u"Unknown option \"%1\"."_s.arg(argument)};
        }
        return Invalid{u"Unknown command \"%1\"."_s.arg(argument)};
    }
    return Invalid{u"Too many arguments."_s};
}

QString CommandLine::helpText(const BundleInfo& bundle)
{
    return u"Usage: orvane [--at-login | upcoming [--json] | test-alert | --help | --version]\n"
           u"\n"
           u"Orvane %1: full-screen reminders so that you never miss the start of a meeting.\n"
           u"Without a command it starts in the tray (or brings the running copy forward).\n"
           u"\n"
           u"Commands (answered by the running copy):\n"
           u"  upcoming       List the upcoming meetings that will alert; --json for scripts.\n"
           u"  test-alert     Show the full-screen test alert.\n"
           u"\n"
           u"Options:\n"
           u"  --at-login     Start as launch at login does: without a tray, no window opens by itself.\n"
           u"  -h, --help     Show this help and exit.\n"
           u"  -v, --version  Show the version and exit.\n"_s.arg(bundle.shortVersion());
}

QString CommandLine::versionText(const BundleInfo& bundle)
{
    return u"Orvane %1 (build %2)"_s.arg(bundle.shortVersion(), bundle.buildNumber());
}

} // namespace orvane
