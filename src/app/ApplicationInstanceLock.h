// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace orvane {

/// Proof that this process is the one running copy. Releasing it (destroying it) lets another copy start.
class ApplicationInstanceLease {
public:
    virtual ~ApplicationInstanceLease() = default;
};

/// Takes the single-instance lease.
class ApplicationInstanceLocking {
public:
    virtual ~ApplicationInstanceLocking() = default;
    /// The lease, or nothing when another copy holds it. Throws ApplicationInstanceLockError.
    virtual std::unique_ptr<ApplicationInstanceLease> acquire() = 0;
};

/// Brings the running copy forward.
class ApplicationActivating {
public:
    virtual ~ApplicationActivating() = default;
    virtual void activateRunningInstance() = 0;
};

/// The lease owns the locked descriptor: destroying it unlocks and closes the file.
class FileDescriptorApplicationInstanceLease final : public ApplicationInstanceLease {
public:
    explicit FileDescriptorApplicationInstanceLease(int descriptor);
    ~FileDescriptorApplicationInstanceLease() override;
    FileDescriptorApplicationInstanceLease(const FileDescriptorApplicationInstanceLease&) = delete;
    FileDescriptorApplicationInstanceLease& operator=(const FileDescriptorApplicationInstanceLease&) = delete;

    int descriptor() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// An advisory lock on "com.velmont.Orvane/application-instance.lock" in the user's data directory. The lock dies with
/// the process, so a crashed copy never keeps the next one from starting; the file itself stays.
class ApplicationInstanceFileLock final : public ApplicationInstanceLocking {
public:
    /// `explicitLockFilePath` places the lock elsewhere (tests); by default it lives in the user's data directory.
    explicit ApplicationInstanceFileLock(std::optional<QString> explicitLockFilePath = std::nullopt);

    /// Where the lock file lives, creating the private directory (mode 0700) on the way. Throws
    /// ApplicationInstanceLockError.
    QString lockFilePath() const;
    std::unique_ptr<ApplicationInstanceLease> acquire() override;

private:
    std::optional<QString> m_explicitLockFilePath;
};

/// Lets exactly one copy start: it takes the lease, and a copy that cannot brings the running one forward instead.
class ApplicationInstanceGate {
public:
    using ErrorReporter = std::function<void(const QString&)>;

    ApplicationInstanceGate(ApplicationInstanceLocking& lock, ApplicationActivating& activator,
                            ErrorReporter reportError = {});

    /// The lease when this copy may run. Otherwise (the lock is held, or could not be taken safely) the running copy
    /// is asked to come forward and nothing is returned: the caller ends without starting its interface.
    std::unique_ptr<ApplicationInstanceLease> acquireOrActivate();

private:
    ApplicationInstanceLocking& m_lock;
    ApplicationActivating& m_activator;
    ErrorReporter m_reportError;
};

} // namespace orvane
