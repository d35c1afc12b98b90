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
/// others. A failing source becomes a health issue; for a while it still contributes the meetings it delivered last,
/// so that a daemon restart or a network hiccup does not silently drop an alert, and it is tried again with a growing
/// delay until it answers. The same meeting delivered by two sources (same iCalendar UID and start) is kept once.
class CompositeCalendarRepository final : public CalendarProviding {
    Q_OBJECT

public:
    /// How long a failing source's last delivered meetings stay in use.
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

    /// The calendars as of the last fetch, and whether every source answered then.
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
    };
    struct LastGood {
        SourceResult result;
        Date fetchedAt;
    };

    static QCoro::Task<SourceResult> fetchSource(QPointer<CalendarSource> source, FetchInterval interval,
                                                 std::optional<QSet<QString>> selection, bool withOccurrences);
    QCoro::Task<std::vector<SourceResult>> fetchAll(FetchInterval interval, bool withOccurrences);
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
