// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Date.h"

#include <QLocale>
#include <QObject>
#include <QString>

namespace orvane {

/// Every text the full-screen alert shows or speaks, in one place.
///
/// The fixed texts are also properties, so that the QML view reads them from here instead of spelling them itself;
/// the view model hands one instance to the view.
class AlertTexts : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString badge READ badge CONSTANT)
    Q_PROPERTY(QString remindMeAgain READ remindMeAgain CONSTANT)
    Q_PROPERTY(QString oneMinute READ oneMinute CONSTANT)
    Q_PROPERTY(QString oneMinuteHint READ oneMinuteHint CONSTANT)
    Q_PROPERTY(QString fiveMinutes READ fiveMinutes CONSTANT)
    Q_PROPERTY(QString fiveMinutesHint READ fiveMinutesHint CONSTANT)
    Q_PROPERTY(QString untilStart READ untilStart CONSTANT)
    Q_PROPERTY(QString untilStartHint READ untilStartHint CONSTANT)
    Q_PROPERTY(QString dismiss READ dismiss CONSTANT)
    Q_PROPERTY(QString dismissHint READ dismissHint CONSTANT)
    Q_PROPERTY(QString join READ join CONSTANT)
    Q_PROPERTY(QString joinHint READ joinHint CONSTANT)
    Q_PROPERTY(QString excludeThisMeeting READ excludeThisMeeting CONSTANT)
    Q_PROPERTY(QString excludeThisMeetingHint READ excludeThisMeetingHint CONSTANT)
    Q_PROPERTY(QString excludeMenuHint READ excludeMenuHint CONSTANT)
    Q_PROPERTY(QString recurringMeeting READ recurringMeeting CONSTANT)

public:
    using QObject::QObject;

    /// The countdown on a card: "Starts in 59 sec", "Starts in 4:05", "Starts in 1 hr 1 min", "In progress · started
    /// 2 min ago", "Meeting ended".
    static QString countdownText(Date now, Date start, Date end);
    /// The same moment in words a screen reader speaks well: "Starts in 1 minute 5 seconds".
    static QString countdownAccessibilityLabel(Date now, Date start, Date end);
    /// "Your meeting is almost here", or the plural for a batch of several.
    static QString headline(qsizetype meetingCount);
    /// Start and end in the locale's short time format, e.g. "10:00 – 10:30 AM".
    static QString timeRange(Date start, Date end, const QLocale& locale = QLocale());
    /// The spoken name of a recurring meeting's exclusion menu.
    static QString excludeMenuAccessibleName(const QString& title);

    static QString badge();
    static QString remindMeAgain();
    static QString oneMinute();
    static QString oneMinuteHint();
    static QString fiveMinutes();
    static QString fiveMinutesHint();
    static QString untilStart();
    static QString untilStartHint();
    static QString dismiss();
    static QString dismissHint();
    static QString join();
    static QString joinHint();
    static QString excludeThisMeeting();
    static QString excludeThisMeetingHint();
    static QString excludeMenuHint();
    static QString recurringMeeting();
};

} // namespace orvane
