// SPDX-License-Identifier: GPL-3.0-or-later
// Every scheduler refresh asks the desktop calendar for the coming week. The goal, for a calendar of 5,000 events of
// which 1,000 repeat: under 300 ms, and at most 1.25 times what libecal's own instance generation takes for the same
// week on the same service. Everything runs against a real Evolution Data Server started on a private bus.

#include "calendars/linux/EdsCalendarRepository.h"
#include "calendars/linux/EdsEventMapping.h"
#include "support/EdsTestData.h"
#include "support/EdsTestSession.h"
#include "support/RunTask.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <optional>
#include <string>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;

constexpr const char* kCalendarUid = "orvane-bench-busy";
constexpr int kEventCount = 5'000;
constexpr int kRecurringCount = 1'000;
constexpr int kBatchSize = 250;
constexpr time_t kDay = 86'400;
/// Monday 2030-03-04 00:00 UTC: the week every benchmark asks for.
constexpr time_t kWeekStart = 1'898'812'800;
constexpr time_t kWeekEnd = kWeekStart + 7 * kDay;

ESourceRegistry* g_registry = nullptr;
ECalClient* g_client = nullptr;

std::string stamp(time_t time)
{
    char text[32];
    tm fields{};
    gmtime_r(&time, &fields);
    strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &fields);
    return text;
}

