// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/GoogleCalendarClient.h"

#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "support/LocalHttpServer.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>
#include <QUrlQuery>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
namespace Identity = orvane::RemoteCalendarIdentityNamespace;
using orvane::Date;
using orvane::FetchInterval;
using orvane::GoogleCalendarClient;
using orvane::MeetingParticipationStatus;
using orvane::NetworkRemoteHTTPTransport;
using orvane::RemoteAccessTokenProvider;
using orvane::RemoteAccountProfile;
using orvane::RemoteCalendarAccountMetadata;
using orvane::RemoteCalendarDescriptor;
using orvane::RemoteHTTPError;
using orvane::RemoteMeetingOccurrence;

namespace orvane {
inline void PrintTo(const RemoteHTTPError& error, std::ostream* out)
{
    *out << error.what();
}
} // namespace orvane

namespace {

const RemoteHTTPError invalidResponse(RemoteHTTPError::InvalidResponse{});

RemoteHTTPError status(int code, std::optional<QString> message = std::nullopt)
{
    return RemoteHTTPError(RemoteHTTPError::UnexpectedStatus{code, std::move(message)});
}

/// Google's documented error body.
QByteArray googleError(int code, const QString& message, const QString& reason, const QString& statusName)
{
    const QJsonObject error{
        {u"code"_s, code},
        {u"message"_s, message},
        {u"errors"_s,
         QJsonArray{QJsonObject{{u"domain"_s, u"global"_s}, {u"reason"_s, reason}, {u"message"_s, message}}}},
        {u"status"_s, statusName}};
    return QJsonDocument(QJsonObject{{u"error"_s, error}}).toJson();
}

LocalHttpResponse json(const QJsonObject& body, int code = 200)
{
    return LocalHttpResponse::json(code, QJsonDocument(body).toJson());
}

LocalHttpServer::Handler inTurn(std::vector<LocalHttpResponse> responses)
{
    auto next = std::make_shared<std::size_t>(0);
    return [responses = std::move(responses), next](const LocalHttpRequest&) {
        return responses[std::min((*next)++, responses.size() - 1)];
    };
}

/// The query of a received request, decoded.
QUrlQuery queryOf(const LocalHttpRequest& request)
{
    return QUrlQuery(QUrl::fromEncoded("http://x" + request.target));
}

Date at(const QString& isoUTC)
{
    return Date::fromDateTime(QDateTime::fromString(isoUTC, Qt::ISODate));
}

/// One line per occurrence with every field, so a mismatch reads as text.
std::string describe(const RemoteMeetingOccurrence& value)
{
    const auto date = [](Date date) {
        return date.toDateTime().toString(Qt::ISODate);
    };
    return QStringList{value.calendar.identifier,
                       value.seriesIdentifier,
                       date(value.occurrenceStart),
                       value.title,
                       date(value.startDate),
                       date(value.endDate),
                       value.isAllDay ? u"all-day"_s : u"timed"_s,
                       value.isCanceled ? u"cancelled"_s : u"live"_s,
                       orvane::rawValue(value.participationStatus),
                       value.hasAttendees ? u"attendees"_s : u"alone"_s,
                       value.location.value_or(u"-"_s),
                       value.isRecurring ? u"recurring"_s : u"single"_s,
                       value.meetingURL ? value.meetingURL->toString() : u"-"_s,
                       value.iCalendarUID.value_or(u"-"_s)}
        .join(u" | "_s)
        .toStdString();
}

class GoogleCalendarClientTest : public ::testing::Test {
protected:
    GoogleCalendarClientTest()
    {
        account.id = QUuid(u"6f1c4a0e-2d4b-4c8e-9a51-3b7f0e2d9c11"_s);
        account.providerAccountIdentifier = u"109876543210"_s;
        account.displayName = u"Ada Lovelace"_s;
        account.emailAddress = u"ada@example.com"_s;
    }

    GoogleCalendarClient client(const LocalHttpServer& server)
    {
        return GoogleCalendarClient(transport, {.apiBase = server.url(u"/"_s), .openIdBase = server.url(u"/oidc"_s)},
                                    {.maximumRetries = 2,
                                     .maximumRetryDelay = 2s,
                                     .defaultRetryDelay = 10ms,
                                     .requestTimeout = 5s,
                                     .maximumPages = 10});
    }

