// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/ApplicationInstanceLock.h"

#include "app/ApplicationInstanceLockError.h"

#include <QDir>
#include <QStandardPaths>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

constexpr mode_t directoryMode = 0700;
constexpr mode_t fileMode = 0600;

[[noreturn]] void throwPosix(int errorNumber)
{
    throw ApplicationInstanceLockError(ApplicationInstanceLockError::Posix{errorNumber});
}

} // namespace

FileDescriptorApplicationInstanceLease::FileDescriptorApplicationInstanceLease(int descriptor)
    : m_descriptor(descriptor)
{
}

FileDescriptorApplicationInstanceLease::~FileDescriptorApplicationInstanceLease()
{
    while (::flock(m_descriptor, LOCK_UN) != 0 && errno == EINTR) {
    }
    ::close(m_descriptor);
}

ApplicationInstanceFileLock::ApplicationInstanceFileLock(std::optional<QString> explicitLockFilePath)
    : m_explicitLockFilePath(std::move(explicitLockFilePath))
{
}

QString ApplicationInstanceFileLock::lockFilePath() const
{
    if (m_explicitLockFilePath) {
        return *m_explicitLockFilePath;
    }
    const QString dataHome = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    const QByteArray directory = QFile::encodeName(dataHome + u"/com.velmont.Orvane"_s);
    if (!QDir().mkpath(dataHome)) {
        throwPosix(errno ? errno : EACCES);
    }
    if (::mkdir(directory.constData(), directoryMode) != 0 && errno != EEXIST) {
        throwPosix(errno);
    }
    // An existing directory may have been opened up in between; the lock is private to the user.
    if (::chmod(directory.constData(), directoryMode) != 0) {
        throwPosix(errno);
    }
    return QFile::decodeName(directory) + u"/application-instance.lock"_s;
}

std::unique_ptr<ApplicationInstanceLease> ApplicationInstanceFileLock::acquire()
{
    const QByteArray path = QFile::encodeName(lockFilePath());
    // No-follow: a symbolic link planted at the path must not redirect the open to another file.
    const int descriptor = ::open(path.constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, fileMode);
    if (descriptor < 0) {
        throwPosix(errno);
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        const int error = errno;
        ::close(descriptor);
        throwPosix(error);
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) {
        ::close(descriptor);
        throw ApplicationInstanceLockError(ApplicationInstanceLockError::UnsafeLockFile{});
    }
    if (::fchmod(descriptor, fileMode) != 0) {
        const int error = errno;
        ::close(descriptor);
        throwPosix(error);
    }
    int result = 0;
    do {
        result = ::flock(descriptor, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
        return std::make_unique<FileDescriptorApplicationInstanceLease>(descriptor);
    }
    const int error = errno;
    ::close(descriptor);
    if (error == EWOULDBLOCK) {
        return nullptr;
    }
    throwPosix(error);
}

ApplicationInstanceGate::ApplicationInstanceGate(ApplicationInstanceLocking& lock, ApplicationActivating& activator,
                                                 ErrorReporter reportError)
    : m_lock(lock)
    , m_activator(activator)
    , m_reportError(std::move(reportError))
{
}

std::unique_ptr<ApplicationInstanceLease> ApplicationInstanceGate::acquireOrActivate()
{
    try {
        if (auto lease = m_lock.acquire()) {
            return lease;
        }
    } catch (const ApplicationInstanceLockError& error) {
        // Never run without the lock: two copies would both show every alert.
        if (m_reportError) {
            m_reportError(error.description());
        }
    }
    m_activator.activateRunningInstance();
    return nullptr;
}

} // namespace orvane
