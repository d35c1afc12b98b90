// SPDX-License-Identifier: GPL-3.0-or-later
// The scheduler computes the schedule after every fetch and at every timer tick, over a week of occurrences from
// every calendar, with the user's exclusions and thirty days of reminder history. The goal is under 5 ms for a heavy
// user with 10,000 occurrences, 1,000 exclusions and 10,000 delivery records.

#include "domain/ExclusionMatcher.h"
#include "domain/MeetingPolicy.h"
#include "support/BenchmarkCalendars.h"

#include <QString>
#include <QUuid>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;

constexpr int kExclusionCount = 1'000;
constexpr int kDeliveryCount = 10'000;
constexpr int kSnoozeCount = 20;
constexpr int kCalendarCount = 24;
constexpr int kSelectedCalendarCount = 20;
constexpr double kNow = 760'000'000;
constexpr double kLeadTime = 120;
constexpr double kWeek = 7 * 86'400;
constexpr unsigned kQuarterHoursPerWeek = 7 * 24 * 4;

struct Workload {
    std::vector<MeetingOccurrence> occurrences;
    ExclusionMatcher exclusions;
    std::vector<DeliveryRecord> deliveries;
    std::vector<SnoozeRecord> snoozes;
    NotifierSettings settings;
};

Workload makeWorkload(int occurrenceCount)
{
    std::mt19937 random(2024);
    const auto chance = [&](int percent) {
        return int(random() % 100) < percent;
    };
    const auto pick = [&](const auto& items) -> const auto&
    {
        return items[random() % items.size()];
    };

    std::vector<CalendarDescriptor> calendars;
    for (int index = 0; index < kCalendarCount; ++index) {
        calendars.push_back(benchmarks::makeCalendar(index));
    }
    // About three occurrences a week per series (daily stand-ups, weekly one-to-ones, one-off meetings); each series
    // lives in one calendar, and the popular calendars hold most of them.
    const int seriesCount = std::max(1, occurrenceCount / 3);
    std::vector<int> calendarOfSeries(seriesCount);
    for (auto& calendar : calendarOfSeries) {
        calendar = int(random() % 6 == 0 ? random() % kCalendarCount : random() % 4);
    }

    Workload workload;
    workload.settings.alertLeadTime = kLeadTime;
    workload.settings.eligibilityMode = EligibilityMode::meetingLike;
    workload.settings.selectedCalendars.emplace();
    for (int index = 0; index < kSelectedCalendarCount; ++index) {
        workload.settings.selectedCalendars->push_back(
            {.calendarIdentifier = calendars[index].identifier, .fingerprint = std::nullopt});
    }

    // The fetch window, from a minute ago to a week ahead, on quarter hours (many meetings share a start).
    workload.occurrences.reserve(occurrenceCount);
    for (int index = 0; index < occurrenceCount; ++index) {
        const int series = int(random() % seriesCount);
        const CalendarDescriptor& calendar = calendars[calendarOfSeries[series]];
        const double start = kNow - 60 + double(random() % kQuarterHoursPerWeek) * 900;
        auto occurrence = benchmarks::makeOccurrence(calendar, series, start, chance);
        occurrence.isRecurring = series % 4 != 0;
        workload.occurrences.push_back(std::move(occurrence));
    }

    // Exclusions copy an occurrence's identity, as the alert's "exclude" action does; a quarter are for series long
    // gone.
    std::vector<ExclusionRecord> exclusions;
    for (int index = 0; index < kExclusionCount; ++index) {
        ExclusionRecord record;
        record.id = QUuid::createUuidV5(QUuid(), QString::number(index));
        record.identity = pick(workload.occurrences).identity;
        record.scope = chance(40) ? ExclusionScope::series : ExclusionScope::occurrence;
        if (chance(25)) {
            record.identity.seriesIdentifier = benchmarks::makeSeriesIdentifier(seriesCount + index);
        }
        exclusions.push_back(std::move(record));
    }
    workload.exclusions = ExclusionMatcher(exclusions);

    // Thirty days of history: earlier occurrences of the same series, nearly all shown. Half the meetings that began
    // a minute ago were shown already, so some of the alerts due now are suppressed.
    workload.deliveries.reserve(kDeliveryCount);
    for (const auto& occurrence : workload.occurrences) {
        if (occurrence.startDate <= Date{kNow} && chance(50)) {
            const Date trigger = occurrence.startDate - kLeadTime;
            workload.deliveries.push_back({occurrence.identity, trigger, DeliveryStatus::confirmed, trigger});
        }
    }
    while (int(workload.deliveries.size()) < kDeliveryCount) {
        MeetingIdentity identity = pick(workload.occurrences).identity;
        const double weeksAgo = 1 + random() % 4;
        identity.occurrenceStart = identity.occurrenceStart - weeksAgo * kWeek;
        identity.scheduledStart = identity.occurrenceStart;
        const Date trigger = identity.occurrenceStart - kLeadTime;
        workload.deliveries.push_back(
            {identity, trigger, chance(97) ? DeliveryStatus::confirmed : DeliveryStatus::pending, trigger});
    }

    for (int index = 0; index < kSnoozeCount; ++index) {
        workload.snoozes.push_back(
            {pick(workload.occurrences).identity, Date{kNow + double(random() % 3600)}, Date{kNow - 60}});
    }
    return workload;
}

const Workload& workload(int occurrenceCount)
{
    static std::map<int, Workload> shared;
    auto found = shared.find(occurrenceCount);
    if (found == shared.end()) {
        found = shared.emplace(occurrenceCount, makeWorkload(occurrenceCount)).first;
    }
    return found->second;
}

void BM_MakeSchedule(benchmark::State& state)
{
    const Workload& shared = workload(int(state.range(0)));
    const MeetingPolicy policy;
    MeetingSchedule schedule;
    for (auto _ : state) {
        schedule = policy.makeSchedule(shared.occurrences, shared.settings, shared.exclusions, shared.deliveries,
                                       shared.snoozes, Date{kNow});
        benchmark::DoNotOptimize(schedule);
    }
    state.SetComplexityN(state.range(0));
    // Seconds per occurrence, printed with an SI prefix ("150n" is 150 ns).
    state.counters["per_occurrence"] = benchmark::Counter(
        double(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    // What the computation found, so that a changed workload shows in the output rather than only in the timings.
    std::size_t due = 0;
    for (const auto& batch : schedule.dueBatches) {
        due += batch.alerts.size();
    }
    state.counters["due_alerts"] = double(due);
    state.counters["due_batches"] = double(schedule.dueBatches.size());
}
BENCHMARK(BM_MakeSchedule)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Complexity(benchmark::oNLogN)
    ->Unit(benchmark::kMillisecond);

} // namespace
