// SPDX-License-Identifier: GPL-3.0-or-later
// Every refresh reads the coming week of each connected account, one events request per calendar after the calendar
// list. Against a distant service the round trips dominate, so the calendars are fetched a bounded number at a time.
// Here a Google account with 20 calendars of 100 events each is read through the production path (source, Google
// client, Qt's network stack) from a local server that answers each request 50 ms after it arrived. The figures to
// compare: the fetch's wall time against the sum of the requests' times at the server (arrival to answer sent), and
// how many requests the server saw in flight at once; a width of one shows the sequential fetch beside it.

#include "calendars/RemoteAccountCalendarSource.h"
#include "calendars/RemoteAccountCredentials.h"
#include "cloud/GoogleCalendarClient.h"
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "oauth/OAuthRefreshTokenStoring.h"
#include "oauth/OAuthTokenClient.h"
#include "scheduling/Clock.h"
#include "support/LocalHttpServer.h"
#include "support/RunTask.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>
#include <QUuid>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

using namespace orvane;
using std::chrono::steady_clock;

constexpr int kCalendarCount = 20;
constexpr int kEventsPerCalendar = 100;
constexpr std::chrono::milliseconds kLatency{50};
constexpr qint64 kDay = 86'400;
/// Monday 2030-03-04 00:00 UTC: the week every fetch asks for.
constexpr qint64 kWeekStart = 1'898'812'800;
const FetchInterval kWeek = {Date::fromUnixTime(double(kWeekStart)), Date::fromUnixTime(double(kWeekStart + 7 * kDay))};
/// Berlin in March, where the account's meetings are planned.
const QTimeZone kBerlin(3'600);

/// The provider's id of calendar `index`: the primary one is named after the account, a holiday calendar is
/// subscribed, the rest are shared team calendars.
QString calendarId(int index)
{
    if (index == 0) {
        return u"ada.lovelace@example.com"_s;
    }
    if (index == 1) {
        return u"en.uk#holiday@group.v.calendar.google.com"_s;
    }
    return u"c_%1e4f7a9b2c5d8e1f3a6b9c2d5e8f1a4b7c0d3e6f9a2b5c8d1e4f7a0b3c6d9e2@group.calendar.google.com"_s.arg(
        index, 2, 10, QLatin1Char('0'));
}

QByteArray calendarListBody()
{
    QJsonArray items;
    for (int index = 0; index < kCalendarCount; ++index) {
        QJsonObject entry{
            {u"kind"_s, u"calendar#calendarListEntry"_s},
            {u"etag"_s, u"\"16%1814228460000\""_s.arg(index, 2, 10, QLatin1Char('0'))},
            {u"id"_s, calendarId(index)},
            {u"summary"_s, index == 0 ? calendarId(0) : u"Team %1"_s.arg(index)},
            {u"timeZone"_s, u"Europe/Berlin"_s},
            {u"colorId"_s, QString::number(1 + index % 24)},
            {u"backgroundColor"_s, index % 2 == 0 ? u"#9fe1e7"_s : u"#f83a22"_s},
            {u"foregroundColor"_s, u"#000000"_s},
            {u"selected"_s, true},
            {u"accessRole"_s, index == 0 ? u"owner"_s : (index == 1 ? u"reader"_s : u"writer"_s)},
            {u"defaultReminders"_s,
             index == 0 ? QJsonArray{QJsonObject{{u"method"_s, u"popup"_s}, {u"minutes"_s, 10}}} : QJsonArray{}},
            {u"conferenceProperties"_s,
             QJsonObject{{u"allowedConferenceSolutionTypes"_s, QJsonArray{u"hangoutsMeet"_s}}}},
        };
        if (index == 0) {
            entry[u"primary"_s] = true;
        }
        items.append(entry);
    }
    const QJsonObject page{{u"kind"_s, u"calendar#calendarList"_s},
                           {u"etag"_s, u"\"p33c9hv1ma6uvg0o\""_s},
                           {u"nextSyncToken"_s, u"CKCbrKvpn_kCEhhhZGEubG92ZWxhY2VAZXhhbXBsZS5jb20="_s},
                           {u"items"_s, items}};
    return QJsonDocument(page).toJson(QJsonDocument::Compact);
}

QJsonObject eventTime(qint64 unixTime)
{
    return {{u"dateTime"_s, QDateTime::fromSecsSinceEpoch(unixTime, kBerlin).toString(Qt::ISODate)},
            {u"timeZone"_s, u"Europe/Berlin"_s}};
}

QJsonObject attendee(const QString& email, const QString& response, bool self = false)
{
    QJsonObject person{{u"email"_s, email}, {u"responseStatus"_s, response}};
    if (self) {
        person[u"self"_s] = true;
    }
    return person;
}

/// Event `index` of calendar `calendar`, as events.list with singleEvents answers. Of every twenty: nine single
/// meetings, eight instances of a series, two all-day events and one cancelled instance that carries only its
/// original start.
QJsonObject event(int calendar, int index)
{
    const qint64 start = kWeekStart + kDay * (index % 7) + 3'600 * (7 + (index / 7) % 10) + 60 * (index % 4 * 15);
    const QString base =
        u"3k%1v9q%2m7r2t0s4u8o6p1n5l"_s.arg(calendar, 2, 10, QLatin1Char('0')).arg(index, 3, 10, QLatin1Char('0'));
    const QString originalStamp =
        QDateTime::fromSecsSinceEpoch(start, QTimeZone::utc()).toString(u"yyyyMMdd'T'HHmmss'Z'"_s);
    const int kind = index % 20;
    const bool isInstance = kind >= 8 && kind < 16;
    const QString id = isInstance || kind == 19 ? base + u'_' + originalStamp : base;
    const QString etag = u"\"3%1\""_s.arg(qint64(181161784712000) + calendar * 1000 + index);

    if (kind == 19) {
        return {{u"kind"_s, u"calendar#event"_s},
                {u"etag"_s, etag},
                {u"id"_s, id},
                {u"status"_s, u"cancelled"_s},
                {u"recurringEventId"_s, base},
                {u"originalStartTime"_s, eventTime(start)}};
    }

    QJsonObject item{
        {u"kind"_s, u"calendar#event"_s},
        {u"etag"_s, etag},
        {u"id"_s, id},
        {u"status"_s, kind == 7 ? u"tentative"_s : u"confirmed"_s},
        {u"htmlLink"_s, u"https://www.google.com/calendar/event?eid=%1"_s.arg(id)},
        {u"created"_s, u"2029-11-02T09:14:27.000Z"_s},
        {u"updated"_s, u"2030-02-27T16:41:03.356Z"_s},
        {u"summary"_s, u"%1 %2"_s.arg(isInstance ? u"Weekly sync"_s : u"Design review"_s).arg(index)},
        {u"creator"_s, QJsonObject{{u"email"_s, u"bob@example.com"_s}}},
        {u"organizer"_s, QJsonObject{{u"email"_s, u"bob@example.com"_s}}},
        {u"iCalUID"_s, base + u"@google.com"_s},
        {u"sequence"_s, index % 3},
        {u"reminders"_s, QJsonObject{{u"useDefault"_s, true}}},
        {u"eventType"_s, u"default"_s},
    };
    if (kind == 16 || kind == 17) {
        item[u"start"_s] =
            QJsonObject{{u"date"_s, QDateTime::fromSecsSinceEpoch(start, kBerlin).date().toString(Qt::ISODate)}};
        item[u"end"_s] =
            QJsonObject{{u"date"_s, QDateTime::fromSecsSinceEpoch(start + kDay, kBerlin).date().toString(Qt::ISODate)}};
        item[u"transparency"_s] = u"transparent"_s;
        return item;
    }
    item[u"start"_s] = eventTime(start);
    item[u"end"_s] = eventTime(start + (index % 3 == 0 ? 3'600 : 1'800));
    if (isInstance) {
        item[u"recurringEventId"_s] = base;
        item[u"originalStartTime"_s] = eventTime(start);
    }
    if (index % 4 != 3) {
        item[u"attendees"_s] = QJsonArray{
            attendee(u"bob@example.com"_s, u"accepted"_s),
            attendee(u"ada.lovelace@example.com"_s, index % 9 == 0 ? u"needsAction"_s : u"accepted"_s, true),
            attendee(u"carol@example.com"_s, u"tentative"_s),
            QJsonObject{{u"email"_s, u"c_1889rooms@resource.calendar.google.com"_s},
                        {u"displayName"_s, u"Room %1"_s.arg(index % 12)},
                        {u"resource"_s, true},
                        {u"responseStatus"_s, u"accepted"_s}},
        };
        item[u"location"_s] = u"Room %1"_s.arg(index % 12);
    }
    if (index % 2 == 0) {
        const QString meet = u"abc-%1-xyz"_s.arg(index, 4, 10, QLatin1Char('0'));
        item[u"hangoutLink"_s] = u"https://meet.google.com/"_s + meet;
        item[u"conferenceData"_s] = QJsonObject{
            {u"entryPoints"_s, QJsonArray{QJsonObject{{u"entryPointType"_s, u"video"_s},
                                                      {u"uri"_s, u"https://meet.google.com/"_s + meet},
                                                      {u"label"_s, u"meet.google.com/"_s + meet}},
                                          QJsonObject{{u"entryPointType"_s, u"phone"_s},
                                                      {u"uri"_s, u"tel:+44-20-3873-7654"_s},
                                                      {u"label"_s, u"+44 20 3873 7654"_s},
                                                      {u"pin"_s, u"123456789"_s}}}},
            {u"conferenceSolution"_s,
             QJsonObject{{u"key"_s, QJsonObject{{u"type"_s, u"hangoutsMeet"_s}}},
                         {u"name"_s, u"Google Meet"_s},
                         {u"iconUri"_s, u"https://fonts.gstatic.com/s/i/productlogos/meet_2020q4/v6/web-512dp/"
                                        u"logo_meet_2020q4_color_2x_web_512dp.png"_s}}},
            {u"conferenceId"_s, meet},
        };
    } else {
        item[u"description"_s] =
            u"Agenda and notes: https://docs.example.com/d/%1\n\nJoin Zoom Meeting\n"
            u"https://acme.zoom.us/j/8123456%2?pwd=Zm9vYmFy\n\nMeeting ID: 812 3456 %2"_s.arg(index)
                .arg(1000 + index);
    }
    return item;
}

QByteArray eventsBody(int calendar)
{
    QJsonArray items;
    for (int index = 0; index < kEventsPerCalendar; ++index) {
        items.append(event(calendar, index));
    }
    const QJsonObject page{{u"kind"_s, u"calendar#events"_s},
                           {u"etag"_s, u"\"p32ofplf5q6uvg0o\""_s},
                           {u"summary"_s, calendar == 0 ? calendarId(0) : u"Team %1"_s.arg(calendar)},
                           {u"description"_s, u""_s},
                           {u"updated"_s, u"2030-02-27T16:41:03.356Z"_s},
                           {u"timeZone"_s, u"Europe/Berlin"_s},
                           {u"accessRole"_s, u"owner"_s},
                           {u"defaultReminders"_s, QJsonArray{}},
                           {u"items"_s, items}};
    return QJsonDocument(page).toJson(QJsonDocument::Compact);
}

/// The account's refresh token lives here instead of the keyring; it is never read while the seeded token is valid.
class MemoryRefreshTokenStore final : public OAuthRefreshTokenStoring {
public:
    QCoro::Task<std::optional<QString>> readRefreshToken(QString account) override
    {
        const auto found = m_tokens.find(account);
        std::optional<QString> token = found == m_tokens.end() ? std::nullopt : std::optional(found->second);
        co_return token;
    }
    QCoro::Task<> saveRefreshToken(QString token, QString account) override
    {
        m_tokens[account] = token;
        co_return;
    }
    QCoro::Task<> deleteRefreshToken(QString account) override
    {
        m_tokens.erase(account);
        co_return;
    }

private:
    std::map<QString, QString> m_tokens;
};

/// The Google service on the local server, and the account wired to it the way the application wires one.
struct Account {
    Account()
    {
        server.setLatency(kLatency);
        server.route("GET", "/calendar/v3/users/me/calendarList", LocalHttpResponse::json(200, calendarListBody()));
        for (int index = 0; index < kCalendarCount; ++index) {
            server.route("GET", "/calendar/v3/calendars/" + QUrl::toPercentEncoding(calendarId(index)) + "/events",
                         LocalHttpResponse::json(200, eventsBody(index)));
        }
        credentials.seed({.accessToken = u"ya29.a0AfB_byC-benchmark-access-token"_s,
                          .refreshToken = u"1//0gBenchmarkRefreshToken"_s,
                          .expirationDate = clock.now() + 3'600,
                          .grantedScopes = {u"https://www.googleapis.com/auth/calendar.readonly"_s},
                          .idToken = std::nullopt});
    }

    LocalHttpServer server;
    NetworkRemoteHTTPTransport transport;
    SystemClock clock;
    OAuthTokenClient tokens{transport, [this] { return clock.now(); }, server.url(u"/revoke"_s)};
    MemoryRefreshTokenStore keyring;
    RemoteAccountCredentials credentials{
        RemoteCalendarAccountMetadata{.id = QUuid(u"6f1c2a7e-3b4d-4c5e-9f60-7a8b9c0d1e2f"_s),
                                      .provider = RemoteCalendarProviderKind::google,
                                      .providerAccountIdentifier = u"109876543210987654321"_s,
                                      .tenantIdentifier = std::nullopt,
                                      .displayName = u"Ada Lovelace"_s,
                                      .emailAddress = u"ada.lovelace@example.com"_s,
                                      .oauthClientID = u"123456789012-benchmark.apps.googleusercontent.com"_s,
                                      .connectedAt = Date{}},
        tokens, keyring,
        [this](const RemoteCalendarAccountMetadata& account) {
            auto configuration = OAuthProviderConfiguration::google(account.oauthClientID, u"desktop-secret"_s);
            configuration.tokenEndpoint = server.url(u"/token"_s);
            return configuration;
        },
        clock};
    GoogleCalendarClient client{transport, {.apiBase = server.url(u"/"_s), .openIdBase = server.url(u"/"_s)}};
};

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

/// One full fetch as a refresh makes it: the calendar list, then the week of every calendar. Returns how many
/// meetings arrived; nothing when the fetch failed.
std::optional<std::size_t> fetchWeek(RemoteAccountCalendarSource& source)
{
    if (!run(source.calendarGroups())) {
        return std::nullopt;
    }
    const auto fetched = run(source.occurrences(kWeek, std::nullopt));
    if (!fetched || !fetched->failedCalendars.empty()) {
        return std::nullopt;
    }
    return fetched->occurrences.size();
}

/// How the server was used by the requests from `first` on.
struct ServerLoad {
    int requests = 0;
    /// Each request's time at the server, arrival to answer sent, summed.
    double sumOfRequestMs = 0;
    int maxInFlight = 0;
};

std::optional<ServerLoad> serverLoad(const std::vector<LocalHttpRequest>& requests, std::size_t first)
{
    ServerLoad load;
    // +1 at each arrival, -1 at each answer; an answer sorts before an arrival at the same instant.
    std::vector<std::pair<steady_clock::time_point, int>> changes;
    for (std::size_t index = first; index < requests.size(); ++index) {
        const LocalHttpRequest& request = requests[index];
        if (!request.answeredAt) {
            return std::nullopt;
        }
        ++load.requests;
        load.sumOfRequestMs +=
            std::chrono::duration<double, std::milli>(*request.answeredAt - request.receivedAt).count();
        changes.emplace_back(request.receivedAt, 1);
        changes.emplace_back(*request.answeredAt, -1);
    }
    std::sort(changes.begin(), changes.end());
    int inFlight = 0;
    for (const auto& change : changes) {
        inFlight += change.second;
        load.maxInFlight = std::max(load.maxInFlight, inFlight);
    }
    return load;
}

/// Fetches the week with `state.range(0)` calendars in flight at most.
void BM_RemoteAccountWeek(benchmark::State& state)
{
    Account account;
    RemoteAccountCalendarSource source(account.client, account.credentials);
    source.setConcurrentRequests(int(state.range(0)));
    // The first fetch pays for setting up Qt's network stack, which every later refresh reuses.
    if (!fetchWeek(source)) {
        state.SkipWithError("the warm-up fetch failed");
        return;
    }

    double wallMs = 0;
    double sumOfRequestMs = 0;
    int requests = 0;
    int maxInFlight = 0;
    for (auto _ : state) {
        const std::size_t first = account.server.requests().size();
        const auto started = steady_clock::now();
        const std::optional<std::size_t> count = fetchWeek(source);
        const std::chrono::duration<double> elapsed = steady_clock::now() - started;
        state.SetIterationTime(elapsed.count());
        if (count != std::size_t(kCalendarCount * kEventsPerCalendar)) {
            state.SkipWithError(count ? "meetings went missing" : "the fetch failed");
            return;
        }
        const std::optional<ServerLoad> load = serverLoad(account.server.requests(), first);
        if (!load) {
            state.SkipWithError("a request was left unanswered");
            return;
        }
        wallMs += elapsed.count() * 1'000;
        sumOfRequestMs += load->sumOfRequestMs;
        requests += load->requests;
        maxInFlight = std::max(maxInFlight, load->maxInFlight);
    }
    state.counters["requests"] = benchmark::Counter(requests, benchmark::Counter::kAvgIterations);
    state.counters["sum_of_request_ms"] = benchmark::Counter(sumOfRequestMs, benchmark::Counter::kAvgIterations);
    state.counters["max_in_flight"] = maxInFlight;
    state.counters["speedup"] = wallMs > 0 ? sumOfRequestMs / wallMs : 0;
}
BENCHMARK(BM_RemoteAccountWeek)
    ->ArgName("width")
    ->Arg(RemoteAccountCalendarSource::defaultConcurrentRequests)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
