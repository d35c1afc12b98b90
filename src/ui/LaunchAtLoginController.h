// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/LaunchAtLoginService.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <optional>

namespace orvane {

/// Mirrors the login-item service's status for the settings window and turns the registration on and off.
///
/// Failures never leave the controller: they become `errorMessage()`, and the state is read again from the system so
/// that the switch always shows what the system really has. Main thread only.
class LaunchAtLoginController final : public QObject {
    Q_OBJECT

public:
    enum class State {
        disabled,
        enabled,
        requiresApproval,
        unavailable,
    };
    Q_ENUM(State)

    /// Shown beneath the disabled switch in `unavailable`.
    static QString unavailableNote();
    /// Shown in `requiresApproval`.
    static QString approvalNote();

    /// The state a service status stands for. A status the controller does not know is `unavailable`.
    static State state(LaunchAtLoginService::Status status);

    /// Reads the status once; reads it again whenever the service reports a change.
    explicit LaunchAtLoginController(LaunchAtLoginService& service, QObject* parent = nullptr);

    State state() const { return m_state; }
    const std::optional<QString>& errorMessage() const { return m_errorMessage; }
    /// Whether the switch shows on: also while the system waits for approval, since the user asked for it.
    bool isOn() const { return m_state == State::enabled || m_state == State::requiresApproval; }
    /// The note beside the switch for the current state, if it has one.
    std::optional<QString> note() const;

    /// Reads the service status and publishes the mapped state.
    void refresh();
    /// Registers or unregisters, records the outcome in `errorMessage()`, then refreshes.
    QCoro::Task<> setEnabled(bool enabled);

Q_SIGNALS:
    /// `state()` or `errorMessage()` changed.
    void changed();

private:
    void publish(State state, std::optional<QString> errorMessage);

    LaunchAtLoginService& m_service;
    State m_state = State::disabled;
    std::optional<QString> m_errorMessage;
};

} // namespace orvane
