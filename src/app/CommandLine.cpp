// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/CommandLine.h"

#include "app/BundleInfo.h"

using namespace Qt::StringLiterals;

namespace orvane {

CommandLine::Request CommandLine::parse(const QStringList& arguments)
{
    if (arguments.isEmpty()) {
        return ShowHelp{};
    }
    if (arguments.size() == 1) {
        const QString& argument = arguments.front();
        if (argument == u"--help"_s || argument == u"-h"_s) {
            return ShowHelp{};
        }
        if (argument == u"--version"_s || argument == u"-v"_s) {
            return ShowVersion{};
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
    return u"Usage: orvane [--help | --version]\n"
           u"\n"
           u"Orvane %1: full-screen reminders so that you never miss the start of a meeting.\n"
           u"\n"
           u"Options:\n"
           u"  -h, --help     Show this help and exit.\n"
           u"  -v, --version  Show the version and exit.\n"_s.arg(bundle.shortVersion());
}

QString CommandLine::versionText(const BundleInfo& bundle)
{
    return u"Orvane %1 (build %2)"_s.arg(bundle.shortVersion(), bundle.buildNumber());
}

} // namespace orvane
