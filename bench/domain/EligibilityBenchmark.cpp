// SPDX-License-Identifier: GPL-3.0-or-later
// Every scheduler refresh judges each occurrence of the coming week against the settings and every exclusion the
// user ever made. The goal is at most 2 µs per occurrence for a heavy user: 10,000 occurrences, 1,000 exclusions.

#include "domain/ExclusionMatcher.h"
#include "domain/MeetingPolicy.h"
#include "support/BenchmarkCalendars.h"

#include <QString>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;

constexpr int kOccurrenceCount = 10'000;
constexpr int kExclusionCount = 1'000;
constexpr int kCalendarCount = 24;
constexpr int kSelectedCalendarCount = 20;
constexpr int kSeriesCount = 3'000;
constexpr double kWindowStart = 760'000'000;
constexpr unsigned kQuarterHoursPerWeek = 7 * 24 * 4;

struct Workload {
    std::vector<MeetingOccurrence> occurrences;
    std::vector<ExclusionRecord> exclusions;
    NotifierSettings settings;
};

Workload makeWorkload()
{
    std::mt19937 random(2024);
    const auto chance = [&](int percent) {
        return int(random() % 100) < percent;
    };

    std::vector<CalendarDescriptor> calendars;
    calendars.reserve(kCalendarCount);
    for (int index = 0; index < kCalendarCount; ++index) {
        calendars.push_back(benchmarks::makeCalendar(index));
    }
    // Each series lives in one calendar; the popular calendars hold most of them.
    std::vector<int> calendarOfSeries(kSeriesCount);
    for (auto& calendar : calendarOfSeries) {
        calendar = int(random() % 6 == 0 ? random() % kCalendarCount : random() % 4);
    }

    Workload workload;
    workload.occurrences.reserve(kOccurrenceCount);
    workload.exclusions.reserve(kExclusionCount);
    workload.settings.eligibilityMode = EligibilityMode::meetingLike;
    workload.settings.selectedCalendars.emplace();
    for (int index = 0; index < kSelectedCalendarCount; ++index) {
        workload.settings.selectedCalendars->push_back(
            {.calendarIdentifier = calendars[index].identifier, .fingerprint = std::nullopt});
    }

    for (int index = 0; index < kOccurrenceCount; ++index) {
        const int series = int(random() % kSeriesCount);
        const CalendarDescriptor& calendar = calendars[calendarOfSeries[series]];
        const double start = kWindowStart + double(random() % kQuarterHoursPerWeek) * 900;
        auto occurrence = benchmarks::makeOccurrence(calendar, series, start, chance);
        occurrence.isRecurring = true;
        workload.occurrences.push_back(std::move(occurrence));
    }

    // Exclusions copy the identity of an occurrence, as the alert's "exclude" action does. A third come from the first
    // 150 occurrences, so those series collect several records each; a quarter are for series long gone; some were
    // recorded under a calendar identifier that has since changed and match only by fingerprint.
    for (int index = 0; index < kExclusionCount; ++index) {
        const auto& source =
            workload.occurrences[random() % (index % 3 == 0 ? std::size_t(150) : workload.occurrences.size())];
        ExclusionRecord record;
        record.id = QUuid::createUuidV5(QUuid(), QString::number(index));
        record.identity = source.identity;
        record.scope = chance(40) ? ExclusionScope::series : ExclusionScope::occurrence;
        if (chance(25)) {
            record.identity.seriesIdentifier = benchmarks::makeSeriesIdentifier(kSeriesCount + index);
        } else if (chance(10)) {
            record.identity.calendarIdentifier = u"retired-"_s + record.identity.calendarIdentifier;
        }
        if (record.scope == ExclusionScope::occurrence && chance(50)) {
            record.identity.occurrenceStart = record.identity.occurrenceStart - 7 * 86'400;
        }
        record.eventTitle = source.title;
        workload.exclusions.push_back(std::move(record));
    }
    return workload;
}

const Workload& workload()
{
    static const Workload shared = makeWorkload();
    return shared;
}

std::size_t countEligible(const Workload& workload, const ExclusionMatcher& matcher)
{
    const MeetingPolicy policy;
    std::size_t eligible = 0;
    for (const auto& occurrence : workload.occurrences) {
        eligible += policy.isEligible(occurrence, workload.settings, matcher) ? 1 : 0;
    }
    return eligible;
}

void reportPerOccurrence(benchmark::State& state, const Workload& workload, std::size_t eligible)
{
    const auto count = static_cast<int64_t>(workload.occurrences.size());
    state.SetItemsProcessed(state.iterations() * count);
    // Seconds per occurrence, printed with an SI prefix ("150n" is 150 ns).
    state.counters["per_occurrence"] =
        benchmark::Counter(double(count), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    // The mix, so that a changed workload shows in the output rather than only in the timings.
    const ExclusionMatcher matcher(workload.exclusions);
    state.counters["eligible"] = double(eligible);
    state.counters["excluded"] = double(std::count_if(workload.occurrences.begin(), workload.occurrences.end(),
                                                      [&](const auto& o) { return matcher.isExcluded(o.identity); }));
}

void BM_EligibilityWithPreparedMatcher(benchmark::State& state)
{
    const Workload& shared = workload();
    const ExclusionMatcher matcher(shared.exclusions);
    std::size_t eligible = 0;
    for (auto _ : state) {
        eligible = countEligible(shared, matcher);
        benchmark::DoNotOptimize(eligible);
    }
    reportPerOccurrence(state, shared, eligible);
}
BENCHMARK(BM_EligibilityWithPreparedMatcher)->Unit(benchmark::kMicrosecond);

// A refresh builds the matcher once from the stored records and then judges the whole window with it.
void BM_EligibilityIncludingMatcherBuild(benchmark::State& state)
{
    const Workload& shared = workload();
    std::size_t eligible = 0;
    for (auto _ : state) {
        const ExclusionMatcher matcher(shared.exclusions);
        eligible = countEligible(shared, matcher);
        benchmark::DoNotOptimize(eligible);
    }
    reportPerOccurrence(state, shared, eligible);
}
BENCHMARK(BM_EligibilityIncludingMatcherBuild)->Unit(benchmark::kMicrosecond);

} // namespace
