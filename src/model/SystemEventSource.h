// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

namespace orvane {

/// The system events after which the meetings must be looked at again: each is reported once per occurrence.
class SystemEventSource : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

Q_SIGNALS:
    /// The wall clock was set.
    void clockChanged();
    /// The system time zone changed.
    void timeZoneChanged();
    /// The machine is about to sleep.
    void willSleep();
    /// The machine woke from sleep.
    void didWake();
    /// The user's session became active again (unlocked, or switched back to).
    void sessionDidBecomeActive();
};

} // namespace orvane
