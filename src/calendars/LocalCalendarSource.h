// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarRepository.h"
#include "calendars/CalendarSource.h"

namespace orvane {

/// The desktop's calendar database as one source of the composite repository.
class LocalCalendarSource final : public CalendarSource {
    Q_OBJECT

public:
    explicit LocalCalendarSource(CalendarRepository& repository, QObject* parent = nullptr);

    QString key() const override;
    CalendarSourceHealthIssue::Source healthSource() const override;
    QString displayName() const override;
    QCoro::Task<std::vector<CalendarGroup>> calendarGroups() override;
    QCoro::Task<OccurrenceFetchResult> occurrences(FetchInterval interval,
                                                   std::optional<QSet<QString>> selection) override;
    QString failureMessage(const std::exception_ptr& error) const override;

private:
    CalendarRepository& m_repository;
};

} // namespace orvane
