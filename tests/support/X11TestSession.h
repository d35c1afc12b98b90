// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "support/Patience.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A private X11 desktop: Xvfb on a free display (1280×800, no TCP) with openbox managing it.
///
/// start() points DISPLAY at it, so it must run before the Qt application object is made for Qt to use it (with
/// QT_QPA_PLATFORM=xcb). Not copyable; stop() (or the destructor) ends openbox, Xvfb and every client run through
/// spawn() that is still alive.
class X11TestSession {
public:
    static constexpr int width = 1280;
    static constexpr int height = 800;

    X11TestSession() = default;
    ~X11TestSession();
    X11TestSession(const X11TestSession&) = delete;
    X11TestSession& operator=(const X11TestSession&) = delete;

    /// Starts Xvfb and openbox, sets DISPLAY and waits until openbox manages the screen. Throws std::runtime_error
    /// when either does not come up within ten seconds.
    void start();
    void stop();

    /// The display name, such as ":3".
    const std::string& display() const { return m_display; }

    /// Starts `command` (looked up in PATH) on this display. With `output`, its standard output is readable there.
    pid_t spawn(const std::vector<std::string>& command, int* output = nullptr);
    /// Reads one line (without its newline) from `descriptor`, waiting at most `timeoutMilliseconds`; empty when
    /// nothing came.
    static std::string readLine(int descriptor, int timeoutMilliseconds = patience);
    /// Ends a process that spawn() started and waits for it.
    void end(pid_t pid);
    /// Runs `command` to its end and returns its standard output. Throws std::runtime_error when it fails or takes
    /// longer than ten seconds.
    std::string run(const std::vector<std::string>& command);
    /// Saves the whole screen as an image (ImageMagick's `import`), creating the file's directory.
    void screenshot(const std::string& path);

private:
    void startOnce();

    std::string m_display;
    std::string m_home;
    pid_t m_xvfb = -1;
    pid_t m_openbox = -1;
    std::vector<pid_t> m_clients;
};

/// The main of a test program whose windows must be real X11 windows: starts the X server and window manager (unless
/// the tests are only being listed), points Qt at it before the application object exists, sets `session` while the
/// tests run, and runs them.
int runTestsOnX11(int argc, char** argv, X11TestSession*& session);
