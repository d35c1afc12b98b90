// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarSource.h"

#include <qcoro/qcorosignal.h>

#include <map>
#include <stdexcept>

/// A calendar source held in memory, which can be made to fail or to wait.
class FakeCalendarSource final : public orvane::CalendarSource {
    Q_OBJECT

public:
    explicit FakeCalendarSource(QString key, QString name = QStringLiteral("Fake"))
        : m_key(std::move(key))
        , m_name(std::move(name))
    {
    }

    std::vector<orvane::CalendarGroup> groups;
    std::vector<orvane::MeetingOccurrence> meetings;
    bool failing = false;
    /// Calendars (identifier and title) that cannot be read while the others can.
    std::map<QString, QString> failingCalendars;
    bool holding = false;
    std::vector<std::optional<QSet<QString>>> selections;

    QString key() const override { return m_key; }
    orvane::CalendarSourceHealthIssue::Source healthSource() const override
    {
        return orvane::CalendarSourceHealthIssue::Remote{orvane::RemoteCalendarProviderKind::google, m_key};
    }
    QString displayName() const override { return m_name; }

    QCoro::Task<std::vector<orvane::CalendarGroup>> calendarGroups() override
    {
        if (holding) {
            co_await qCoro(this, &FakeCalendarSource::released);
        }
        if (failing) {
            throw std::runtime_error("The account is unreachable.");
        }
        // A copy first: GCC 12 moves a member named in `co_return`.
        auto copy = groups;
        co_return copy;
    }

    QCoro::Task<orvane::OccurrenceFetchResult> occurrences(orvane::FetchInterval interval,
                                                           std::optional<QSet<QString>> selection) override
    {
        selections.push_back(selection);
        if (failing) {
            throw std::runtime_error("The account is unreachable.");
        }
        orvane::OccurrenceFetchResult result;
        for (const auto& meeting : meetings) {
            if (meeting.endDate >= interval.start && meeting.startDate <= interval.end &&
                !failingCalendars.contains(meeting.calendar.identifier)) {
                result.occurrences.push_back(meeting);
            }
        }
        for (const auto& [identifier, title] : failingCalendars) {
            result.failedCalendars.push_back({identifier, title, QStringLiteral("The calendar is unreachable.")});
        }
        co_return result;
    }

    void release() { Q_EMIT released(); }

Q_SIGNALS:
    void released();

private:
    QString m_key;
    QString m_name;
};