/// Event `index` of the busy calendar: the first 1,000 repeat (daily on weekdays, weekly, every other week; some
/// ended, some with a skipped date), the others are single meetings spread over two years around the week.
std::string event(int index)
{
    std::string text = "BEGIN:VEVENT\nUID:bench-" + std::to_string(index) + "@orvane.test\nSUMMARY:Meeting " +
                       std::to_string(index) + "\nLOCATION:Room " + std::to_string(index % 40) + "\n";
    if (index % 3 == 0) {
        text += "DESCRIPTION:Join Zoom Meeting\\nhttps://acme.zoom.us/j/8123456" + std::to_string(1000 + index) +
                "?pwd=Zm9v\\n\\nMeeting ID: 812 3456 " + std::to_string(1000 + index) + "\n";
    } else {
        text += "DESCRIPTION:Agenda: https://wiki.example.org/notes/" + std::to_string(index) + "\n";
    }
    if (index % 5 == 0) {
        text += "ORGANIZER:mailto:bob@example.org\nATTENDEE;PARTSTAT=ACCEPTED:mailto:ada@example.org\n"
                "ATTENDEE;PARTSTAT=NEEDS-ACTION:mailto:bob@example.org\n";
    }
    if (index < kRecurringCount) {
        // Series that began up to a year before the week, at office hours.
        const time_t start = kWeekStart - kDay * (index % 365) + 3'600 * (7 + index % 10);
        if (index % 2 == 0) {
            text += "DTSTART;TZID=Europe/Berlin:" + stamp(start + 3'600).substr(0, 15) +
                    "\nDTEND;TZID=Europe/Berlin:" + stamp(start + 3'600 + 1'800).substr(0, 15) + "\n";
        } else {
            text += "DTSTART:" + stamp(start) + "\nDTEND:" + stamp(start + 1'800) + "\n";
        }
        switch (index % 4) {
        case 0:
            text += "RRULE:FREQ=DAILY;BYDAY=MO,TU,WE,TH,FR\n";
            break;
        case 1:
            text += "RRULE:FREQ=WEEKLY\n";
            break;
        case 2:
            text += "RRULE:FREQ=WEEKLY;INTERVAL=2\n";
            break;
        default:
            text += "RRULE:FREQ=WEEKLY;COUNT=20\n";
            break;
        }
        if (index % 7 == 0) {
            text += "EXDATE:" + stamp(start + 7 * kDay) + "\n";
        }
    } else {
        const time_t start =
            kWeekStart - 365 * kDay + time_t(index - kRecurringCount) * (730 * kDay / 4'000) + 3'600 * (index % 9);
        text += "DTSTART:" + stamp(start) + "\nDTEND:" + stamp(start + 3'600) + "\n";
    }
    return text + "END:VEVENT\n";
}

void populate()
{
    const auto source = eds_test::addCalendar(g_registry, kCalendarUid, "Busy");
    g_client = eds_test::connectCalendar(g_registry, kCalendarUid).release();
    for (int first = 0; first < kEventCount; first += kBatchSize) {
        GSList* events = nullptr;
        for (int index = first; index < first + kBatchSize; ++index) {
            events = g_slist_prepend(events, eds_test::component(event(index)).release());
        }
        GError* error = nullptr;
        GSList* uids = nullptr;
        const bool created =
            e_cal_client_create_objects_sync(g_client, events, E_CAL_OPERATION_FLAG_NONE, &uids, nullptr, &error);
        g_slist_free_full(events, g_object_unref);
        g_slist_free_full(uids, g_free);
        eds_test::check(created, error, "creating events");
    }
}

/// Runs `task` to its end and returns its value; nothing when it failed.
template <class T>
std::optional<T> run(QCoro::Task<T> task)
{
    try {
        return runTask(std::move(task));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return std::nullopt;
    }
}

const FetchInterval kWeek = {Date::fromUnixTime(double(kWeekStart)), Date::fromUnixTime(double(kWeekEnd))};

void BM_OrvaneOccurrences(benchmark::State& state)
{
    EdsCalendarRepository repository;
    const QSet<QString> selection = {QString::fromUtf8(kCalendarUid)};
    // The first fetch opens the calendar; the scheduler's refreshes reuse it.
    if (!run(repository.occurrences(kWeek, selection))) {
        state.SkipWithError("the repository failed");
        return;
    }
    std::size_t count = 0;
    for (auto _ : state) {
        const auto fetched = run(repository.occurrences(kWeek, selection));
        if (!fetched || !fetched->failedCalendars.empty()) {
            state.SkipWithError("the repository failed");
            return;
        }
        count = fetched->occurrences.size();
    }
    state.counters["occurrences"] = double(count);
}
BENCHMARK(BM_OrvaneOccurrences)->Unit(benchmark::kMillisecond)->UseRealTime();

gboolean countInstance(ICalComponent*, ICalTime*, ICalTime*, gpointer data, GCancellable*, GError**)
{
    ++*static_cast<std::size_t*>(data);
    return TRUE;
}

/// libecal's own answer to the same question: the objects in the week, expanded into instances.
void BM_LibecalGenerateInstances(benchmark::State& state)
{
    std::size_t count = 0;
    for (auto _ : state) {
        count = 0;
        e_cal_client_generate_instances_sync(g_client, kWeekStart, kWeekEnd, nullptr, countInstance, &count);
    }
    state.counters["occurrences"] = double(count);
}
BENCHMARK(BM_LibecalGenerateInstances)->Unit(benchmark::kMillisecond)->UseRealTime();

void objectListQuery(benchmark::State& state, const std::string& query)
{
    std::size_t count = 0;
    for (auto _ : state) {
        GSList* components = nullptr;
        GError* error = nullptr;
        if (!e_cal_client_get_object_list_as_comps_sync(g_client, query.c_str(), &components, nullptr, &error)) {
            state.SkipWithError(error != nullptr ? error->message : "query failed");
            g_clear_error(&error);
            return;
        }
        count = g_slist_length(components);
        g_slist_free_full(components, g_object_unref);
    }
    state.counters["components"] = double(count);
}

const std::string kTimeRange =
    "(occur-in-time-range? (make-time \"" + stamp(kWeekStart) + "\") (make-time \"" + stamp(kWeekEnd) + "\"))";

/// The query libecal's instance generation starts with, alone.
void BM_LibecalTimeRangeQuery(benchmark::State& state)
{
    objectListQuery(state, kTimeRange);
}
BENCHMARK(BM_LibecalTimeRangeQuery)->Unit(benchmark::kMillisecond)->UseRealTime();

/// The query Orvane sends (every repeating event, and the single events of the week), alone.
void BM_OrvaneQueryOnly(benchmark::State& state)
{
    objectListQuery(state, "(or (has-recurrences?) " + kTimeRange + ")");
}
BENCHMARK(BM_OrvaneQueryOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Orvane's share without the service: expanding and mapping what that query returned.
void BM_OrvaneExpansionOnly(benchmark::State& state)
{
    GSList* components = nullptr;
    GError* error = nullptr;
    const std::string query = "(or (has-recurrences?) " + kTimeRange + ")";
    if (!e_cal_client_get_object_list_as_comps_sync(g_client, query.c_str(), &components, nullptr, &error)) {
        state.SkipWithError(error != nullptr ? error->message : "query failed");
        g_clear_error(&error);
        return;
    }
    std::vector<ICalComponent*> events;
    for (GSList* item = components; item != nullptr; item = item->next) {
        events.push_back(e_cal_component_get_icalcomponent(E_CAL_COMPONENT(item->data)));
    }
    const eds::CalendarContext context{
        .calendar = {.identifier = QString::fromUtf8(kCalendarUid), .title = u"Busy"_s},
        .userAddresses = {u"ada@example.org"_s},
        .defaultZone = i_cal_timezone_get_utc_timezone(),
        .resolveZone = [](const char* tzid) { return i_cal_timezone_get_builtin_timezone(tzid); },
    };
    std::size_t count = 0;
    for (auto _ : state) {
        count = eds::expandEvents(events, kWeek, context).size();
    }
    g_slist_free_full(components, g_object_unref);
    state.counters["occurrences"] = double(count);
}
BENCHMARK(BM_OrvaneExpansionOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    // The private calendar service must be in place before the first GLib call.
    EdsTestSession session;
    try {
        session.start();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    try {
        g_registry = eds_test::connectRegistry().release();
        populate();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_clear_object(&g_client);
    g_clear_object(&g_registry);
    return 0;
}
