// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/MicrosoftGraphCalendarClient.h"

#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "support/LocalHttpServer.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"

#include <QUrlQuery>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using namespace orvane;

namespace orvane {
inline void PrintTo(const RemoteHTTPError& error, std::ostream* out)
{
    *out << error.what();
}
inline void PrintTo(const RemoteMeetingOccurrence& value, std::ostream* out)
{
    *out << value.title.toStdString() << " series=" << value.seriesIdentifier.toStdString()
         << " occ=" << value.occurrenceStart.secondsSinceReferenceDate << " "
         << value.startDate.secondsSinceReferenceDate << "-" << value.endDate.secondsSinceReferenceDate
         << " allDay=" << value.isAllDay << " canceled=" << value.isCanceled
         << " status=" << rawValue(value.participationStatus).toStdString() << " attendees=" << value.hasAttendees
         << " location=" << value.location.value_or(u"-"_s).toStdString() << " recurring=" << value.isRecurring
         << " url=" << (value.meetingURL ? value.meetingURL->toString().toStdString() : "-")
         << " uid=" << value.iCalendarUID.value_or(u"-"_s).toStdString();
}
} // namespace orvane

namespace {

Date utc(const QString& text)
{
    return Date::fromDateTime(QDateTime::fromString(text, Qt::ISODateWithMs));
}

QString queryValue(const LocalHttpRequest& request, const QString& key)
{
    const QByteArray& target = request.target;
    return QUrlQuery(QString::fromUtf8(target.mid(target.indexOf('?') + 1))).queryItemValue(key, QUrl::FullyDecoded);
}

/// Answers each request to a path with the next response of a list; the last one repeats.
LocalHttpServer::Handler sequence(std::vector<LocalHttpResponse> responses)
{
    auto served = std::make_shared<std::size_t>(0);
    return [responses = std::move(responses), served](const LocalHttpRequest&) {
        return responses[std::min((*served)++, responses.size() - 1)];
    };
}

QByteArray graphError(const QByteArray& code, const QByteArray& message)
{
    return R"({"error":{"code":")" + code + R"(","message":")" + message +
           R"(","innerError":{"date":"2026-11-22T10:00:00","request-id":"5f1c","client-request-id":"5f1c"}}})";
}

class MicrosoftGraphCalendarClientTest : public ::testing::Test {
protected:
    MicrosoftGraphCalendarClientTest()
    {
        account.id = QUuid(u"{6f9619ff-8b86-d011-b42d-00c04fc964ff}"_s);
        account.provider = RemoteCalendarProviderKind::microsoft;
        account.providerAccountIdentifier = u"48d31887-5fad-4d73-a9f5-3c356e68a038"_s;
        account.displayName = u"Ada Lovelace"_s;
        account.emailAddress = u"ada@contoso.com"_s;
    }

    /// "token-1" first; a refused token is replaced by "token-2".
    RemoteAccessTokenProvider tokens()
    {
        return [this](std::optional<QString> rejected) -> QCoro::Task<QString> {
            rejectedTokens.push_back(rejected);
            co_return rejected ? u"token-2"_s : u"token-1"_s;
        };
    }

    RemoteCalendarDescriptor calendarNamed(const QString& providerID)
    {
        return {
            RemoteCalendarIdentityNamespace::calendarIdentifier(account, providerID), u"Calendar"_s, {}, false, true};
    }

    LocalHttpServer server;
    NetworkRemoteHTTPTransport transport;
    MicrosoftGraphCalendarClient client{transport,
                                        {server.url(QString())},
                                        {.maximumRetries = 2,
                                         .maximumRetryDelay = 2s,
                                         .defaultRetryDelay = 10ms,
                                         .requestTimeout = 5s,
                                         .maximumPages = 20}};
    RemoteCalendarAccountMetadata account;
    std::vector<std::optional<QString>> rejectedTokens;
};

