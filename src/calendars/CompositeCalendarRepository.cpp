// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CompositeCalendarRepository.h"

#include "calendars/TimeLimit.h"
#include "scheduling/AlertScheduler.h"

#include <map>
#include <set>
#include <tuple>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

bool overlaps(const MeetingOccurrence& occurrence, FetchInterval interval)
{
    return occurrence.endDate >= interval.start && occurrence.startDate <= interval.end;
}

} // namespace

CompositeCalendarRepository::CompositeCalendarRepository(SettingsStoring& settings, const Clock& clock, QObject* parent)
    : CalendarProviding(parent)
    , m_settings(settings)
    , m_clock(clock)
{
    m_retry.setSingleShot(true);
    // A failing source sends no change notice when it recovers: ask for a fresh fetch ourselves.
    connect(&m_retry, &QTimer::timeout, this, &CalendarProviding::changed);
}

void CompositeCalendarRepository::addSource(CalendarSource& source)
{
    m_sources.emplace_back(&source);
    connect(&source, &CalendarSource::changed, this, &CalendarProviding::changed);
}

void CompositeCalendarRepository::removeSource(const QString& key)
{
    std::erase_if(m_sources, [&](const QPointer<CalendarSource>& source) {
        if (source && source->key() == key) {
            disconnect(source, nullptr, this, nullptr);
            return true;
        }
        return !source;
    });
    m_lastGood.erase(key);
}

QCoro::Task<CompositeCalendarRepository::SourceResult>
CompositeCalendarRepository::fetchSource(QPointer<CalendarSource> source, FetchInterval interval,
                                         std::optional<QSet<QString>> selection, bool withOccurrences)
{
    SourceResult result;
    result.groups = co_await source->calendarGroups();
    if (withOccurrences && source) {
        auto fetched = co_await source->occurrences(interval, std::move(selection));
        result.occurrences = std::move(fetched.occurrences);
        result.failedCalendars = std::move(fetched.failedCalendars);
        for (const auto& occurrence : result.occurrences) {
            result.crossSourceKeys.push_back(source ? source->crossSourceKey(occurrence) : QString());
        }
    }
    co_return result;
}

QCoro::Task<std::vector<CompositeCalendarRepository::SourceResult>>
CompositeCalendarRepository::fetchAll(FetchInterval interval, bool withOccurrences)
{
    std::optional<QSet<QString>> selection;
    if (const auto& selected = m_settings.settings().selectedCalendars) {
        QSet<QString> identifiers;
        for (const auto& record : *selected) {
            identifiers.insert(record.calendarIdentifier);
        }
        selection = std::move(identifiers);
    }
    const auto sources = m_sources;
    // Every source starts now; awaiting them one after the other still lets them all run at once.
    std::vector<QCoro::Task<SourceResult>> running;
    for (const auto& source : sources) {
        running.push_back(withinTimeLimit(fetchSource(source, interval, selection, withOccurrences), m_timeLimit,
                                          "The calendars took too long to answer."));
    }

    const QPointer<CompositeCalendarRepository> self(this);
    std::vector<SourceResult> results;
    std::vector<CalendarSourceHealthIssue> issues;
    std::exception_ptr firstFailure;
    bool anyDelivered = false;
    for (std::size_t index = 0; index < running.size(); ++index) {
        const auto& source = sources[index];
        std::exception_ptr failure;
        try {
            auto result = co_await std::move(running[index]);
            if (!self || !source) {
                continue;
            }
            for (const auto& failed : remember(source->key(), result, withOccurrences, interval).failedCalendars) {
                issues.push_back({source->healthSource(), source->displayName(), failed.message, false,
                                  CalendarSourceHealthIssue::Calendar{failed.identifier, failed.title}});
            }
            results.push_back(std::move(result));
            anyDelivered = true;
            continue;
        } catch (...) {
            failure = std::current_exception();
        }
        if (!self || !source) {
            continue;
        }
        firstFailure = firstFailure ? firstFailure : failure;
        issues.push_back({source->healthSource(), source->displayName(), source->failureMessage(failure),
                          source->requiresReauthentication(failure)});
        const auto last = m_lastGood.find(source->key());
        if (last != m_lastGood.end() && m_clock.now() - last->second.fetchedAt <= lastGoodRetention) {
            SourceResult kept{.groups = last->second.groups};
            for (const auto& [identifier, meetings] : last->second.calendars) {
                keep(meetings, interval, kept);
            }
            results.push_back(std::move(kept));
            anyDelivered = true;
        }
    }
    if (!self) {
        co_return results;
    }
    m_lastFetchWasComplete = issues.empty();
    const bool anyFailed = !issues.empty();
    setHealthIssues(std::move(issues));
    m_knownGroups.clear();
    for (const auto& result : results) {
        m_knownGroups.insert(m_knownGroups.end(), result.groups.begin(), result.groups.end());
    }
    if (firstFailure && !anyDelivered) {
        // Nothing at all to show: let the scheduler back off and retry as it does for any failed fetch.
        m_retry.stop();
        std::rethrow_exception(firstFailure);
    }
    scheduleRetry(anyFailed);
    co_return results;
}

