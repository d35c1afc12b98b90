// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/X11TestSession.h"

#include "support/Patience.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <xcb/xcb.h>

extern char** environ;

namespace {

using namespace std::chrono_literals;

std::runtime_error failure(const std::string& what)
{
    return std::runtime_error("X11 test session: " + what);
}

/// Starts `command` with standard output on `outputDescriptor` (when not -1) and everything else inherited.
pid_t spawnProcess(const std::vector<std::string>& command, int outputDescriptor, int closeInChild)
{
    std::vector<char*> arguments;
    for (const auto& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    int errorPipe[2];
    if (::pipe2(errorPipe, O_CLOEXEC) != 0) {
        throw failure("cannot make a pipe");
    }
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) {
        close(errorPipe[0]);
        close(errorPipe[1]);
        throw failure("cannot start " + command.front() + ": " + std::strerror(errno));
    }
    if (pid == 0) {
        // The X server and its clients die with the test, even when it aborts: left behind, they would keep ctest's
        // output pipe open and ctest would wait for them until its time limit.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        const int quiet = open("/dev/null", O_WRONLY);
        dup2(outputDescriptor >= 0 ? outputDescriptor : quiet, STDOUT_FILENO);
        if (closeInChild >= 0) {
            close(closeInChild);
        }
        execvp(arguments.front(), arguments.data());
        const int error = errno;
        [[maybe_unused]] const auto written = write(errorPipe[1], &error, sizeof error);
        _exit(127);
    }
    close(errorPipe[1]);
    int error = 0;
    const bool failed = read(errorPipe[0], &error, sizeof error) == sizeof error;
    close(errorPipe[0]);
    if (failed) {
        waitpid(pid, nullptr, 0);
        throw failure("cannot start " + command.front() + ": " + std::strerror(error));
    }
    return pid;
}

/// Waits for our child `pid`, killing it when it takes longer than `patience`. Returns its wait status.
int reap(pid_t pid, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno == ECHILD)) {
            return status;
        }
        std::this_thread::sleep_for(5ms);
    }
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return status;
}

/// Whether a window manager has announced itself on the display (EWMH `_NET_SUPPORTING_WM_CHECK` on the root).
bool windowManagerRuns(const std::string& display)
{
    xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
    bool runs = false;
    if (xcb_connection_has_error(connection) == 0) {
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
        const char name[] = "_NET_SUPPORTING_WM_CHECK";
        auto* atom = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 1, sizeof name - 1, name), nullptr);
        if (atom && atom->atom != XCB_ATOM_NONE) {
            auto* property = xcb_get_property_reply(
                connection, xcb_get_property(connection, 0, root, atom->atom, XCB_ATOM_WINDOW, 0, 1), nullptr);
            runs = property && xcb_get_property_value_length(property) == 4;
            std::free(property);
        }
        std::free(atom);
    }
    xcb_disconnect(connection);
    return runs;
}

/// Whether the window manager manages new windows yet: it announces itself (above) before its start-up is over, and
/// a window mapped meanwhile can go unmanaged and unmapped for good (openbox drops it while it loads a slow theme).
/// A probe window is mapped until the manager reparents it into a frame, asked again now and then in case the
/// request was dropped.
bool windowManagerManages(const std::string& display, std::chrono::milliseconds patience)
{
    xcb_connection_t* connection = xcb_connect(display.c_str(), nullptr);
    if (xcb_connection_has_error(connection) != 0) {
        xcb_disconnect(connection);
        return false;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_window_t probe = xcb_generate_id(connection);
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, probe, screen->root, 0, 0, 10, 10, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, 0, nullptr);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    bool managed = false;
    for (int round = 0; !managed && std::chrono::steady_clock::now() < deadline; ++round) {
        if (round % 50 == 0) {
            xcb_unmap_window(connection, probe);
            xcb_map_window(connection, probe);
        }
        auto* tree = xcb_query_tree_reply(connection, xcb_query_tree(connection, probe), nullptr);
        managed = tree && tree->parent != screen->root;
        std::free(tree);
        if (!managed) {
            std::this_thread::sleep_for(20ms);
        }
    }
    xcb_destroy_window(connection, probe);
    xcb_disconnect(connection);
    return managed;
}

} // namespace

X11TestSession::~X11TestSession()
{
    stop();
}

void X11TestSession::start()
{
    if (m_xvfb > 0) {
        return;
    }
    // Two servers starting at the same moment can both reach for the same display number; the loser gives up on it
    // and a window manager meant for it may end up on the other. Starting again settles it.
    for (int attempt = 1;; ++attempt) {
        try {
            startOnce();
            return;
        } catch (const std::runtime_error&) {
            if (attempt == 3) {
                throw;
            }
        }
    }
}