TEST_F(MicrosoftGraphCalendarClientTest, ProfileNamesUserAndTenantOfWorkAndPersonalAccounts)
{
    struct Row {
        const char* name;
        QByteArray me;
        LocalHttpResponse organization;
        RemoteAccountProfile expected;
    };
    const Row rows[] = {
        {"work account",
         R"({"@odata.context":"https://graph.microsoft.com/v1.0/$metadata#users(id,displayName,mail,userPrincipalName)/$entity",
             "id":"48d31887","displayName":"Megan Bowen","mail":"MeganB@contoso.com","userPrincipalName":"meganb@contoso.onmicrosoft.com"})",
         LocalHttpResponse::json(200, R"({"value":[{"id":"84841066-274d-4ec0-a5c1-276be684bdd3"}]})"),
         {u"48d31887"_s, u"84841066-274d-4ec0-a5c1-276be684bdd3"_s, u"Megan Bowen"_s, u"MeganB@contoso.com"_s}},
        {"personal account, empty organisation list",
         R"({"id":"00000000-0000-0000-8d1c-5b3c8d8a2f3e","displayName":"","mail":null,"userPrincipalName":"ada@outlook.com"})",
         LocalHttpResponse::json(200, R"({"value":[]})"),
         {u"00000000-0000-0000-8d1c-5b3c8d8a2f3e"_s, {}, u"ada@outlook.com"_s, u"ada@outlook.com"_s}},
        {"organisation refused",
         R"({"id":"a1","displayName":"Ada","mail":"ada@outlook.com"})",
         LocalHttpResponse::json(403, graphError("Authorization_RequestDenied", "Insufficient privileges.")),
         {u"a1"_s, {}, u"Ada"_s, u"ada@outlook.com"_s}},
        {"organisation not found",
         R"({"id":"a2","mail":null,"userPrincipalName":null})",
         LocalHttpResponse::json(404, graphError("ResourceNotFound", "Not found.")),
         {u"a2"_s, {}, QString(), {}}},
    };
    for (const Row& row : rows) {
        server.route("GET", "/v1.0/me", LocalHttpResponse::json(200, row.me));
        server.route("GET", "/v1.0/organization", row.organization);
        EXPECT_EQ(runTask(client.accountProfile(tokens())), row.expected) << row.name;
    }
    const LocalHttpRequest me = server.requestsFor("/v1.0/me").front();
    EXPECT_EQ(me.header("Authorization"), "Bearer token-1");
    EXPECT_EQ(queryValue(me, u"$select"_s), u"id,displayName,mail,userPrincipalName"_s);
    EXPECT_EQ(queryValue(server.requestsFor("/v1.0/organization").front(), u"$select"_s), u"id"_s);

    // Anything but "no organisation" on the tenant lookup is a failure, not a personal account.
    server.route("GET", "/v1.0/organization", LocalHttpResponse::json(400, graphError("BadRequest", "Bad.")));
    EXPECT_THROW(runTask(client.accountProfile(tokens())), RemoteHTTPError);
    server.route("GET", "/v1.0/me", LocalHttpResponse::json(200, R"({"displayName":"No id"})"));
    EXPECT_THROW(runTask(client.accountProfile(tokens())), RemoteHTTPError);
}