    RemoteAccessTokenProvider tokens()
    {
        return [this](std::optional<QString> refused) -> QCoro::Task<QString> {
            if (refused) {
                rejected.push_back(*refused);
            }
            co_return u"token-%1"_s.arg(rejected.size() + 1);
        };
    }

    RemoteCalendarDescriptor calendar(const QString& providerId)
    {
        return {.identifier = Identity::calendarIdentifier(account, providerId), .title = u"Team"_s};
    }

    NetworkRemoteHTTPTransport transport;
    RemoteCalendarAccountMetadata account;
    /// The tokens the client reported as refused; the provider hands out "token-<refusals + 1>".
    std::vector<QString> rejected;
};

TEST_F(GoogleCalendarClientTest, AccountProfile)
{
    struct Row {
        QByteArray body;
        std::optional<RemoteAccountProfile> profile;
    };
    const Row rows[] = {
        {R"({"sub":"1098","email":"ada@example.com","email_verified":true,"name":"Ada Lovelace"})",
         RemoteAccountProfile{u"1098"_s, std::nullopt, u"Ada Lovelace"_s, u"ada@example.com"_s}},
        {R"({"sub":"1098","email":"ada@example.com","email_verified":true})",
         RemoteAccountProfile{u"1098"_s, std::nullopt, u"ada@example.com"_s, u"ada@example.com"_s}},
        {R"({"email":"ada@example.com","name":"Ada"})", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.body.toStdString());
        LocalHttpServer server;
        server.route("GET", "/oidc/v1/userinfo", LocalHttpResponse::json(200, row.body));
        auto google = client(server);
        try {
            EXPECT_EQ(runTask(google.accountProfile(tokens())), row.profile);
        } catch (const RemoteHTTPError& error) {
            EXPECT_FALSE(row.profile);
            EXPECT_EQ(error, invalidResponse);
        }
        ASSERT_EQ(server.requests().size(), 1U);
        EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer token-1");
    }
}

TEST_F(GoogleCalendarClientTest, CalendarListAcrossPages)
{
    const QByteArray pages[] = {
        R"({"kind":"calendar#calendarList","nextPageToken":"page+2/==","items":[
            {"kind":"calendar#calendarListEntry","id":"team#ops/x@group.calendar.google.com","summary":"Team",
             "summaryOverride":"My team","backgroundColor":"#16A765","foregroundColor":"#000000","accessRole":"writer"},
            {"kind":"calendar#calendarListEntry","id":"ada@example.com","summary":"ada@example.com","primary":true,
             "backgroundColor":"#9fe1e7","foregroundColor":"#000000","accessRole":"owner"},
            {"kind":"calendar#calendarListEntry","id":"old@group.calendar.google.com","summary":"Old","deleted":true,
             "accessRole":"owner"}]})",
        R"({"kind":"calendar#calendarList","items":[
            {"kind":"calendar#calendarListEntry","id":"en.swiss#holiday@group.v.calendar.google.com",
             "summary":"Holidays in Switzerland","accessRole":"reader"},
            {"kind":"calendar#calendarListEntry","id":"boss@example.com","summary":"boss","hidden":true,
             "backgroundColor":"blue","accessRole":"freeBusyReader"}]})",
    };
    LocalHttpServer server;
    server.route("GET", "/calendar/v3/users/me/calendarList", [&](const LocalHttpRequest& request) {
        return LocalHttpResponse::json(200, pages[queryOf(request).hasQueryItem(u"pageToken"_s) ? 1 : 0]);
    });
    auto google = client(server);
    const auto group = runTask(google.calendarGroup(account, tokens()));

    EXPECT_EQ(group.sourceIdentifier, Identity::sourceIdentifier(account, u"109876543210"_s));
    EXPECT_EQ(group.sourceTitle, u"ada@example.com"_s);
    const auto id = [&](const QString& providerId) {
        return Identity::calendarIdentifier(account, providerId);
    };
    const std::vector<RemoteCalendarDescriptor> expected = {
        {id(u"ada@example.com"_s), u"ada@example.com"_s, u"#9FE1E7"_s, false, true},
        {id(u"boss@example.com"_s), u"boss"_s, std::nullopt, true, false},
        {id(u"en.swiss#holiday@group.v.calendar.google.com"_s), u"Holidays in Switzerland"_s, std::nullopt, true,
         false},
        {id(u"team#ops/x@group.calendar.google.com"_s), u"My team"_s, u"#16A765"_s, false, true},
    };
    ASSERT_EQ(group.calendars.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index) {
        EXPECT_EQ(group.calendars[index], expected[index]) << expected[index].title.toStdString();
    }
    const auto& requests = server.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].target, "/calendar/v3/users/me/calendarList?maxResults=250");
    EXPECT_EQ(requests[1].target, "/calendar/v3/users/me/calendarList?maxResults=250&pageToken=page%2B2%2F%3D%3D");
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer token-1");
}

