// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <exception>
#include <variant>

namespace orvane {

/// Why the login-item service could not register or unregister Orvane.
class LaunchAtLoginError : public std::exception {
public:
    /// The autostart entry at `path` could not be written.
    struct WriteFailed {
        QString path;
        QString reason;
        friend bool operator==(const WriteFailed&, const WriteFailed&) = default;
    };
    /// The autostart entry at `path` could not be removed.
    struct RemoveFailed {
        QString path;
        QString reason;
        friend bool operator==(const RemoveFailed&, const RemoveFailed&) = default;
    };
    /// The running program's own file is unknown, so there is nothing to start at login.
    struct ExecutableUnknown {
        friend bool operator==(const ExecutableUnknown&, const ExecutableUnknown&) = default;
    };
    /// The desktop's background service could not be reached or rejected the request.
    struct PortalFailed {
        QString reason;
        friend bool operator==(const PortalFailed&, const PortalFailed&) = default;
    };

    using Case = std::variant<WriteFailed, RemoveFailed, ExecutableUnknown, PortalFailed>;

    explicit LaunchAtLoginError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;

private:
    Case m_value;
    QByteArray m_what;
};

/// The system's login-item service for the main application: whether Orvane starts at login, and the requests to
/// change that.
class LaunchAtLoginService : public QObject {
    Q_OBJECT

public:
    /// What the service knows about Orvane's registration.
    enum class Status {
        notRegistered,
        enabled,
        requiresApproval,
        notFound,
        /// The service cannot tell.
        unknown,
    };

    using QObject::QObject;
    ~LaunchAtLoginService() override = default;

    /// The current registration, read from the system.
    virtual Status status() const = 0;
    /// Asks the system to start Orvane at login; throws `LaunchAtLoginError`.
    virtual QCoro::Task<> registerMainApp() = 0;
    /// Asks the system to stop starting Orvane at login; throws `LaunchAtLoginError`.
    virtual QCoro::Task<> unregisterMainApp() = 0;

Q_SIGNALS:
    /// The status changed without a request from this side finishing (an answer that came later, say).
    void statusChanged();
};

} // namespace orvane
