// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/LaunchAtLoginService.h"

#include <QDBusConnection>
#include <QHash>

class QDBusMessage;

namespace orvane {

/// Launch at login inside a Flatpak sandbox, where the autostart folder is out of reach: the desktop's Background
/// portal (`org.freedesktop.portal.Background.RequestBackground`) writes the entry after the user approves.
///
/// The portal cannot be asked what it has, so the status is the answer to this run's last request; before any
/// request it is `notRegistered`. A request is answered later by a `Response` signal; until then the status is
/// `requiresApproval` and each answer is reported with `statusChanged()`.
class BackgroundPortalLaunchAtLoginService final : public LaunchAtLoginService {
    Q_OBJECT

public:
    explicit BackgroundPortalLaunchAtLoginService(QDBusConnection sessionBus, QObject* parent = nullptr);
    ~BackgroundPortalLaunchAtLoginService() override;

    /// Whether this program runs inside a Flatpak sandbox, where only the portal can register it.
    static bool isSandboxed();

    /// The status an answer stands for: `response` 0 is granted (then `autostart` tells what the portal did), any
    /// other value leaves the status that was before the request.
    static Status statusForResponse(uint response, bool autostart, Status before);

    Status status() const override { return m_status; }
    QCoro::Task<> registerMainApp() override;
    QCoro::Task<> unregisterMainApp() override;

private Q_SLOTS:
    void handleResponse(const QDBusMessage& message);

private:
    QCoro::Task<> request(bool autostart);
    void watch(const QString& handle);
    void unwatch(const QString& handle);

    struct PendingRequest {
        Status before = Status::notRegistered;
    };

    QDBusConnection m_bus;
    Status m_status = Status::notRegistered;
    QHash<QString, PendingRequest> m_pending;
    quint64 m_nextToken = 1;
};

} // namespace orvane
