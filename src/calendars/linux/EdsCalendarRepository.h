// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarRepository.h"

#include <QThread>
#include <QTimer>

#include <functional>
#include <memory>

namespace orvane {

class EdsSession;

/// The desktop calendar database through Evolution Data Server (libecal).
///
/// Every libecal call runs on a thread of its own, whose Qt event loop is a GLib main context, so that blocking
/// D-Bus calls never reach the user interface thread and the daemon's change signals arrive there. Results come
/// back as coroutine results; changes are coalesced so that a burst of them is one `changed()`.
class EdsCalendarRepository final : public CalendarRepository {
    Q_OBJECT

public:
    /// How long a burst of changes may last before it is reported.
    static constexpr int changeCoalescingMilliseconds = 300;

    explicit EdsCalendarRepository(QObject* parent = nullptr);
    ~EdsCalendarRepository() override;

    CalendarAuthorizationState authorizationState() const override { return m_state; }
    QCoro::Task<CalendarAuthorizationState> requestFullAccess() override;
    QCoro::Task<std::vector<CalendarGroup>> calendarGroups() override;
    QCoro::Task<OccurrenceFetchResult> occurrences(FetchInterval interval, QSet<QString> calendarIdentifiers) override;

private:
    template <class T>
    QCoro::Task<T> onWorker(std::function<T(EdsSession&)> work);
    void setState(CalendarAuthorizationState state);

    CalendarAuthorizationState m_state = CalendarAuthorizationState::notDetermined;
    QThread m_thread;
    /// Lives on m_thread; deleted there.
    QObject* m_worker = nullptr;
    std::shared_ptr<EdsSession> m_session;
    QTimer m_coalescing;
};

} // namespace orvane
