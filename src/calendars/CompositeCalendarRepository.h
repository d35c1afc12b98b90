// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarSource.h"
#include "persistence/SettingsStoring.h"
#include "scheduling/CalendarProviding.h"
#include "scheduling/Clock.h"

#include <QPointer>
#include <QTimer>

#include <map>
#include <vector>

namespace orvane {

/// The one calendar provider the scheduler reads: the desktop's calendars and every connected account together.
///
/// Sources are fetched side by side, each within a time limit, so that a slow or failing one never holds up the
/// others. A failing source, or a calendar a source could not read, becomes a health issue; for a while it still
/// contributes the meetings it delivered last, so that a daemon restart or a network hiccup does not silently drop
/// an alert, and it is tried again with a growing delay until it answers. The same meeting delivered by two sources
/// (same iCalendar UID and start) is kept once.
class CompositeCalendarRepository final : public CalendarProviding {
    Q_OBJECT

public:
    /// How long the last delivered meetings of a failing source or calendar stay in use.
    static constexpr double lastGoodRetention = 3'600;
    /// How long one source may take to answer.
    static constexpr std::chrono::milliseconds sourceTimeLimit{30'000};

    CompositeCalendarRepository(SettingsStoring& settings, const Clock& clock, QObject* parent = nullptr);

    /// Adds a source (not owned; it must outlive its registration). Sources are consulted in the order added, and
    /// the first to deliver a meeting seen twice is the one kept.
    void addSource(CalendarSource& source);
    /// Removes a source and everything remembered of it.
    void removeSource(const QString& key);
    /// How long one source may take (sourceTimeLimit unless changed).
    void setSourceTimeLimit(std::chrono::milliseconds limit) { m_timeLimit = limit; }
    /// When a failing source will be tried again (through `changed()`), if one is failing.
    std::optional<std::chrono::milliseconds> pendingRetry() const;

    QCoro::Task<std::vector<MeetingOccurrence>> occurrences(FetchInterval interval) override;
    /// Every calendar of every source; a failing source contributes its last known calendars.
    QCoro::Task<std::vector<CalendarGroup>> calendarGroups();

    /// The calendars as of the last fetch, and whether every source and calendar answered then.
    const std::vector<CalendarGroup>& knownCalendarGroups() const { return m_knownGroups; }
    bool lastFetchWasComplete() const { return m_lastFetchWasComplete; }
    const std::vector<CalendarSourceHealthIssue>& healthIssues() const { return m_healthIssues; }

Q_SIGNALS:
    void healthIssuesChanged();

private:
    struct SourceResult {
        std::vector<CalendarGroup> groups;
        std::vector<MeetingOccurrence> occurrences;
        /// Each occurrence's key for recognising it in another source (CalendarSource::crossSourceKey).
        std::vector<QString> crossSourceKeys;
        std::vector<OccurrenceFetchResult::FailedCalendar> failedCalendars;
    };
    /// One calendar's meetings as it last delivered them.
    struct CalendarMeetings {
        std::vector<MeetingOccurrence> occurrences;
        std::vector<QString> crossSourceKeys;
        Date fetchedAt;
    };
    /// What a source last delivered; each calendar keeps its own time, since one may fail while the others answer.
    struct LastGood {
        std::vector<CalendarGroup> groups;
        Date fetchedAt;
        std::map<QString, CalendarMeetings> calendars;
        /// The calendars its last fetch of meetings could not read.
        std::vector<OccurrenceFetchResult::FailedCalendar> failedCalendars;
    };

    static QCoro::Task<SourceResult> fetchSource(QPointer<CalendarSource> source, FetchInterval interval,
                                                 std::optional<QSet<QString>> selection, bool withOccurrences);
    QCoro::Task<std::vector<SourceResult>> fetchAll(FetchInterval interval, bool withOccurrences);
    /// Notes what a source delivered, and adds to `result` what its failed calendars delivered last.
    const LastGood& remember(const QString& sourceKey, SourceResult& result, bool withOccurrences,
                             FetchInterval interval);
    /// Adds the meetings in `interval` to `into` unless they are too old to stand in.
    void keep(const CalendarMeetings& meetings, FetchInterval interval, SourceResult& into) const;
    void setHealthIssues(std::vector<CalendarSourceHealthIssue> issues);
    void scheduleRetry(bool anyFailed);

    SettingsStoring& m_settings;
    const Clock& m_clock;
    std::vector<QPointer<CalendarSource>> m_sources;
    std::map<QString, LastGood> m_lastGood;
    std::vector<CalendarSourceHealthIssue> m_healthIssues;
    std::vector<CalendarGroup> m_knownGroups;
    bool m_lastFetchWasComplete = false;
    int m_failedRounds = 0;
    std::chrono::milliseconds m_timeLimit = sourceTimeLimit;
    QTimer m_retry;
};

} // namespace orvane