TEST_F(GoogleCalendarClientTest, EventsMapToOccurrences)
{
    const RemoteCalendarDescriptor team = calendar(u"team#ops/x@group.calendar.google.com"_s);
    struct Row {
        const char* event;
        /// "series | occurrence start | title | start | end | all-day | cancelled | response | attendees |
        /// location | recurring | link | UID", or empty when the event is skipped.
        QString expected;
    };
    const Row rows[] = {
        {R"({"id":"ev1","status":"confirmed","summary":"Standup","iCalUID":"ev1@google.com","location":"Room 4",
            "start":{"dateTime":"2026-11-23T10:00:00+01:00","timeZone":"Europe/Zurich"},
            "end":{"dateTime":"2026-11-23T10:30:00+01:00","timeZone":"Europe/Zurich"},
            "organizer":{"email":"bob@example.com"},
            "attendees":[{"email":"ada@example.com","self":true,"responseStatus":"accepted"},
                         {"email":"bob@example.com","organizer":true,"responseStatus":"accepted"},
                         {"email":"c_188@resource.calendar.google.com","resource":true,"responseStatus":"accepted"}],
            "hangoutLink":"https://meet.google.com/han-gout-xyz",
            "conferenceData":{"entryPoints":[{"entryPointType":"phone","uri":"tel:+1-555-0100"},
                                             {"entryPointType":"video","uri":"https://meet.google.com/vid-eoo-xyz"}]},
            "description":"Notes: https://acme.zoom.us/j/1"})",
         u"ev1 | 2026-11-23T09:00:00Z | Standup | 2026-11-23T09:00:00Z | 2026-11-23T09:30:00Z | timed | live | "
         "accepted | attendees | Room 4 | single | https://meet.google.com/vid-eoo-xyz | ev1@google.com"_s},
        {R"({"id":"ev2","eventType":"default","summary":"Review","start":{"dateTime":"2026-11-23T12:00:00Z"},
            "end":{"dateTime":"2026-11-23T13:00:00Z"}, "hangoutLink":"https://meet.google.com/han-gout-xyz",
            "attendees":[{"email":"bob@example.com","responseStatus":"needsAction"},
                         {"email":"ada@example.com","self":true,"responseStatus":"tentative"}]})",
         u"ev2 | 2026-11-23T12:00:00Z | Review | 2026-11-23T12:00:00Z | 2026-11-23T13:00:00Z | timed | live | "
         "tentative | attendees | - | single | https://meet.google.com/han-gout-xyz | -"_s},
        // An occurrence moved from 09:00 to 11:00 keeps naming the 09:00 occurrence.
        {R"({"id":"rec_20261124T090000Z","recurringEventId":"rec","summary":"Weekly","iCalUID":"rec@google.com",
            "originalStartTime":{"dateTime":"2026-11-24T09:00:00Z"},
            "start":{"dateTime":"2026-11-24T11:00:00Z"},"end":{"dateTime":"2026-11-24T12:00:00Z"},
            "attendees":[{"email":"ada@example.com","self":true,"responseStatus":"declined"},
                         {"email":"bob@example.com","responseStatus":"accepted"}]})",
         u"rec | 2026-11-24T09:00:00Z | Weekly | 2026-11-24T11:00:00Z | 2026-11-24T12:00:00Z | timed | live | "
         "declined | attendees | - | recurring | - | rec@google.com"_s},
        {R"({"id":"rec_20261125T090000Z","status":"cancelled","recurringEventId":"rec",
            "originalStartTime":{"dateTime":"2026-11-25T09:00:00Z"}})",
         u"rec | 2026-11-25T09:00:00Z | Untitled event | 2026-11-25T09:00:00Z | 2026-11-25T09:00:00Z | timed | "
         "cancelled | unknown | alone | - | recurring | - | -"_s},
        {R"({"id":"ev5","summary":"Offsite","organizer":{"email":"ada@example.com","self":true},
            "start":{"date":"2026-11-26"},"end":{"date":"2026-11-27"}})",
         u"ev5 | 2026-11-26T00:00:00Z | Offsite | 2026-11-26T00:00:00Z | 2026-11-27T00:00:00Z | all-day | live | "
         "unknown | alone | - | single | - | -"_s},
        {R"({"id":"ev6","eventType":"someNewType","summary":"1:1","organizer":{"email":"ada@example.com","self":true},
            "attendees":[{"email":"bob@example.com","responseStatus":"needsAction"}],
            "start":{"dateTime":"2026-11-26T15:00:00Z"},"end":{"dateTime":"2026-11-26T15:30:00Z"},
            "description":"Join: https://acme.zoom.us/j/123?pwd=x."})",
         u"ev6 | 2026-11-26T15:00:00Z | 1:1 | 2026-11-26T15:00:00Z | 2026-11-26T15:30:00Z | timed | live | "
         "accepted | attendees | - | single | https://acme.zoom.us/j/123?pwd=x | -"_s},
        {R"({"id":"ev7","status":"cancelled","summary":"  ","location":" ",
            "attendees":[{"email":"ada@example.com","self":true,"responseStatus":"needsAction"},
                         {"email":"c_188@resource.calendar.google.com","resource":true}],
            "start":{"dateTime":"2026-11-27T08:00:00Z"},"end":{"dateTime":"2026-11-27T08:00:00Z"}})",
         u"ev7 | 2026-11-27T08:00:00Z | Untitled event | 2026-11-27T08:00:00Z | 2026-11-27T08:00:00Z | timed | "
         "cancelled | pending | alone | - | single | - | -"_s},
        {R"({"id":"ev8","eventType":"fromGmail","summary":"NY","start":{"dateTime":"2026-11-27T09:00:00","timeZone":"America/New_York"},
            "end":{"dateTime":"2026-11-27T10:00:00","timeZone":"America/New_York"}})",
         u"ev8 | 2026-11-27T14:00:00Z | NY | 2026-11-27T14:00:00Z | 2026-11-27T15:00:00Z | timed | live | "
         "unknown | alone | - | single | - | -"_s},
        // Statuses the user sets on their own calendar, not meetings.
        {R"({"id":"ooo","eventType":"outOfOffice","start":{"dateTime":"2026-11-24T13:00:00Z"},"end":{"dateTime":"2026-11-24T17:00:00Z"}})",
         {}},
        {R"({"id":"focus","eventType":"focusTime","start":{"dateTime":"2026-11-25T13:00:00Z"},"end":{"dateTime":"2026-11-25T15:00:00Z"}})",
         {}},
        {R"({"id":"office","eventType":"workingLocation","start":{"dateTime":"2026-11-26T08:00:00Z"},"end":{"dateTime":"2026-11-26T17:00:00Z"}})",
         {}},
        {R"({"start":{"dateTime":"2026-11-23T10:00:00Z"},"end":{"dateTime":"2026-11-23T11:00:00Z"}})", {}},
        {R"({"id":"bad1","start":{"dateTime":"tomorrow"},"end":{"dateTime":"2026-11-23T11:00:00Z"}})", {}},
        {R"({"id":"bad2","start":{"dateTime":"2026-11-23"},"end":{"dateTime":"2026-11-24T11:00:00Z"}})", {}},
        {R"({"id":"bad3","start":{"dateTime":"2026-11-23T11:00:00Z"},"end":{"dateTime":"2026-11-23T10:00:00Z"}})", {}},
        {R"({"id":"bad4","start":{"dateTime":"2026-11-23T11:00:00Z"}})", {}},
        {R"({"id":"bad5","recurringEventId":"rec","originalStartTime":{"date":"someday"},
            "start":{"dateTime":"2026-11-23T11:00:00Z"},"end":{"dateTime":"2026-11-23T12:00:00Z"}})",
         {}},
        {"42", {}},
    };
    // Two pages, rows alternating between them.
    QByteArray items[2];
    for (std::size_t index = 0; index < std::size(rows); ++index) {
        items[index % 2] += (items[index % 2].isEmpty() ? "" : ",") + QByteArray(rows[index].event);
    }

    LocalHttpServer server;
    const QByteArray path = "/calendar/v3/calendars/team%23ops%2Fx%40group.calendar.google.com/events";
    server.route("GET", path, [&](const LocalHttpRequest& request) {
        const bool first = !queryOf(request).hasQueryItem(u"pageToken"_s);
        return LocalHttpResponse::json(200, R"({"kind":"calendar#events","timeZone":"Europe/Zurich",)" +
                                                (first ? R"("nextPageToken":"CigK+Gj/aW==",)"_ba : ""_ba) +
                                                R"("items":[)" + items[first ? 0 : 1] + "]}");
    });
    auto google = client(server);
    const FetchInterval interval{at(u"2026-11-22T09:59:00Z"_s) + 0.25, at(u"2026-11-29T10:00:00Z"_s) + 0.5};
    const auto occurrences = runTask(google.occurrences(account, team, interval, tokens()));

    std::vector<std::string> expected;
    for (const Row& row : rows) {
        if (!row.expected.isEmpty()) {
            // The series field names the provider's id; the test spells out the identity it must become.
            const QString seriesId = row.expected.section(u" | "_s, 0, 0);
            expected.push_back((team.identifier + u" | "_s + Identity::seriesIdentifier(account, seriesId) +
                                row.expected.mid(seriesId.size()))
                                   .toStdString());
        }
    }
    std::vector<std::string> actual;
    for (const RemoteMeetingOccurrence& occurrence : occurrences) {
        EXPECT_EQ(occurrence.calendar, team);
        actual.push_back(describe(occurrence));
    }
    // Pages alternate rows, so compare as sets of lines.
    std::sort(expected.begin(), expected.end());
    std::sort(actual.begin(), actual.end());
    EXPECT_EQ(actual, expected);

    const auto requests = server.requestsFor(path);
    ASSERT_EQ(requests.size(), 2U);
    const QUrlQuery query = queryOf(requests[0]);
    const std::pair<QString, QString> parameters[] = {
        {u"singleEvents"_s, u"true"_s},
        {u"showDeleted"_s, u"true"_s},
        {u"orderBy"_s, u"startTime"_s},
        {u"maxResults"_s, u"2500"_s},
        {u"timeMin"_s, u"2026-11-22T09:59:00Z"_s},
        {u"timeMax"_s, u"2026-11-29T10:00:01Z"_s},
    };
    for (const auto& [key, value] : parameters) {
        EXPECT_EQ(query.queryItemValue(key, QUrl::FullyDecoded), value) << key.toStdString();
    }
    EXPECT_FALSE(query.hasQueryItem(u"pageToken"_s));
    EXPECT_TRUE(requests[1].target.endsWith("&pageToken=CigK%2BGj%2FaW%3D%3D")) << requests[1].target.toStdString();
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer token-1");

    // A calendar that is not this account's is never asked for.
    RemoteCalendarAccountMetadata otherAccount = account;
    otherAccount.id = QUuid(u"00000000-0000-4000-8000-000000000001"_s);
    RemoteCalendarDescriptor notRemote = team;
    notRemote.identifier = u"local-calendar"_s;
    const RemoteHTTPError invalidURL(RemoteHTTPError::InvalidURL{});
    const std::pair<RemoteCalendarAccountMetadata, RemoteCalendarDescriptor> refused[] = {{otherAccount, team},
                                                                                          {account, notRemote}};
    for (const auto& [owner, descriptor] : refused) {
        try {
            runTask(google.occurrences(owner, descriptor, interval, tokens()));
            ADD_FAILURE() << "fetched " << descriptor.identifier.toStdString();
        } catch (const RemoteHTTPError& error) {
            EXPECT_EQ(error, invalidURL);
        }
    }
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(GoogleCalendarClientTest, FailuresAndRecovery)
{
    const QJsonObject emptyList{{u"kind"_s, u"calendar#calendarList"_s}, {u"items"_s, QJsonArray{}}};
    const LocalHttpResponse ok = json(emptyList);
    const QString badCredentials = u"Request had invalid authentication credentials."_s;
    const LocalHttpResponse unauthorised =
        LocalHttpResponse::json(401, googleError(401, badCredentials, u"authError"_s, u"UNAUTHENTICATED"_s));
    const auto busy = [](int code, const QByteArray& retryAfter) {
        LocalHttpResponse response = LocalHttpResponse::json(
            code, googleError(code, u"Rate Limit Exceeded"_s, u"rateLimitExceeded"_s, u"RESOURCE_EXHAUSTED"_s));
        response.headers.emplace_back("Retry-After", retryAfter);
        return response;
    };
    LocalHttpServer other;
    QJsonObject hostileFirst = emptyList;
    hostileFirst[u"nextPageToken"_s] = other.url(u"/steal"_s).toString();
    QJsonObject loop = emptyList;
    loop[u"nextPageToken"_s] = u"again"_s;

    struct Row {
        const char* name;
        std::vector<LocalHttpResponse> responses;
        std::optional<RemoteHTTPError> error;
        std::size_t requests;
    };
    const Row rows[] = {
        {"401, then the renewed token works", {unauthorised, ok}, std::nullopt, 2},
        {"401 twice", {unauthorised}, status(401, badCredentials), 2},
        {"403 without consent",
         {LocalHttpResponse::json(403, googleError(403, u"Request had insufficient authentication scopes."_s,
                                                   u"insufficientPermissions"_s, u"PERMISSION_DENIED"_s))},
         status(403, u"Request had insufficient authentication scopes."_s),
         1},
        {"404",
         {LocalHttpResponse::json(404, googleError(404, u"Not Found"_s, u"notFound"_s, u"NOT_FOUND"_s))},
         status(404, u"Not Found"_s),
         1},
        {"429 after 1 s, then success", {busy(429, "1"), ok}, std::nullopt, 2},
        {"429 until the retries run out", {busy(429, "0")}, status(429, u"Rate Limit Exceeded"_s), 3},
        {"500 without a body", {LocalHttpResponse{500, {}, {}}}, status(500), 3},
        {"503, then success", {busy(503, "0"), ok}, std::nullopt, 2},
        {"invalid JSON", {LocalHttpResponse::json(200, "{\"items\":[")}, invalidResponse, 1},
        {"page without items", {json({{u"kind"_s, u"calendar#calendarList"_s}})}, invalidResponse, 1},
        {"items not an array", {json({{u"items"_s, QJsonObject{}}})}, invalidResponse, 1},
        {"the same page token again and again", {json(loop)}, invalidResponse, 2},
        {"a page token naming another server stays a token", {json(hostileFirst), ok}, std::nullopt, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        rejected.clear();
        LocalHttpServer server;
        server.route("GET", "/calendar/v3/users/me/calendarList", inTurn(row.responses));
        auto google = client(server);
        std::optional<RemoteHTTPError> error;
        try {
            const auto group = runTask(google.calendarGroup(account, tokens()));
            EXPECT_TRUE(group.calendars.empty());
        } catch (const RemoteHTTPError& thrown) {
            error = thrown;
        }
        EXPECT_EQ(error, row.error);
        ASSERT_EQ(server.requests().size(), row.requests);
        const bool renewed = row.responses.front().status == 401;
        EXPECT_EQ(server.requests().back().header("Authorization"), renewed ? "Bearer token-2" : "Bearer token-1");
        EXPECT_EQ(rejected, renewed ? std::vector{u"token-1"_s} : std::vector<QString>{});
        EXPECT_TRUE(other.requests().empty());
    }
}

TEST(GoogleCalendarClientErrorTest, ErrorBodies)
{
    const std::pair<QByteArray, std::optional<QString>> rows[] = {
        {googleError(403, u"Calendar usage limits exceeded."_s, u"quotaExceeded"_s, u"PERMISSION_DENIED"_s),
         u"Calendar usage limits exceeded."_s},
        {R"({"error":"invalid_token","error_description":"Invalid Credentials"})", u"Invalid Credentials"_s},
        {R"({"error":"invalid_request"})", u"invalid_request"_s},
        {R"({"error":{"code":500,"message":""}})", std::nullopt},
        {"<html>Bad gateway</html>", std::nullopt},
    };
    for (const auto& [body, message] : rows) {
        EXPECT_EQ(GoogleCalendarClient::errorMessage(body), message) << body.toStdString();
    }
}

} // namespace
