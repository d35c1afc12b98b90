// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <csignal>
#include <sys/resource.h>

/// While it lives, this process cannot grow any file beyond one byte, as if the disk were full. Works for root
/// too, unlike a read-only directory. Print nothing to a file while it lives.
class DiskFull {
public:
    DiskFull()
    {
        getrlimit(RLIMIT_FSIZE, &m_previous);
        m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit full{1, m_previous.rlim_max};
        setrlimit(RLIMIT_FSIZE, &full);
    }
    ~DiskFull()
    {
        setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousHandler);
    }
    DiskFull(const DiskFull&) = delete;
    DiskFull& operator=(const DiskFull&) = delete;

private:
    rlimit m_previous{};
    void (*m_previousHandler)(int) = nullptr;
};
