// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "support/EdsTestSession.h"

#include <string>

/// A private Secret Service: GNOME Keyring on a session bus of its own (see EdsTestSession, which provides the bus
/// and the temporary home), with an unlocked login keyring as the default collection.
///
/// start() must run before the first GLib or libsecret call of the process. stop() (or the destructor) ends the
/// keyring daemon with the bus and removes the temporary tree.
class SecretServiceTestSession {
public:
    /// Starts the bus and the keyring and waits until org.freedesktop.secrets has an owner. Throws
    /// std::runtime_error, with the daemon's own output, when the keyring does not come up.
    void start();
    void stop() { m_bus.stop(); }

    const EdsTestSession& bus() const { return m_bus; }

private:
    EdsTestSession m_bus;
};
