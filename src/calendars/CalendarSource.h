// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarSourceHealthIssue.h"
#include "calendars/OccurrenceFetchResult.h"
#include "domain/CalendarGroup.h"
#include "domain/MeetingSchedule.h"

#include <QObject>
#include <QSet>
#include <qcoro/qcorotask.h>

#include <exception>
#include <optional>

namespace orvane {

/// One place meetings come from, as the composite repository sees it: the desktop's calendar database or one
/// directly connected cloud account.
///
/// A source that knows an event's iCalendar UID puts "external:" + UID in the series identifier, so that the same
/// meeting seen through two sources (a Google calendar synced by the desktop and also connected directly) is
/// recognised and alerts once.
class CalendarSource : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// Stable within a run: "local", or the remote account's identity.
    virtual QString key() const = 0;
    /// Which source a health issue names.
    virtual CalendarSourceHealthIssue::Source healthSource() const = 0;
    /// The name the user knows the source by.
    virtual QString displayName() const = 0;

    /// Every calendar of the source, grouped by account. Throws on failure.
    virtual QCoro::Task<std::vector<CalendarGroup>> calendarGroups() = 0;
    /// The occurrences overlapping `interval` on the calendars in `selection` (every calendar when absent). A
    /// calendar that cannot be read is listed as failed while the others deliver; throws when the source as a whole
    /// fails (no calendar could be read, or the failure concerns the whole source, such as a refused sign-in).
    virtual QCoro::Task<OccurrenceFetchResult> occurrences(FetchInterval interval,
                                                           std::optional<QSet<QString>> selection) = 0;

    /// The user-facing text of a failure of this source.
    virtual QString failureMessage(const std::exception_ptr& error) const;
    /// Whether only a new sign-in can fix this failure.
    virtual bool requiresReauthentication(const std::exception_ptr& error) const;
    /// What marks `occurrence` as the same meeting when another source delivers it too (with the same start); empty
    /// when the source cannot tell. The series identifier when it is an iCalendar UID ("external:" + UID).
    virtual QString crossSourceKey(const MeetingOccurrence& occurrence) const;

Q_SIGNALS:
    /// Calendars or events of this source changed.
    void changed();
};

} // namespace orvane
