// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <exception>
#include <variant>

namespace orvane {

/// Why the single-instance lock could not be examined or taken.
class ApplicationInstanceLockError : public std::exception {
public:
    /// A system call failed with this error number.
    struct Posix {
        int errorNumber = 0;
        friend bool operator==(const Posix&, const Posix&) = default;
    };
    /// Something other than a regular file of this user sits where the lock file belongs.
    struct UnsafeLockFile {
        friend bool operator==(const UnsafeLockFile&, const UnsafeLockFile&) = default;
    };

    using Case = std::variant<Posix, UnsafeLockFile>;

    explicit ApplicationInstanceLockError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;

    friend bool operator==(const ApplicationInstanceLockError& lhs, const ApplicationInstanceLockError& rhs)
    {
        return lhs.m_value == rhs.m_value;
    }

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
