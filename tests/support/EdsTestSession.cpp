// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/EdsTestSession.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gio/gio.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

std::runtime_error failure(const std::string& what)
{
    const int code = errno;
    return std::runtime_error("EDS test session: " + what + (code != 0 ? ": " + std::string(std::strerror(code)) : ""));
}

void makePrivateDirectory(const std::string& path)
{
    if (mkdir(path.c_str(), 0700) != 0) {
        throw failure("cannot create " + path);
    }
}

/// The whole content of a small /proc file; empty when it cannot be read (the process is gone, or not ours).
std::string readWhole(const std::string& path)
{
    std::string content;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return content;
    }
    char buffer[4096];
    for (ssize_t count; (count = read(descriptor, buffer, sizeof buffer)) > 0;) {
        content.append(buffer, std::size_t(count));
    }
    close(descriptor);
    return content;
}

/// The process identifiers listed in /proc.
std::vector<pid_t> allProcesses()
{
    std::vector<pid_t> pids;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (!name.empty() && name.find_first_not_of("0123456789") == std::string::npos) {
            pids.push_back(pid_t(std::stol(name)));
        }
    }
    return pids;
}

/// Whether `environment` (NUL-separated, as /proc/<pid>/environ holds it) contains exactly `entry`.
bool containsEntry(const std::string& environment, const std::string& entry)
{
    for (std::size_t begin = 0; begin < environment.size();) {
        const std::size_t end = environment.find('\0', begin);
        const std::size_t length = (end == std::string::npos ? environment.size() : end) - begin;
        if (environment.compare(begin, length, entry) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
        begin = end + 1;
    }
    return false;
}

/// Waits for our child `pid` to end, killing it when it takes longer than `patience`.
void reap(pid_t pid, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline) {
        const pid_t done = waitpid(pid, nullptr, WNOHANG);
        if (done == pid || (done < 0 && errno == ECHILD)) {
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

/// Whether `pid` has ended; reaps it when it was this process's child.
bool hasEnded(pid_t pid)
{
    const pid_t reaped = waitpid(pid, nullptr, WNOHANG);
    if (reaped == pid) {
        return true;
    }
    if (reaped == 0) {
        return false;
    }
    // Not a child of ours: gone, or a zombie that its own parent has yet to reap.
    const std::string stat = readWhole("/proc/" + std::to_string(pid) + "/stat");
    const std::size_t commandEnd = stat.rfind(')');
    return commandEnd == std::string::npos || commandEnd + 2 >= stat.size() || stat[commandEnd + 2] == 'Z';
}

/// Reaps the services that ended as children of this process (see start()), leaving its other children alone.
void reapEndedServices()
{
    for (const pid_t pid : allProcesses()) {
        const std::string stat = readWhole("/proc/" + std::to_string(pid) + "/stat");
        // "pid (comm) state ppid ...", where comm may itself hold spaces and parentheses.
        const std::size_t commandStart = stat.find('(');
        const std::size_t commandEnd = stat.rfind(')');
        if (commandStart == std::string::npos || commandEnd == std::string::npos || commandEnd + 4 > stat.size()) {
            continue;
        }
        const std::string command = stat.substr(commandStart + 1, commandEnd - commandStart - 1);
        const char state = stat[commandEnd + 2];
        const pid_t parent = pid_t(std::atoi(stat.c_str() + commandEnd + 4));
        if (parent == getpid() && state == 'Z' &&
            (command.starts_with("evolution") || command.starts_with("dbus-daemon") ||
             command.starts_with("gnome-keyring"))) {
            waitpid(pid, nullptr, WNOHANG);
        }
    }
}

} // namespace

#if defined(__SANITIZE_ADDRESS__) && defined(ORVANE_LSAN_SUPPRESSIONS)
/// LeakSanitizer asks for default suppressions when it checks for leaks at exit: those of lsan.supp, which cover
/// allocations that GLib and EDS leave behind on their own threads.
extern "C" const char* __asan_default_options()
{
    // GLib is built without frame pointers: only the slow unwinder reaches the frames the suppressions name.
    return "fast_unwind_on_malloc=0";
}

extern "C" const char* __lsan_default_suppressions()
{
    // No allocation and no static constructor: this runs while the process is ending.
    static char text[8192];
    const int descriptor = open(ORVANE_LSAN_SUPPRESSIONS, O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
        const ssize_t count = read(descriptor, text, sizeof text - 1);
        text[count > 0 ? count : 0] = '\0';
        close(descriptor);
    }
    return text;
}
#endif

EdsTestSession::~EdsTestSession()
{
    stop();
}

void EdsTestSession::start()
{
    if (isRunning()) {
        return;
    }
    // The socket path must stay short (108 bytes), so the tree lives in /tmp rather than under a long TMPDIR.
    char root[] = "/tmp/orvane-eds-XXXXXX";
    if (mkdtemp(root) == nullptr) {
        throw failure("cannot create a temporary directory");
    }
    m_root = root;
    for (const char* directory : {"home", "data", "config", "cache", "runtime"}) {
        makePrivateDirectory(m_root + "/" + directory);
    }
    setenv("HOME", (m_root + "/home").c_str(), 1);
    setenv("XDG_DATA_HOME", (m_root + "/data").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (m_root + "/config").c_str(), 1);
    setenv("XDG_CACHE_HOME", (m_root + "/cache").c_str(), 1);
    setenv("XDG_RUNTIME_DIR", (m_root + "/runtime").c_str(), 1);
    // Settings stay in memory: otherwise the first GSettings write activates dconf on the private bus.
    setenv("GSETTINGS_BACKEND", "memory", 1);
    unsetenv("DBUS_STARTER_ADDRESS");
    unsetenv("DBUS_STARTER_BUS_TYPE");

    // GLib keeps the first HOME and XDG values it sees; if something read them already, EDS would write into the
    // real home of whoever runs the tests.
    if (m_root + "/home" != g_get_home_dir() || m_root + "/data" != g_get_user_data_dir() ||
        m_root + "/config" != g_get_user_config_dir() || m_root + "/cache" != g_get_user_cache_dir()) {
        errno = 0;
        throw failure("GLib read HOME or the XDG directories before the session started");
    }

    // The services outlive the bus for a moment. As orphans they would become zombies of an init that, in a
    // container, may never reap them; adopted by this process, stop() reaps them.
    prctl(PR_GET_CHILD_SUBREAPER, &m_wasSubreaper);
    prctl(PR_SET_CHILD_SUBREAPER, 1);

    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) {
        throw failure("pipe");
    }
    // The bus prints its address on descriptor 3. It ends with this process, even one that crashes or is killed
    // before stop(), and its services end with it.
    gchar* program = g_find_program_in_path("dbus-daemon");
    if (program == nullptr) {
        close(pipe[0]);
        close(pipe[1]);
        errno = ENOENT;
        throw failure("dbus-daemon is not installed");
    }
    const std::string address = "--address=unix:path=" + m_root + "/bus";
    const char* const argv[] = {program,         "--session", "--nofork", "--nopidfile", "--print-address=3",
                                address.c_str(), nullptr};
    const pid_t parent = getpid();
    m_busPid = fork();
    if (m_busPid == 0) {
        // Only async-signal-safe calls between fork and exec.
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent || dup2(pipe[1], 3) < 0) {
            _exit(127);
        }
        execv(argv[0], const_cast<char* const*>(argv));
        _exit(127);
    }
    const int forkError = errno;
    g_free(program);
    close(pipe[1]);
    if (m_busPid < 0) {
        close(pipe[0]);
        errno = forkError;
        throw failure("cannot start dbus-daemon");
    }

    std::string printed;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (printed.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd readable{.fd = pipe[0], .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, 100) <= 0) {
            continue;
        }
        char buffer[512];
        const ssize_t count = read(pipe[0], buffer, sizeof buffer);
        if (count <= 0) {
            break;
        }
        printed.append(buffer, std::size_t(count));
    }
    close(pipe[0]);
    if (printed.find('\n') == std::string::npos) {
        stop();
        errno = ETIMEDOUT;
        throw failure("dbus-daemon did not print its address");
    }
    m_busAddress = printed.substr(0, printed.find('\n'));
    setenv("DBUS_SESSION_BUS_ADDRESS", m_busAddress.c_str(), 1);

    // GLib's shared session connection raises SIGTERM in this process when its bus goes away, as it will in stop().
    // Holding the connection keeps that setting: a connection made afresh would have it on again.
    GError* error = nullptr;
    m_connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (m_connection == nullptr) {
        const std::string message = error != nullptr ? error->message : "unknown error";
        g_clear_error(&error);
        stop();
        errno = 0;
        throw failure("cannot connect to the private bus: " + message);
    }
    g_dbus_connection_set_exit_on_close(m_connection, FALSE);
}