TEST_F(MicrosoftGraphCalendarClientTest, CalendarsFromAllPagesDefaultFirstThenByTitle)
{
    const QByteArray nextLink = server.url(u"/v1.0/me/calendars?$select=id,name&$top=100&$skiptoken=X2"_s).toEncoded();
    server.route("GET", "/v1.0/me/calendars", [nextLink](const LocalHttpRequest& request) {
        if (request.target.contains("skiptoken")) {
            return LocalHttpResponse::json(200, R"({"value":[
                {"id":"AAMkAGI2=","name":"Agenda","color":"lightBlue","hexColor":"#00bcf2","canEdit":true,
                 "isDefaultCalendar":false,"owner":{"name":"Ada","address":"Ada@Contoso.com"}}]})");
        }
        return LocalHttpResponse::json(
            200, R"({"@odata.context":"https://graph.microsoft.com/v1.0/$metadata#users('ada')/calendars",
            "value":[
                {"id":"AAMkAGI3=","name":"team","color":"auto","hexColor":"","canEdit":false,"isDefaultCalendar":false,
                 "owner":{"name":"Bob","address":"bob@contoso.com"}},
                {"name":"No id"},
                {"id":"AAMkAGI1=","name":"Calendar","color":"auto","hexColor":"#a1b2c3","canEdit":true,
                 "isDefaultCalendar":true,"owner":{"name":"Ada","address":"ada@contoso.com"}},
                {"id":"AAMkAGI4=","name":"Birthdays","hexColor":"red","canEdit":false,"isDefaultCalendar":false}
            ],"@odata.nextLink":")" +
                     nextLink + R"("})");
    });

    const RemoteCalendarGroup group = runTask(client.calendarGroup(account, tokens()));

    const auto calendar = [this](const char* id, const char* title, std::optional<QString> color, bool subscribed,
                                 bool editable) {
        return RemoteCalendarDescriptor{
            RemoteCalendarIdentityNamespace::calendarIdentifier(account, QString::fromUtf8(id)),
            QString::fromUtf8(title), color, subscribed, editable};
    };
    const RemoteCalendarGroup expected{
        RemoteCalendarIdentityNamespace::sourceIdentifier(account, account.providerAccountIdentifier),
        u"ada@contoso.com"_s,
        {calendar("AAMkAGI1=", "Calendar", u"#A1B2C3"_s, false, true),
         calendar("AAMkAGI2=", "Agenda", u"#00BCF2"_s, false, true),
         calendar("AAMkAGI4=", "Birthdays", {}, false, false), calendar("AAMkAGI3=", "team", {}, true, false)}};
    EXPECT_EQ(group, expected);

    const auto requests = server.requestsFor("/v1.0/me/calendars");
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(queryValue(requests[0], u"$select"_s), u"id,name,color,hexColor,canEdit,isDefaultCalendar,owner"_s);
    EXPECT_EQ(queryValue(requests[0], u"$top"_s), u"100"_s);
    EXPECT_EQ(queryValue(requests[1], u"$skiptoken"_s), u"X2"_s);
    EXPECT_EQ(requests[1].header("Authorization"), "Bearer token-1");
}

