// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"
#include "domain/MeetingSchedule.h"

#include <QObject>
#include <qcoro/qcorotask.h>

#include <vector>

namespace orvane {

/// A source of meeting occurrences: the calendars the scheduler reads.
class CalendarProviding : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// The occurrences that overlap `interval`, in any order. Fails by throwing; the scheduler backs off and tries
    /// again.
    virtual QCoro::Task<std::vector<MeetingOccurrence>> occurrences(FetchInterval interval) = 0;

Q_SIGNALS:
    /// Something in the calendars may have changed: fetch again.
    void changed();
};

} // namespace orvane