void X11TestSession::startOnce()
{
    // -displayfd: Xvfb picks a free display number and writes it once it accepts clients.
    int pipe[2];
    if (::pipe(pipe) != 0) {
        throw failure("cannot make a pipe");
    }
    m_xvfb = spawnProcess({"Xvfb", "-displayfd", std::to_string(pipe[1]), "-screen", "0",
                           std::to_string(width) + "x" + std::to_string(height) + "x24", "-nolisten", "tcp"},
                          -1, pipe[0]);
    close(pipe[1]);
    const std::string number = readLine(pipe[0], patience);
    close(pipe[0]);
    if (number.empty()) {
        stop();
        throw failure("Xvfb did not start");
    }
    m_display = ":" + number;
    setenv("DISPLAY", m_display.c_str(), 1);

    // openbox keeps a log and session files under HOME and XDG_CACHE_HOME: give it a home of its own.
    char home[] = "/tmp/orvane-x11-XXXXXX";
    if (mkdtemp(home) == nullptr) {
        stop();
        throw failure("cannot create a temporary directory");
    }
    m_home = home;
    const std::string environment = "HOME=" + m_home;
    const auto startOpenbox = [&] {
        m_openbox = spawnProcess(
            {"env", environment, "XDG_CACHE_HOME=" + m_home, "XDG_CONFIG_HOME=" + m_home, "openbox", "--sm-disable"},
            -1, -1);
    };
    startOpenbox();
    // At the start of a busy suite openbox has been seen to exit at once with status 1, saying nothing; once more
    // before giving up, and a second exit fails the test at once rather than after the whole wait.
    bool retried = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience);
    while (!windowManagerRuns(m_display)) {
        int status = 0;
        if (waitpid(m_openbox, &status, WNOHANG) == m_openbox) {
            m_openbox = -1;
            if (!std::exchange(retried, true)) {
                startOpenbox();
                continue;
            }
            stop();
            throw failure("openbox exited as it started, twice (status " + std::to_string(status) + ")");
        }
        if (std::chrono::steady_clock::now() > deadline) {
            stop();
            throw failure("openbox did not start");
        }
        std::this_thread::sleep_for(20ms);
    }
    if (!windowManagerManages(m_display, std::chrono::milliseconds(patience))) {
        stop();
        throw failure("openbox does not manage windows");
    }
}

void X11TestSession::stop()
{
    for (const pid_t client : std::exchange(m_clients, {})) {
        kill(client, SIGTERM);
        reap(client, 2s);
    }
    for (pid_t* pid : {&m_openbox, &m_xvfb}) {
        if (*pid > 0) {
            kill(*pid, SIGTERM);
            reap(*pid, 5s);
            *pid = -1;
        }
    }
    if (!m_home.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_home, ignored);
        m_home.clear();
    }
}

pid_t X11TestSession::spawn(const std::vector<std::string>& command, int* output)
{
    int pipe[2] = {-1, -1};
    if (output && ::pipe2(pipe, O_CLOEXEC) != 0) {
        throw failure("cannot make a pipe");
    }
    const pid_t pid = spawnProcess(command, pipe[1], -1);
    if (output) {
        close(pipe[1]);
        *output = pipe[0];
    }
    m_clients.push_back(pid);
    return pid;
}

std::string X11TestSession::readLine(int descriptor, int timeoutMilliseconds)
{
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    while (true) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd readable{descriptor, POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, int(left.count())) <= 0) {
            return {};
        }
        char byte = 0;
        if (read(descriptor, &byte, 1) != 1) {
            return {};
        }
        if (byte == '\n') {
            return line;
        }
        line.push_back(byte);
    }
}

void X11TestSession::end(pid_t pid)
{
    const auto found = std::find(m_clients.begin(), m_clients.end(), pid);
    if (found == m_clients.end()) {
        return;
    }
    m_clients.erase(found);
    kill(pid, SIGTERM);
    reap(pid, 2s);
}

std::string X11TestSession::run(const std::vector<std::string>& command)
{
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) {
        throw failure("cannot make a pipe");
    }
    const pid_t pid = spawnProcess(command, pipe[1], -1);
    close(pipe[1]);
    std::string output;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    char buffer[4096];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd readable{pipe[0], POLLIN, 0};
        if (poll(&readable, 1, 100) <= 0) {
            continue;
        }
        const ssize_t count = read(pipe[0], buffer, sizeof buffer);
        if (count <= 0) {
            break;
        }
        output.append(buffer, std::size_t(count));
    }
    close(pipe[0]);
    const int status = reap(pid, 1s);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw failure(command.front() + " failed: " + output);
    }
    return output;
}

void X11TestSession::screenshot(const std::string& path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    run({"import", "-window", "root", path});
}
