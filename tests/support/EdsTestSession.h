// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

using GDBusConnection = struct _GDBusConnection;

/// A private Evolution Data Server world: an empty home directory and a session bus of its own, on which the EDS
/// services start by D-Bus activation the first time a client asks for them.
///
/// GLib reads HOME and the XDG directories once, and GDBus the bus address once, so start() must run before the
/// first GLib or libecal call of the process. Not copyable; stop() (or the destructor) ends the bus and every
/// process it started.
class EdsTestSession {
public:
    EdsTestSession() = default;
    ~EdsTestSession();
    EdsTestSession(const EdsTestSession&) = delete;
    EdsTestSession& operator=(const EdsTestSession&) = delete;

    /// Creates the temporary tree, points HOME, XDG_* and DBUS_SESSION_BUS_ADDRESS at it and starts the bus.
    /// Throws std::runtime_error when the bus does not come up.
    void start();
    /// Ends the bus and the processes it activated, waits until they are gone and removes the temporary tree.
    void stop();

    bool isRunning() const { return m_busPid > 0; }
    /// The temporary directory holding home/, data/, config/, cache/, runtime/ and the bus socket.
    const std::string& root() const { return m_root; }
    const std::string& busAddress() const { return m_busAddress; }
    pid_t busPid() const { return m_busPid; }

    /// The live processes of this session (started by its bus, directly or not) whose executable's file name is
    /// `executable`; every live process of the session when it is empty.
    std::vector<pid_t> processes(std::string_view executable = {}) const;

private:
    std::string m_root;
    std::string m_busAddress;
    pid_t m_busPid = -1;
    /// This process's shared connection to the bus, held so that its loss does not end the process.
    GDBusConnection* m_connection = nullptr;
    int m_wasSubreaper = 0;
};
