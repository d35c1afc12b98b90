// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/LocalCalendarSource.h"

#include "calendars/CalendarRepositoryError.h"

using namespace Qt::StringLiterals;

namespace orvane {

QString CalendarSource::failureMessage(const std::exception_ptr& error) const
{
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& failure) {
        return QString::fromUtf8(failure.what());
    } catch (...) {
    }
    return u"The calendars could not be read."_s;
}

bool CalendarSource::requiresReauthentication(const std::exception_ptr&) const
{
    return false;
}

QString CalendarSource::crossSourceKey(const MeetingOccurrence& occurrence) const
{
    const QString& series = occurrence.identity.seriesIdentifier;
    return series.startsWith(u"external:"_s) ? series : QString();
}

LocalCalendarSource::LocalCalendarSource(CalendarRepository& repository, QObject* parent)
    : CalendarSource(parent)
    , m_repository(repository)
{
    connect(&m_repository, &CalendarRepository::changed, this, &CalendarSource::changed);
}

QString LocalCalendarSource::key() const
{
    return u"local"_s;
}

CalendarSourceHealthIssue::Source LocalCalendarSource::healthSource() const
{
    return CalendarSourceHealthIssue::Local{};
}

QString LocalCalendarSource::displayName() const
{
    return u"Desktop calendars"_s;
}

QCoro::Task<std::vector<CalendarGroup>> LocalCalendarSource::calendarGroups()
{
    co_return co_await m_repository.calendarGroups();
}

QCoro::Task<OccurrenceFetchResult> LocalCalendarSource::occurrences(FetchInterval interval,
                                                                    std::optional<QSet<QString>> selection)
{
    if (!selection) {
        QSet<QString> all;
        for (const auto& group : co_await m_repository.calendarGroups()) {
            for (const auto& calendar : group.calendars) {
                all.insert(calendar.identifier);
            }
        }
        selection = std::move(all);
    }
    co_return co_await m_repository.occurrences(interval, std::move(*selection));
}

QString LocalCalendarSource::failureMessage(const std::exception_ptr& error) const
{
    try {
        std::rethrow_exception(error);
    } catch (const CalendarRepositoryError& failure) {
        return failure.description();
    } catch (...) {
    }
    return CalendarSource::failureMessage(error);
}

} // namespace orvane
