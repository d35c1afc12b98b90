// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarRepository.h"

/// The desktop's calendar database with no calendars, in whichever access state a test sets; asking for access
/// grants it unless `grantsAccess` is false.
class FakeDesktopCalendars final : public orvane::CalendarRepository {
public:
    FakeDesktopCalendars() = default;
    FakeDesktopCalendars(orvane::CalendarAuthorizationState initial, bool grants)
        : state(initial)
        , grantsAccess(grants)
    {
    }

    orvane::CalendarAuthorizationState state = orvane::CalendarAuthorizationState::fullAccess;
    bool grantsAccess = true;

    orvane::CalendarAuthorizationState authorizationState() const override { return state; }
    QCoro::Task<orvane::CalendarAuthorizationState> requestFullAccess() override
    {
        if (grantsAccess) {
            state = orvane::CalendarAuthorizationState::fullAccess;
        }
        co_return state;
    }
    QCoro::Task<std::vector<orvane::CalendarGroup>> calendarGroups() override { co_return {}; }
    QCoro::Task<orvane::OccurrenceFetchResult> occurrences(orvane::FetchInterval, QSet<QString>) override
    {
        co_return {};
    }
};
