// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringList>

#include <variant>

namespace orvane {

class BundleInfo;

/// What the command line asks Orvane to do. Parsed before any Qt application object exists, so that
/// `--version` and `--help` work without a display.
struct CommandLine {
    struct ShowHelp {
        friend bool operator==(const ShowHelp&, const ShowHelp&) = default;
    };
    struct ShowVersion {
        friend bool operator==(const ShowVersion&, const ShowVersion&) = default;
    };
    /// Start Orvane (or bring the running copy forward).
    struct Run {
        /// The session started Orvane at login ("--at-login", which launch at login asks for): no window opens
        /// by itself then, except to finish the setup.
        bool atLogin = false;
        friend bool operator==(const Run&, const Run&) = default;
    };
    /// Print the running copy's upcoming meetings, as text or as JSON.
    struct ListUpcoming {
        bool json = false;
        friend bool operator==(const ListUpcoming&, const ListUpcoming&) = default;
    };
    /// Ask the running copy to show its test alert.
    struct ShowTestAlert {
        friend bool operator==(const ShowTestAlert&, const ShowTestAlert&) = default;
    };
    /// The arguments made no sense; `message` says why, for standard error.
    struct Invalid {
        QString message;
        friend bool operator==(const Invalid&, const Invalid&) = default;
    };
    using Request = std::variant<Run, ListUpcoming, ShowTestAlert, ShowHelp, ShowVersion, Invalid>;

    /// The request of `arguments` (without the program name).
    static Request parse(const QStringList& arguments);

    /// The usage text printed by `--help`.
    static QString helpText(const BundleInfo& bundle);
    /// The line printed by `--version`: "Orvane 0.1.0 (build 1)".
    static QString versionText(const BundleInfo& bundle);
};

} // namespace orvane
