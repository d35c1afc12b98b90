// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/SecretServiceTestSession.h"

#include "support/Patience.h"

#include <QProcess>

#include <chrono>
#include <gio/gio.h>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// Runs gnome-keyring-daemon with `arguments` and `input` on its standard input until the command returns (the
/// daemon itself forks and stays). Returns what it printed; throws when it cannot run or fails.
std::string runKeyringDaemon(const QStringList& arguments, const QByteArray& input)
{
    QProcess daemon;
    daemon.setProcessChannelMode(QProcess::MergedChannels);
    daemon.start(QStringLiteral("gnome-keyring-daemon"), arguments);
    if (!daemon.waitForStarted(patience)) {
        throw std::runtime_error("Secret Service test session: cannot run gnome-keyring-daemon (is gnome-keyring "
                                 "installed?): " +
                                 daemon.errorString().toStdString());
    }
    daemon.write(input);
    daemon.closeWriteChannel();
    const bool finished = daemon.waitForFinished(patience);
    const std::string output = daemon.readAll().toStdString();
    if (!finished || daemon.exitStatus() != QProcess::NormalExit || daemon.exitCode() != 0) {
        throw std::runtime_error("Secret Service test session: gnome-keyring-daemon " +
                                 arguments.join(QLatin1Char(' ')).toStdString() + " failed: " + output);
    }
    return output;
}

bool secretServiceIsOwned(GDBusConnection* connection)
{
    GVariant* reply =
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "NameHasOwner", g_variant_new("(s)", "org.freedesktop.secrets"),
                                    G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, 1'000, nullptr, nullptr);
    if (reply == nullptr) {
        return false;
    }
    gboolean owned = FALSE;
    g_variant_get(reply, "(b)", &owned);
    g_variant_unref(reply);
    return owned != FALSE;
}

} // namespace

void SecretServiceTestSession::start()
{
    m_bus.start();
    try {
        // As a login would: the password creates and unlocks the login keyring, which becomes the default
        // collection. The daemon inherits the private bus and home from this process's environment.
        runKeyringDaemon({QStringLiteral("--login")}, QByteArrayLiteral("pw"));
        const std::string started =
            runKeyringDaemon({QStringLiteral("--start"), QStringLiteral("--components=secrets")}, QByteArray());

        GDBusConnection* connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
        bool owned = false;
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (connection != nullptr && !(owned = secretServiceIsOwned(connection)) &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(20ms);
        }
        g_clear_object(&connection);
        if (!owned) {
            throw std::runtime_error(
                "Secret Service test session: gnome-keyring-daemon did not take org.freedesktop.secrets on the "
                "private bus: " +
                started);
        }
    } catch (...) {
        m_bus.stop();
        throw;
    }
}
