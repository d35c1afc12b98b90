// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/LaunchAtLoginController.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace orvane {

QString LaunchAtLoginController::unavailableNote()
{
    return u"Launch at login is unavailable for this copy. Orvane could not find your autostart folder; "
           u"check that your home folder is set up and reopen Orvane."_s;
}

QString LaunchAtLoginController::approvalNote()
{
    return u"Your desktop requires approval in its settings for apps that run in the background."_s;
}

LaunchAtLoginController::State LaunchAtLoginController::state(LaunchAtLoginService::Status status)
{
    using Status = LaunchAtLoginService::Status;
    switch (status) {
    case Status::notRegistered:
        return State::disabled;
    case Status::enabled:
        return State::enabled;
    case Status::requiresApproval:
        return State::requiresApproval;
    // Not found means the system looked and has nothing to start: off, not broken.
    case Status::notFound:
        return State::disabled;
    case Status::unknown:
        return State::unavailable;
    }
    return State::unavailable;
}

LaunchAtLoginController::LaunchAtLoginController(LaunchAtLoginService& service, QObject* parent)
    : QObject(parent)
    , m_service(service)
{
    connect(&m_service, &LaunchAtLoginService::statusChanged, this, &LaunchAtLoginController::refresh);
    m_state = state(m_service.status());
}

std::optional<QString> LaunchAtLoginController::note() const
{
    switch (m_state) {
    case State::unavailable:
        return unavailableNote();
    case State::requiresApproval:
        return approvalNote();
    case State::disabled:
    case State::enabled:
        break;
    }
    return std::nullopt;
}

void LaunchAtLoginController::refresh()
{
    publish(state(m_service.status()), m_errorMessage);
}

QCoro::Task<> LaunchAtLoginController::setEnabled(bool enabled)
{
    QPointer<LaunchAtLoginController> self(this);
    std::optional<QString> errorMessage;
    try {
        auto request = enabled ? m_service.registerMainApp() : m_service.unregisterMainApp();
        co_await std::move(request);
    } catch (const LaunchAtLoginError& error) {
        errorMessage = error.description();
    }
    if (!self) {
        co_return;
    }
    publish(state(m_service.status()), std::move(errorMessage));
}

void LaunchAtLoginController::publish(State state, std::optional<QString> errorMessage)
{
    if (state == m_state && errorMessage == m_errorMessage) {
        return;
    }
    m_state = state;
    m_errorMessage = std::move(errorMessage);
    Q_EMIT changed();
}

} // namespace orvane
