// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertTexts.h"

#include <QRegularExpression>

#include <cmath>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// Where a meeting stands at one moment, in the whole seconds the countdown shows.
struct Countdown {
    enum class Phase { upcoming, inProgress, ended };
    Phase phase = Phase::ended;
    /// Upcoming: seconds until the start, rounded up so that the display never says "0" before the start.
    /// In progress: whole seconds since the start.
    qint64 seconds = 0;
};

Countdown countdownAt(Date now, Date start, Date end)
{
    if (now < start) {
        return {Countdown::Phase::upcoming, qint64(std::ceil(start - now))};
    }
    if (now < end) {
        return {Countdown::Phase::inProgress, qint64(std::floor(now - start))};
    }
    return {};
}

QString counted(qint64 count, const QString& singular, const QString& plural)
{
    return QString::number(count) + u' ' + (count == 1 ? singular : plural);
}

} // namespace

QString AlertTexts::countdownText(Date now, Date start, Date end)
{
    const Countdown countdown = countdownAt(now, start, end);
    const qint64 seconds = countdown.seconds;
    switch (countdown.phase) {
    case Countdown::Phase::upcoming:
        if (seconds < 60) {
            return u"Starts in %1 sec"_s.arg(seconds);
        }
        if (seconds < 3600) {
            return u"Starts in %1:%2"_s.arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
        }
        if (const qint64 minutes = seconds % 3600 / 60; minutes != 0) {
            return u"Starts in %1 %2 %3 min"_s.arg(seconds / 3600)
                .arg(seconds < 7200 ? u"hr"_s : u"hrs"_s)
                .arg(minutes);
        }
        return u"Starts in %1 %2"_s.arg(seconds / 3600).arg(seconds < 7200 ? u"hr"_s : u"hrs"_s);
    case Countdown::Phase::inProgress:
        if (seconds < 60) {
            return u"In progress \u00B7 started just now"_s;
        }
        return u"In progress \u00B7 started %1 min ago"_s.arg(seconds / 60);
    case Countdown::Phase::ended:
        return u"Meeting ended"_s;
    }
    return {};
}

QString AlertTexts::countdownAccessibilityLabel(Date now, Date start, Date end)
{
    const Countdown countdown = countdownAt(now, start, end);
    const qint64 seconds = countdown.seconds;
    switch (countdown.phase) {
    case Countdown::Phase::upcoming: {
        // The two largest units the visual countdown shows, leaving out a zero a listener does not need.
        QString text = u"Starts in "_s;
        if (seconds < 60) {
            return text + counted(seconds, u"second"_s, u"seconds"_s);
        }
        qint64 remainder = 0;
        if (seconds < 3600) {
            text += counted(seconds / 60, u"minute"_s, u"minutes"_s);
            remainder = seconds % 60;
            return remainder == 0 ? text : text + u' ' + counted(remainder, u"second"_s, u"seconds"_s);
        }
        text += counted(seconds / 3600, u"hour"_s, u"hours"_s);
        remainder = seconds % 3600 / 60;
        return remainder == 0 ? text : text + u' ' + counted(remainder, u"minute"_s, u"minutes"_s);
    }
    case Countdown::Phase::inProgress:
        if (seconds < 60) {
            return u"In progress, started just now"_s;
        }
        return u"In progress, started %1 ago"_s.arg(counted(seconds / 60, u"minute"_s, u"minutes"_s));
    case Countdown::Phase::ended:
        return u"Meeting ended"_s;
    }
    return {};
}

QString AlertTexts::headline(qsizetype meetingCount)
{
    return meetingCount > 1 ? u"Your meetings are almost here"_s : u"Your meeting is almost here"_s;
}

QString AlertTexts::timeRange(Date start, Date end, const QLocale& locale)
{
    const QDateTime from = start.toDateTime().toLocalTime();
    const QDateTime to = end.toDateTime().toLocalTime();
    QString format = locale.timeFormat(QLocale::ShortFormat);
    // Some locales (C among them) put seconds in their short format; a meeting's times never need them.
    static const QRegularExpression seconds(u"[:.]ss?"_s);
    format.remove(seconds);
    QString startText = locale.toString(from.time(), format);
    // "10:00 – 10:30 AM" reads better than "10:00 AM – 10:30 AM": a day period at the end of the format is said
    // once when both times share it. It is cut from the text, not the format, since without it "h" means 24 hours.
    static const QRegularExpression trailingDayPeriod(u"(ap|AP|a|A)$"_s);
    const bool morning = from.time().hour() < 12;
    const bool samePeriod = from.date() == to.date() && morning == (to.time().hour() < 12);
    const QString dayPeriod = morning ? locale.amText() : locale.pmText();
    if (samePeriod && trailingDayPeriod.match(format).hasMatch() && !dayPeriod.isEmpty() &&
        startText.endsWith(dayPeriod, Qt::CaseInsensitive)) {
        startText.chop(dayPeriod.size());
        while (!startText.isEmpty() && startText.back().isSpace()) {
            startText.chop(1);
        }
    }
    return startText + u" \u2013 "_s + locale.toString(to.time(), format);
}

QString AlertTexts::excludeMenuAccessibleName(const QString& title)
{
    return u"Exclude "_s + title;
}

QString AlertTexts::badge()
{
    return u"MEETING CHECK-IN"_s;
}

QString AlertTexts::remindMeAgain()
{
    return u"REMIND ME AGAIN"_s;
}

QString AlertTexts::oneMinute()
{
    return u"1 minute"_s;
}

QString AlertTexts::oneMinuteHint()
{
    return u"Closes this alert and reminds you again in one minute."_s;
}

QString AlertTexts::fiveMinutes()
{
    return u"5 minutes"_s;
}

QString AlertTexts::fiveMinutesHint()
{
    return u"Closes this alert and reminds you again in five minutes."_s;
}

QString AlertTexts::untilStart()
{
    return u"Until start"_s;
}

QString AlertTexts::untilStartHint()
{
    return u"Closes this alert and reminds you again when each meeting starts."_s;
}

QString AlertTexts::dismiss()
{
    return u"Dismiss"_s;
}

QString AlertTexts::dismissHint()
{
    return u"Closes this alert without changing the calendar event."_s;
}

QString AlertTexts::join()
{
    return u"Join meeting"_s;
}

QString AlertTexts::joinHint()
{
    return u"Opens the meeting link and closes this alert."_s;
}

QString AlertTexts::excludeThisMeeting()
{
    return u"Exclude this meeting"_s;
}

QString AlertTexts::excludeThisMeetingHint()
{
    return u"Prevents future full-screen alerts for this meeting."_s;
}

QString AlertTexts::excludeMenuHint()
{
    return u"Choose whether to exclude this occurrence or the entire recurring series."_s;
}

QString AlertTexts::recurringMeeting()
{
    return u"Recurring meeting"_s;
}

} // namespace orvane
