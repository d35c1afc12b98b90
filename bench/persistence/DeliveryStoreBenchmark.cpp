// SPDX-License-Identifier: GPL-3.0-or-later
// Every alert writes the reminder history twice (prepared, then confirmed) and every scheduler refresh prunes it, each
// time the whole record, durably, on the main thread. The goal is under 10 ms per change, file write included, for a
// history of 2,000 records and 200 snoozes.

#include "persistence/DeliveryStore.h"
#include "persistence/SettingsDefaultsDatabase.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <array>
#include <map>
#include <memory>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;

constexpr int kSnoozeCount = 200;
constexpr double kNow = 780'000'000;
constexpr double kDay = 86'400;
// The scheduler's cut-offs: reminder history is kept 30 days, a snooze until a minute after it is due.
constexpr double kDeliveryRetention = 30 * kDay;
constexpr double kLateDeliveryGrace = 60;

MeetingIdentity identity(int index, Date start = {kNow + 3'600})
{
    return {.sourceIdentifier = u"account-%1@example.com"_s.arg(index % 4),
            .calendarIdentifier = u"8F1C2A7E-%1-4B0D-9C61-5E2F3A4B0000"_s.arg(index % 12),
            .seriesIdentifier =
                u"external:%1a7c3f0e9b2d4c6e8f0a1b3c5d7e9f@google.com"_s.arg(index, 6, 16, QLatin1Char('0')),
            .calendarFingerprint = CalendarFingerprint{CalendarSourceKind::google, u"account@example.com"_s,
                                                       u"Calendar %1"_s.arg(index % 12)},
            .calendarFingerprintIsUnique = true,
            .occurrenceStart = start,
            .scheduledStart = start};
}

/// One of `count` alerts spread over the last 29 days.
DeliveryRecord delivery(int index, int count)
{
    const Date trigger{kNow - 29 * kDay * (1 - double(index) / count)};
    return {identity(index, trigger + 60), trigger, DeliveryStatus::confirmed, trigger + 2};
}

/// The three alerts of one moment.
std::array<DeliveryRecord, 3> batch(int first)
{
    return {DeliveryRecord{identity(first), {kNow}, DeliveryStatus::pending, {kNow}},
            DeliveryRecord{identity(first + 1), {kNow}, DeliveryStatus::pending, {kNow}},
            DeliveryRecord{identity(first + 2), {kNow}, DeliveryStatus::pending, {kNow}}};
}

/// A delivery store on a settings file of its own, holding `recordCount` deliveries (the last three of them one
/// pending batch) and 200 snoozes.
///
/// The benchmarks prepare and confirm that same batch again and again, so the history keeps its size: what they
/// measure, encoding and durably writing the whole record, is the same as for a batch new to it.
struct Workload {
    explicit Workload(int recordCount)
        : database(directory.filePath(u"Orvane.conf"_s))
        , pending(batch(recordCount - 3))
    {
        std::vector<DeliveryRecord> records;
        records.reserve(std::size_t(recordCount));
        for (int index = 0; index < recordCount - 3; ++index) {
            records.push_back(delivery(index, recordCount));
        }
        records.insert(records.end(), pending.begin(), pending.end());
        std::vector<SnoozeRecord> snoozes;
        snoozes.reserve(kSnoozeCount);
        for (int index = 0; index < kSnoozeCount; ++index) {
            snoozes.push_back({identity(recordCount + index), {kNow + 300}, {kNow - 60}});
        }
        database.setObject(DeliveryStore::defaultKey,
                           VersionedDefaults::encode(DeliveryStoring::currentSchemaVersion,
                                                     toJson(DeliveryState{std::move(records), std::move(snoozes)})));
        // Measured on a store that read the record back, as the application's own does at launch.
        store = std::make_unique<DeliveryStore>(database);
    }

    /// One workload per size, shared by the benchmarks: building the larger ones takes longer than measuring them.
    static Workload& of(int recordCount)
    {
        static std::map<int, std::unique_ptr<Workload>> workloads;
        auto& workload = workloads[recordCount];
        if (!workload) {
            workload = std::make_unique<Workload>(recordCount);
        }
        return *workload;
    }

    QTemporaryDir directory;
    SettingsDefaultsDatabase database;
    std::array<DeliveryRecord, 3> pending;
    std::unique_ptr<DeliveryStore> store;
};

void BM_PrepareDeliveries(benchmark::State& state)
{
    auto& workload = Workload::of(int(state.range(0)));
    // The store does not rewrite an unchanged record: move the hand-out time so that every pass writes.
    double handedOut = 0;
    for (auto _ : state) {
        auto pending = workload.pending;
        handedOut = handedOut == 0 ? 1 : 0;
        for (auto& record : pending) {
            record.deliveredAt = record.deliveredAt + handedOut;
        }
        workload.store->prepareDeliveries(pending);
    }
}

void BM_ConfirmDeliveries(benchmark::State& state)
{
    auto& workload = Workload::of(int(state.range(0)));
    const std::array keys{workload.pending[0].id(), workload.pending[1].id(), workload.pending[2].id()};
    double confirmedAt = kNow + 5;
    for (auto _ : state) {
        confirmedAt = confirmedAt == kNow + 5 ? kNow + 6 : kNow + 5;
        workload.store->confirmDeliveries(keys, {confirmedAt});
    }
}

void BM_Prune(benchmark::State& state)
{
    // Every refresh prunes; the history is all recent, so nothing goes and the record is not written again.
    auto& workload = Workload::of(int(state.range(0)));
    for (auto _ : state) {
        workload.store->prune({kNow - kDeliveryRetention}, {kNow - kLateDeliveryGrace});
    }
}

void historySizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("records")->Arg(200)->Arg(2'000)->Arg(20'000)->Unit(benchmark::kMillisecond);
}

} // namespace

BENCHMARK(BM_PrepareDeliveries)->Apply(historySizes);
BENCHMARK(BM_ConfirmDeliveries)->Apply(historySizes);
BENCHMARK(BM_Prune)->Apply(historySizes);