TEST_F(MicrosoftGraphCalendarClientTest, EventsMapToOccurrencesAndMalformedOnesAreSkipped)
{
    const QString providerCalendarID = u"AAMk+Ad/w@x#y=="_s;
    const RemoteCalendarDescriptor calendar = calendarNamed(providerCalendarID);
    const auto series = [this](const char* id) {
        return RemoteCalendarIdentityNamespace::seriesIdentifier(account, QString::fromUtf8(id));
    };
    const auto occurrence = [&](const QString& title, Date start, Date end,
                                const std::function<void(RemoteMeetingOccurrence&)>& adjust) {
        RemoteMeetingOccurrence result{calendar, series(title.toUtf8().constData()), start, title, start, end};
        adjust(result);
        return result;
    };
    const auto untitled = [](RemoteMeetingOccurrence& o) {
        o.title = u"Untitled event"_s;
    };
    struct Row {
        QByteArray event;
        std::optional<RemoteMeetingOccurrence> expected;
    };
    const std::vector<Row> rows = {
        {R"({"id":"single","subject":"single","type":"singleInstance","isAllDay":false,"isCancelled":false,
            "start":{"dateTime":"2026-11-23T09:00:00.0000000","timeZone":"UTC"},
            "end":{"dateTime":"2026-11-23T09:30:00.5000000","timeZone":"UTC"},
            "responseStatus":{"response":"tentativelyAccepted","time":"2026-11-20T10:00:00Z"},"isOrganizer":false,
            "attendees":[{"type":"required","status":{"response":"tentativelyAccepted"},"emailAddress":{"name":"Ada","address":"ada@contoso.com"}},
                         {"type":"resource","status":{"response":"accepted"},"emailAddress":{"name":"Room 1","address":"room1@contoso.com"}},
                         {"type":"optional","status":{"response":"none"},"emailAddress":{"name":"Bob","address":"bob@contoso.com"}}],
            "organizer":{"emailAddress":{"name":"Bob","address":"bob@contoso.com"}},
            "location":{"displayName":"Room 1","locationType":"conferenceRoom"},"isOnlineMeeting":true,
            "onlineMeeting":{"joinUrl":"https://teams.microsoft.com/l/meetup-join/19%3ameeting_1"},
            "body":{"contentType":"text","content":"Agenda: https://zoom.us/j/1"},"iCalUId":"040000008200E001"})",
         occurrence(u"single"_s, utc(u"2026-11-23T09:00:00Z"_s), utc(u"2026-11-23T09:30:00Z"_s) + 0.5,
                    [](RemoteMeetingOccurrence& o) {
                        o.participationStatus = MeetingParticipationStatus::tentative;
                        o.hasAttendees = true;
                        o.location = u"Room 1"_s;
                        o.meetingURL = QUrl(u"https://teams.microsoft.com/l/meetup-join/19%3ameeting_1"_s);
                        o.iCalendarUID = u"040000008200E001"_s;
                    })},
        {R"({"id":"moved","subject":"moved","type":"exception","seriesMasterId":"master-1","originalStart":"2026-11-24T08:00:00Z",
            "start":{"dateTime":"2026-11-24T10:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-24T11:00:00.0000000","timeZone":"UTC"},
            "responseStatus":{"response":"organizer"},"isOrganizer":true,"iCalUId":"040000008200E002",
            "attendees":[{"type":"required","emailAddress":{"address":"ADA@contoso.com"}},{"type":"resource","emailAddress":{"address":"room1@contoso.com"}}],
            "organizer":{"emailAddress":{"address":"ada@contoso.com"}},"location":{"displayName":""},"body":{"content":""}})",
         occurrence(u"moved"_s, utc(u"2026-11-24T10:00:00Z"_s), utc(u"2026-11-24T11:00:00Z"_s),
                    [&](RemoteMeetingOccurrence& o) {
                        o.seriesIdentifier = series("master-1");
                        o.occurrenceStart = utc(u"2026-11-24T08:00:00Z"_s);
                        o.participationStatus = MeetingParticipationStatus::accepted;
                        o.isRecurring = true;
                    })},
        {R"({"id":"weekly","subject":"weekly","type":"occurrence","seriesMasterId":"master-2","isCancelled":true,
            "start":{"dateTime":"2026-11-25T09:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-25T09:15:00.0000000","timeZone":"UTC"},
            "responseStatus":{"response":"notResponded"},"isOrganizer":false,
            "attendees":[{"type":"required","emailAddress":{"address":"ada@contoso.com"}}],
            "organizer":{"emailAddress":{"address":"carol@fabrikam.com"}},"onlineMeeting":null,
            "onlineMeetingUrl":"https://example.com/join/7"})",
         occurrence(u"weekly"_s, utc(u"2026-11-25T09:00:00Z"_s), utc(u"2026-11-25T09:15:00Z"_s),
                    [&](RemoteMeetingOccurrence& o) {
                        o.seriesIdentifier = series("master-2");
                        o.isCanceled = true;
                        o.isRecurring = true;
                        o.hasAttendees = true; // the organiser, though only the user is listed
                        o.participationStatus = MeetingParticipationStatus::pending;
                        o.meetingURL = QUrl(u"https://example.com/join/7"_s);
                    })},
        {R"({"id":"holiday","subject":"holiday","type":"singleInstance","isAllDay":true,
            "start":{"dateTime":"2026-11-26T00:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-27T00:00:00.0000000","timeZone":"UTC"},
            "responseStatus":{"response":"organizer"},"isOrganizer":true,"attendees":[],
            "location":{"displayName":"Home"},"body":{"content":"Dial in: https://contoso.zoom.us/j/42 please"}})",
         occurrence(u"holiday"_s, utc(u"2026-11-26T00:00:00Z"_s), utc(u"2026-11-27T00:00:00Z"_s),
                    [](RemoteMeetingOccurrence& o) {
                        o.isAllDay = true;
                        o.location = u"Home"_s;
                        o.meetingURL = QUrl(u"https://contoso.zoom.us/j/42"_s);
                    })},
        {R"({"id":"zoned","subject":"zoned","start":{"dateTime":"2026-11-23T09:00:00","timeZone":"Pacific Standard Time"},
            "end":{"dateTime":"2026-11-23T19:00:00.0000000","timeZone":"Europe/Berlin"},"responseStatus":{"response":"none"},
            "attendees":[{"type":"required","emailAddress":{"address":"bob@contoso.com"}}]})",
         occurrence(u"zoned"_s, utc(u"2026-11-23T17:00:00Z"_s), utc(u"2026-11-23T18:00:00Z"_s),
                    [](RemoteMeetingOccurrence& o) { o.hasAttendees = true; })},
        // Missing, null or empty: the alert still needs a title.
        {R"({"id":"no subject","start":{"dateTime":"2026-11-27T09:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-27T10:00:00.0000000","timeZone":"UTC"}})",
         occurrence(u"no subject"_s, utc(u"2026-11-27T09:00:00Z"_s), utc(u"2026-11-27T10:00:00Z"_s), untitled)},
        {R"({"id":"null subject","subject":null,"start":{"dateTime":"2026-11-27T11:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-27T12:00:00.0000000","timeZone":"UTC"}})",
         occurrence(u"null subject"_s, utc(u"2026-11-27T11:00:00Z"_s), utc(u"2026-11-27T12:00:00Z"_s), untitled)},
        {R"({"id":"empty subject","subject":"","start":{"dateTime":"2026-11-27T13:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-27T14:00:00.0000000","timeZone":"UTC"}})",
         occurrence(u"empty subject"_s, utc(u"2026-11-27T13:00:00Z"_s), utc(u"2026-11-27T14:00:00Z"_s), untitled)},
        {R"({"id":"master","subject":"master","type":"seriesMaster","start":{"dateTime":"2026-11-23T09:00:00.0000000","timeZone":"UTC"},
            "end":{"dateTime":"2026-11-23T10:00:00.0000000","timeZone":"UTC"}})",
         std::nullopt},
        {R"({"subject":"no id","start":{"dateTime":"2026-11-23T09:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-23T10:00:00.0000000","timeZone":"UTC"}})",
         std::nullopt},
        {R"({"id":"bad start","start":{"dateTime":"tomorrow","timeZone":"UTC"},"end":{"dateTime":"2026-11-23T10:00:00.0000000","timeZone":"UTC"}})",
         std::nullopt},
        {R"({"id":"backwards","start":{"dateTime":"2026-11-23T10:00:00.0000000","timeZone":"UTC"},"end":{"dateTime":"2026-11-23T09:00:00.0000000","timeZone":"UTC"}})",
         std::nullopt},
        {R"({"id":"unknown zone","start":{"dateTime":"2026-11-23T09:00:00.0000000","timeZone":"Mars/Olympus Mons"},"end":{"dateTime":"2026-11-23T10:00:00.0000000","timeZone":"UTC"}})",
         std::nullopt},
        {R"("not an event")", std::nullopt},
    };
    // Even rows on the first page, odd rows on the second.
    QByteArray pages[2];
    std::vector<RemoteMeetingOccurrence> expected;
    for (std::size_t pageIndex : {0U, 1U}) {
        for (std::size_t index = pageIndex; index < rows.size(); index += 2) {
            pages[pageIndex] += (pages[pageIndex].isEmpty() ? "" : ",") + rows[index].event;
            if (rows[index].expected) {
                expected.push_back(*rows[index].expected);
            }
        }
    }
    const QByteArray path = "/v1.0/me/calendars/" + QUrl::toPercentEncoding(providerCalendarID) + "/calendarView";
    const QByteArray nextLink = server.url(QString::fromUtf8(path) + u"?$skiptoken=P2"_s).toEncoded();
    server.route("GET", path, [&](const LocalHttpRequest& request) {
        return request.target.contains("skiptoken")
                   ? LocalHttpResponse::json(200, R"({"value":[)" + pages[1] + "]}")
                   : LocalHttpResponse::json(200, R"({"value":[)" + pages[0] + R"(],"@odata.nextLink":")" + nextLink +
                                                      R"("})");
    });

    const FetchInterval interval{utc(u"2026-11-22T10:00:00.400Z"_s), utc(u"2026-11-29T09:59:59.600Z"_s)};
    const auto occurrences = runTask(client.occurrences(account, calendar, interval, tokens()));

    EXPECT_EQ(occurrences, expected);
    const auto requests = server.requestsFor(path);
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(queryValue(requests[0], u"startDateTime"_s), u"2026-11-22T10:00:00Z"_s);
    EXPECT_EQ(queryValue(requests[0], u"endDateTime"_s), u"2026-11-29T10:00:00Z"_s);
    EXPECT_EQ(queryValue(requests[0], u"$top"_s), u"250"_s);
    EXPECT_TRUE(queryValue(requests[0], u"$select"_s).startsWith(u"id,subject,start,end,isAllDay,isCancelled,type,"_s));
    for (const LocalHttpRequest& request : requests) {
        EXPECT_EQ(request.header("Prefer"), R"(outlook.timezone="UTC", outlook.body-content-type="text")");
        EXPECT_EQ(request.header("Authorization"), "Bearer token-1");
    }

    // A calendar identity that is not this account's is never sent anywhere.
    RemoteCalendarAccountMetadata other = account;
    other.id = QUuid(u"{00000000-0000-0000-0000-000000000001}"_s);
    for (const QString& identifier :
         {RemoteCalendarIdentityNamespace::calendarIdentifier(other, providerCalendarID), u"not an identity"_s}) {
        RemoteCalendarDescriptor foreign = calendar;
        foreign.identifier = identifier;
        EXPECT_EQ(
            [&] {
                try {
                    runTask(client.occurrences(account, foreign, interval, tokens()));
                } catch (const RemoteHTTPError& error) {
                    return std::optional(error);
                }
                return std::optional<RemoteHTTPError>();
            }(),
            RemoteHTTPError(RemoteHTTPError::InvalidURL{}));
    }
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(MicrosoftGraphCalendarClientTest, ServiceFailuresCarryGraphsMessage)
{
    const QByteArray page = R"({"value":[{"id":"c1","name":"Calendar","isDefaultCalendar":true}]})";
    const QByteArray expired =
        graphError("InvalidAuthenticationToken", "Access token has expired or is not yet valid.");
    const QByteArray throttled = graphError("TooManyRequests", "Please retry again later.");
    const QByteArray unavailable = graphError("serviceNotAvailable", "The service is temporarily unavailable.");
    const auto json = LocalHttpResponse::json;
    const LocalHttpResponse retryNow{429, {{"Content-Type", "application/json"}, {"Retry-After", "0"}}, throttled};
    using Status = RemoteHTTPError::UnexpectedStatus;
    struct Row {
        const char* name;
        std::vector<LocalHttpResponse> responses;
        std::optional<RemoteHTTPError> error;
        std::size_t requests;
    };
    const Row rows[] = {
        {"token renewed", {json(401, expired), json(200, page)}, std::nullopt, 2},
        {"renewed token refused too",
         {json(401, expired)},
         RemoteHTTPError(Status{401, u"Access token has expired or is not yet valid."_s}),
         2},
        {"no consent",
         {json(403, graphError("ErrorAccessDenied", "Access is denied. Check credentials and try again."))},
         RemoteHTTPError(Status{403, u"Access is denied. Check credentials and try again."_s}),
         1},
        {"not found",
         {json(404, graphError("ErrorItemNotFound", "The specified object was not found in the store."))},
         RemoteHTTPError(Status{404, u"The specified object was not found in the store."_s}),
         1},
        {"throttled once", {retryNow, json(200, page)}, std::nullopt, 2},
        {"throttled throughout", {retryNow}, RemoteHTTPError(Status{429, u"Please retry again later."_s}), 3},
        {"busy, then fine", {json(500, unavailable), json(503, unavailable), json(200, page)}, std::nullopt, 3},
        {"unavailable throughout",
         {json(503, unavailable)},
         RemoteHTTPError(Status{503, u"The service is temporarily unavailable."_s}),
         3},
        {"error without Graph's shape",
         {{500, {}, "<html>Server Error</html>"}},
         RemoteHTTPError(Status{500, std::nullopt}),
         3},
        {"invalid JSON", {json(200, R"({"value":[)")}, RemoteHTTPError(RemoteHTTPError::InvalidResponse{}), 1},
        {"value not an array",
         {json(200, R"({"value":{"id":"c1"}})")},
         RemoteHTTPError(RemoteHTTPError::InvalidResponse{}),
         1},
        {"next link not a URL",
         {json(200, R"({"value":[],"@odata.nextLink":42})")},
         RemoteHTTPError(RemoteHTTPError::InvalidResponse{}),
         1},
    };
    for (const Row& row : rows) {
        LocalHttpServer service;
        service.route("GET", "/v1.0/me/calendars", sequence(row.responses));
        MicrosoftGraphCalendarClient rowClient(transport, {service.url(QString())},
                                               {.maximumRetries = 2, .defaultRetryDelay = 10ms, .requestTimeout = 5s});
        rejectedTokens.clear();
        std::optional<RemoteHTTPError> error;
        try {
            EXPECT_EQ(runTask(rowClient.calendarGroup(account, tokens())).calendars.size(), 1U) << row.name;
        } catch (const RemoteHTTPError& thrown) {
            error = thrown;
        }
        EXPECT_EQ(error, row.error) << row.name;
        ASSERT_EQ(service.requests().size(), row.requests) << row.name;
        const bool renewed = row.responses.front().status == 401;
        EXPECT_EQ(service.requests().back().header("Authorization"), renewed ? "Bearer token-2" : "Bearer token-1")
            << row.name;
        if (renewed) {
            EXPECT_EQ(rejectedTokens.back(), u"token-1"_s) << row.name;
        }
    }
}

TEST_F(MicrosoftGraphCalendarClientTest, NextPageOnAnotherOriginIsNeverRequested)
{
    LocalHttpServer elsewhere;
    elsewhere.route("GET", "/v1.0/me/calendars", LocalHttpResponse::json(200, R"({"value":[]})"));
    server.route("GET", "/v1.0/me/calendars",
                 LocalHttpResponse::json(200, R"({"value":[],"@odata.nextLink":")" +
                                                  elsewhere.url(u"/v1.0/me/calendars?$skiptoken=1"_s).toEncoded() +
                                                  R"("})"));
    try {
        runTask(client.calendarGroup(account, tokens()));
        ADD_FAILURE() << "a page elsewhere was followed";
    } catch (const RemoteHTTPError& error) {
        EXPECT_EQ(error, RemoteHTTPError(RemoteHTTPError::CrossOriginRedirect{}));
    }
    EXPECT_TRUE(elsewhere.requests().empty());
}

} // namespace