void EdsTestSession::stop()
{
    if (m_root.empty()) {
        return;
    }
    if (m_busPid > 0) {
        // Everything the bus started. Once the bus is gone they are this process's children (see start()), so their
        // end can be waited for rather than guessed.
        std::vector<pid_t> started = processes();
        std::erase(started, m_busPid);
        kill(m_busPid, SIGTERM);
        reap(m_busPid, 5s);
        m_busPid = -1;
        // The services quit when their bus goes away. Give them time to notice, then ask, then insist.
        for (const int signal : {0, SIGTERM, SIGKILL}) {
            for (const pid_t pid : started) {
                if (signal != 0) {
                    kill(pid, signal);
                }
            }
            const auto deadline = std::chrono::steady_clock::now() + 3s;
            while (!started.empty() && std::chrono::steady_clock::now() < deadline) {
                std::erase_if(started, hasEnded);
                if (!started.empty()) {
                    std::this_thread::sleep_for(10ms);
                }
            }
            if (started.empty()) {
                break;
            }
        }
    }
    reapEndedServices();
    prctl(PR_SET_CHILD_SUBREAPER, m_wasSubreaper);
    g_clear_object(&m_connection);
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
    m_root.clear();
    m_busAddress.clear();
}

std::vector<pid_t> EdsTestSession::processes(std::string_view executable) const
{
    std::vector<pid_t> found;
    if (m_root.empty()) {
        return found;
    }
    // Everything the bus starts inherits its environment, and with it this session's home: that finds the services
    // and their helpers even after they were re-parented. Zombies have no environment left and do not count.
    const std::string home = "HOME=" + m_root + "/home";
    for (const pid_t pid : allProcesses()) {
        const std::string directory = "/proc/" + std::to_string(pid);
        if (pid == getpid() || !containsEntry(readWhole(directory + "/environ"), home)) {
            continue;
        }
        if (!executable.empty()) {
            std::error_code unreadable;
            const auto path = std::filesystem::read_symlink(directory + "/exe", unreadable);
            if (unreadable || path.filename().string() != executable) {
                continue;
            }
        }
        found.push_back(pid);
    }
    return found;
}
