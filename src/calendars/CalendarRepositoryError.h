// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarAuthorizationState.h"

#include <QByteArray>
#include <QString>

#include <exception>
#include <variant>

namespace orvane {

/// Why the desktop calendar database refused a request.
class CalendarRepositoryError : public std::exception {
public:
    /// The calendar service is not reachable (or access was not granted).
    struct AccessNotGranted {
        CalendarAuthorizationState state = CalendarAuthorizationState::unknown;
        friend bool operator==(const AccessNotGranted&, const AccessNotGranted&) = default;
    };
    /// The interval is longer than `maximum` seconds.
    struct IntervalTooLarge {
        double maximum = 0;
        friend bool operator==(const IntervalTooLarge&, const IntervalTooLarge&) = default;
    };
    /// The interval has no positive length.
    struct InvalidInterval {
        friend bool operator==(const InvalidInterval&, const InvalidInterval&) = default;
    };
    /// The calendar service failed while answering (its own message).
    struct ServiceFailed {
        QString message;
        friend bool operator==(const ServiceFailed&, const ServiceFailed&) = default;
    };

    using Case = std::variant<AccessNotGranted, IntervalTooLarge, InvalidInterval, ServiceFailed>;

    /// The longest interval one fetch may ask for: 31 days.
    static constexpr double maximumInterval = 2'678'400;

    explicit CalendarRepositoryError(Case value);

    const Case& value() const { return m_value; }
    QString description() const;
    const char* what() const noexcept override;

private:
    Case m_value;
    QByteArray m_what;
};

/// What onboarding and settings say about an authorization state, on this desktop.
QString authorizationExplanation(CalendarAuthorizationState state);

} // namespace orvane