QCoro::Task<std::vector<MeetingOccurrence>> CompositeCalendarRepository::occurrences(FetchInterval interval)
{
    const auto results = co_await fetchAll(interval, true);
    // A calendar's fingerprint is unique only if no calendar of any source looks the same; each source can judge
    // that only among its own calendars, so the composite settles it for all of them.
    std::map<std::tuple<int, QString, QString>, int> lookAlikes;
    for (const auto& group : m_knownGroups) {
        for (const auto& calendar : group.calendars) {
            ++lookAlikes[{int(calendar.sourceKind), calendar.sourceTitle, calendar.title}];
        }
    }
    std::vector<MeetingOccurrence> merged;
    std::set<std::pair<QString, double>> seen;
    for (const auto& result : results) {
        for (std::size_t index = 0; index < result.occurrences.size(); ++index) {
            const auto& occurrence = result.occurrences[index];
            const QString& key = result.crossSourceKeys[index];
            if (!key.isEmpty() && !seen.emplace(key, occurrence.startDate.secondsSinceReferenceDate).second) {
                continue;
            }
            merged.push_back(occurrence);
            auto& identity = merged.back().identity;
            const auto& calendar = occurrence.calendar;
            identity.calendarFingerprint =
                CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title};
            identity.calendarFingerprintIsUnique =
                lookAlikes[{int(calendar.sourceKind), calendar.sourceTitle, calendar.title}] <= 1;
        }
    }
    co_return merged;
}

QCoro::Task<std::vector<CalendarGroup>> CompositeCalendarRepository::calendarGroups()
{
    const Date now = m_clock.now();
    co_await fetchAll(FetchInterval::around(now), false);
    // A copy first: GCC 12 moves a member named in `co_return`, which would empty the known calendars.
    auto groups = m_knownGroups;
    co_return groups;
}

const CompositeCalendarRepository::LastGood& CompositeCalendarRepository::remember(const QString& sourceKey,
                                                                                   SourceResult& result,
                                                                                   bool withOccurrences,
                                                                                   FetchInterval interval)
{
    auto& last = m_lastGood[sourceKey];
    last.groups = result.groups;
    last.fetchedAt = m_clock.now();
    if (!withOccurrences) {
        // Listing the calendars says nothing about their meetings: what they delivered last, and which of them
        // could not be read, still stands.
        return last;
    }
    last.failedCalendars = result.failedCalendars;
    std::map<QString, CalendarMeetings> calendars;
    for (std::size_t index = 0; index < result.occurrences.size(); ++index) {
        auto& meetings = calendars[result.occurrences[index].calendar.identifier];
        meetings.occurrences.push_back(result.occurrences[index]);
        meetings.crossSourceKeys.push_back(result.crossSourceKeys[index]);
        meetings.fetchedAt = last.fetchedAt;
    }
    // A calendar that failed this time still contributes what it delivered last, for as long as that is recent;
    // its time stays the time it last answered, so a calendar that keeps failing ages out however often the others
    // answer.
    for (const auto& failed : result.failedCalendars) {
        if (const auto previous = last.calendars.find(failed.identifier); previous != last.calendars.end()) {
            keep(previous->second, interval, result);
            calendars[failed.identifier] = previous->second;
        }
    }
    last.calendars = std::move(calendars);
    return last;
}

void CompositeCalendarRepository::keep(const CalendarMeetings& meetings, FetchInterval interval,
                                       SourceResult& into) const
{
    if (m_clock.now() - meetings.fetchedAt > lastGoodRetention) {
        return;
    }
    for (std::size_t index = 0; index < meetings.occurrences.size(); ++index) {
        if (overlaps(meetings.occurrences[index], interval)) {
            into.occurrences.push_back(meetings.occurrences[index]);
            into.crossSourceKeys.push_back(meetings.crossSourceKeys[index]);
        }
    }
}

void CompositeCalendarRepository::setHealthIssues(std::vector<CalendarSourceHealthIssue> issues)
{
    if (issues != m_healthIssues) {
        m_healthIssues = std::move(issues);
        Q_EMIT healthIssuesChanged();
    }
}

std::optional<std::chrono::milliseconds> CompositeCalendarRepository::pendingRetry() const
{
    if (!m_retry.isActive()) {
        return std::nullopt;
    }
    return m_retry.intervalAsDuration();
}

void CompositeCalendarRepository::scheduleRetry(bool anyFailed)
{
    if (!anyFailed) {
        m_failedRounds = 0;
        m_retry.stop();
        return;
    }
    ++m_failedRounds;
    m_retry.start(std::chrono::milliseconds(qint64(AlertScheduler::retryDelay(m_failedRounds) * 1000)));
}

} // namespace orvane
