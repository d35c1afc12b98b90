// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/GoogleCalendarClient.h"

#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "cloud/RemoteMeetingOccurrence.h"
#include "domain/MeetingLinkDetector.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QTimeZone>
#include <QUrlQuery>

#include <algorithm>
#include <cmath>
#include <utility>

namespace orvane {

using namespace Qt::StringLiterals;

namespace {

/// The event types of statuses a user sets on their own calendar (away, heads-down, working from somewhere): events
/// to Google, but nothing anyone is called to. Other types, including ones Google adds later, are kept.
const QStringList statusEventTypes = {u"outOfOffice"_s, u"focusTime"_s, u"workingLocation"_s};

[[noreturn]] void throwInvalidResponse()
{
    throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
}

/// Adds a query item whose value is fully percent-encoded: QUrlQuery would otherwise send a '+' (in a page token or
/// a time offset) as is, which the service reads as a space, and decode a '%' that belongs to the value.
void addQueryItem(QUrlQuery& query, const QString& key, const QString& value)
{
    query.addQueryItem(key, QString::fromLatin1(QUrl::toPercentEncoding(value)));
}

/// `base` with the path segments appended, each percent-encoded whole (calendar ids contain '@', '#' and '/').
QUrl serviceURL(const QUrl& base, const QStringList& segments, const QUrlQuery& query = {})
{
    QString path = base.path(QUrl::FullyEncoded);
    while (path.endsWith(u'/')) {
        path.chop(1);
    }
    for (const QString& segment : segments) {
        path += u'/' + QString::fromLatin1(QUrl::toPercentEncoding(segment));
    }
    QUrl url = base;
    url.setPath(path, QUrl::StrictMode);
    url.setQuery(query);
    if (!url.isValid() || url.host().isEmpty()) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidURL{});
    }
    return url;
}

/// The items of a list page, which must be an array even when empty: a reply without one is not a list.
QJsonArray pageItems(const QJsonObject& page)
{
    const QJsonValue items = page.value(u"items"_s);
    if (!items.isArray()) {
        throwInvalidResponse();
    }
    return items.toArray();
}

/// The page token of the page after `page`; absent on the last page.
std::optional<QString> nextPageToken(const QJsonObject& page)
{
    const QJsonValue token = page.value(u"nextPageToken"_s);
    if (token.isUndefined() || token.isNull()) {
        return std::nullopt;
    }
    if (!token.isString()) {
        throwInvalidResponse();
    }
    return token.toString().isEmpty() ? std::nullopt : std::optional(token.toString());
}

std::optional<QString> nonBlankString(const QJsonValue& value)
{
    const QString text = value.toString();
    return text.trimmed().isEmpty() ? std::nullopt : std::optional(text);
}

/// "#rrggbb" in either case, upper-cased; anything else is no colour.
std::optional<QString> colorHex(const QJsonValue& value)
{
    const QString text = value.toString();
    const auto isHexDigit = [](QChar c) {
        return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
    };
    const bool isHex =
        text.size() == 7 && text.front() == u'#' && std::all_of(text.cbegin() + 1, text.cend(), isHexDigit);
    return isHex ? std::optional(text.toUpper()) : std::nullopt;
}

std::optional<RemoteCalendarDescriptor> calendarFromEntry(const QJsonObject& entry,
                                                          const RemoteCalendarAccountMetadata& account)
{
    const QString id = entry.value(u"id"_s).toString();
    if (id.isEmpty() || entry.value(u"deleted"_s).toBool()) {
        return std::nullopt;
    }
    const QString accessRole = entry.value(u"accessRole"_s).toString();
    return RemoteCalendarDescriptor{
        .identifier = RemoteCalendarIdentityNamespace::calendarIdentifier(account, id),
        .title = nonBlankString(entry.value(u"summaryOverride"_s))
                     .value_or(nonBlankString(entry.value(u"summary"_s)).value_or(id)),
        .colorHex = colorHex(entry.value(u"backgroundColor"_s)),
        .isSubscribed = accessRole == u"reader"_s || accessRole == u"freeBusyReader"_s,
        .allowsContentModifications = accessRole == u"owner"_s || accessRole == u"writer"_s,
    };
}

/// A start or end of an event: a moment, or a whole day at local midnight.
struct EventTime {
    QDateTime dateTime;
    bool isDate = false;
};

/// Reads `{"dateTime": RFC 3339}` or `{"date": "yyyy-mm-dd"}`; absent when the value is neither.
std::optional<EventTime> eventTime(const QJsonValue& value)
{
    const QJsonObject object = value.toObject();
    if (const QJsonValue dateTime = object.value(u"dateTime"_s); dateTime.isString()) {
        const QString text = dateTime.toString().trimmed();
        // Qt would read a bare date as a moment; here it is a malformed time.
        if (!text.contains(u'T')) {
            return std::nullopt;
        }
        QDateTime parsed = QDateTime::fromString(text, Qt::ISODateWithMs);
        if (!parsed.isValid()) {
            return std::nullopt;
        }
        if (parsed.timeSpec() == Qt::LocalTime) {
            // Without an offset the time is meant in the zone Google names beside it.
            const QTimeZone zone(object.value(u"timeZone"_s).toString().toUtf8());
            parsed.setTimeZone(zone.isValid() ? zone : QTimeZone::systemTimeZone());
        }
        return EventTime{parsed, false};
    }
    if (const QJsonValue date = object.value(u"date"_s); date.isString()) {
        const QDate parsed = QDate::fromString(date.toString(), Qt::ISODate);
        if (!parsed.isValid()) {
            return std::nullopt;
        }
        return EventTime{QDateTime(parsed, QTime(0, 0), QTimeZone::systemTimeZone()), true};
    }
    return std::nullopt;
}

MeetingParticipationStatus participationStatus(const QString& responseStatus)
{
    if (responseStatus == u"needsAction"_s) {
        return MeetingParticipationStatus::pending;
    }
    if (responseStatus == u"accepted"_s) {
        return MeetingParticipationStatus::accepted;
    }
    if (responseStatus == u"declined"_s) {
        return MeetingParticipationStatus::declined;
    }
    if (responseStatus == u"tentative"_s) {
        return MeetingParticipationStatus::tentative;
    }
    return MeetingParticipationStatus::unknown;
}

/// The conference's own join link: the video entry point, else the Meet link Google sets on older events.
std::optional<QUrl> structuredMeetingURL(const QJsonObject& event)
{
    const QJsonArray entryPoints = event.value(u"conferenceData"_s).toObject().value(u"entryPoints"_s).toArray();
    for (const QJsonValue& value : entryPoints) {
        const QJsonObject entryPoint = value.toObject();
        if (entryPoint.value(u"entryPointType"_s).toString() == u"video"_s) {
            if (const auto uri = nonBlankString(entryPoint.value(u"uri"_s))) {
                return QUrl(uri->trimmed());
            }
        }
    }
    if (const auto hangoutLink = nonBlankString(event.value(u"hangoutLink"_s))) {
        return QUrl(hangoutLink->trimmed());
    }
    return std::nullopt;
}

/// One item of an events list page; absent for an event too malformed to alert for.
std::optional<RemoteMeetingOccurrence> occurrenceFromEvent(const QJsonObject& event,
                                                           const RemoteCalendarAccountMetadata& account,
                                                           const RemoteCalendarDescriptor& calendar)
{
    const QString id = event.value(u"id"_s).toString();
    if (id.isEmpty() || statusEventTypes.contains(event.value(u"eventType"_s).toString())) {
        return std::nullopt;
    }
    const bool isCanceled = event.value(u"status"_s).toString() == u"cancelled"_s;
    const QString recurringEventId = event.value(u"recurringEventId"_s).toString();

    const QJsonValue originalStartValue = event.value(u"originalStartTime"_s);
    const std::optional<EventTime> originalStart = eventTime(originalStartValue);
    if (!originalStart && !originalStartValue.isUndefined() && !originalStartValue.isNull()) {
        return std::nullopt;
    }
    std::optional<EventTime> start = eventTime(event.value(u"start"_s));
    std::optional<EventTime> end = eventTime(event.value(u"end"_s));
    if (isCanceled && !start && !end && originalStart) {
        // A cancelled occurrence of a series may carry nothing but the start it had; it still names the occurrence
        // whose alert must not fire.
        start = originalStart;
        end = originalStart;
    }
    if (!start || !end || end->dateTime < start->dateTime) {
        return std::nullopt;
    }

    std::optional<MeetingParticipationStatus> ownResponse;
    bool hasAttendees = false;
    const QJsonValue attendeesValue = event.value(u"attendees"_s);
    for (const QJsonValue& value : attendeesValue.toArray()) {
        const QJsonObject attendee = value.toObject();
        if (attendee.value(u"self"_s).toBool()) {
            ownResponse = participationStatus(attendee.value(u"responseStatus"_s).toString());
        } else if (!attendee.value(u"resource"_s).toBool()) {
            hasAttendees = true;
        }
    }
    MeetingParticipationStatus participation = MeetingParticipationStatus::unknown;
    if (ownResponse) {
        participation = *ownResponse;
    } else if (!attendeesValue.toArray().isEmpty() &&
               event.value(u"organizer"_s).toObject().value(u"self"_s).toBool()) {
        participation = MeetingParticipationStatus::accepted;
    }

    const std::optional<QString> location = nonBlankString(event.value(u"location"_s));
    const std::optional<QString> description = nonBlankString(event.value(u"description"_s));
    const Date startDate = Date::fromDateTime(start->dateTime);
    return RemoteMeetingOccurrence{
        .calendar = calendar,
        .seriesIdentifier = RemoteCalendarIdentityNamespace::seriesIdentifier(
            account, recurringEventId.isEmpty() ? id : recurringEventId),
        .occurrenceStart = originalStart ? Date::fromDateTime(originalStart->dateTime) : startDate,
        .title = occurrenceTitle(event.value(u"summary"_s).toString()),
        .startDate = startDate,
        .endDate = Date::fromDateTime(end->dateTime),
        .isAllDay = start->isDate,
        .isCanceled = isCanceled,
        .participationStatus = participation,
        .hasAttendees = hasAttendees,
        .location = location,
        .isRecurring = !recurringEventId.isEmpty(),
        .meetingURL = MeetingLinkDetector::detect(structuredMeetingURL(event), location, description),
        .iCalendarUID = nonBlankString(event.value(u"iCalUID"_s)),
    };
}

/// A bound of the events query in UTC, whole seconds: "2026-11-22T10:00:00Z".
QString utcTimestamp(double unixSeconds)
{
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(unixSeconds), QTimeZone::utc())
        .toString(u"yyyy-MM-dd'T'HH:mm:ss'Z'"_s);
}

} // namespace

GoogleCalendarClient::Endpoints GoogleCalendarClient::Endpoints::production()
{
    return {.apiBase = QUrl(u"https://www.googleapis.com"_s),
            .openIdBase = QUrl(u"https://openidconnect.googleapis.com"_s)};
}

GoogleCalendarClient::GoogleCalendarClient(RemoteHTTPTransport& transport, Endpoints endpoints,
                                           RemoteJSONRequester::Options options)
    : m_endpoints(std::move(endpoints))
    , m_requester(transport, &GoogleCalendarClient::errorMessage, options)
{
}

std::optional<QString> GoogleCalendarClient::errorMessage(const QByteArray& body)
{
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    const QJsonValue error = object.value(u"error"_s);
    std::optional<QString> message;
    if (error.isObject()) {
        message = nonBlankString(error.toObject().value(u"message"_s));
    } else if (error.isString()) {
        message = nonBlankString(object.value(u"error_description"_s));
        if (!message) {
            message = nonBlankString(error);
        }
    }
    return message;
}

QCoro::Task<RemoteAccountProfile> GoogleCalendarClient::accountProfile(RemoteAccessTokenProvider accessToken)
{
    const QUrl url = serviceURL(m_endpoints.openIdBase, {u"v1"_s, u"userinfo"_s});
    QCoro::Task<QJsonObject> request = m_requester.get(url, std::move(accessToken));
    const QJsonObject info = co_await std::move(request);
    const QString subject = info.value(u"sub"_s).toString();
    if (subject.isEmpty()) {
        throwInvalidResponse();
    }
    const std::optional<QString> email = nonBlankString(info.value(u"email"_s));
    co_return RemoteAccountProfile{
        .providerAccountIdentifier = subject,
        .tenantIdentifier = std::nullopt,
        .displayName = nonBlankString(info.value(u"name"_s)).value_or(email.value_or(QString())),
        .emailAddress = email,
    };
}

QCoro::Task<RemoteCalendarGroup> GoogleCalendarClient::calendarGroup(RemoteCalendarAccountMetadata account,
                                                                     RemoteAccessTokenProvider accessToken)
{
    const QUrl base = m_endpoints.apiBase;
    const auto pageURL = [base](const std::optional<QString>& pageToken) {
        QUrlQuery query;
        addQueryItem(query, u"maxResults"_s, u"250"_s);
        if (pageToken) {
            addQueryItem(query, u"pageToken"_s, *pageToken);
        }
        return serviceURL(base, {u"calendar"_s, u"v3"_s, u"users"_s, u"me"_s, u"calendarList"_s}, query);
    };

    struct Listed {
        RemoteCalendarDescriptor calendar;
        bool isPrimary = false;
    };
    std::vector<Listed> listed;
    RemoteJSONRequester::PageConsumer consume = [&](const QJsonObject& page) -> std::optional<QUrl> {
        for (const QJsonValue& value : pageItems(page)) {
            const QJsonObject entry = value.toObject();
            if (auto calendar = calendarFromEntry(entry, account)) {
                listed.push_back({std::move(*calendar), entry.value(u"primary"_s).toBool()});
            }
        }
        const std::optional<QString> token = nextPageToken(page);
        return token ? std::optional(pageURL(token)) : std::nullopt;
    };
    const QUrl first = pageURL(std::nullopt);
    QCoro::Task<> reading = m_requester.getPages(first, std::move(accessToken), consume);
    co_await std::move(reading);

    std::sort(listed.begin(), listed.end(), [](const Listed& lhs, const Listed& rhs) {
        if (lhs.isPrimary != rhs.isPrimary) {
            return lhs.isPrimary;
        }
        if (const int byTitle = lhs.calendar.title.compare(rhs.calendar.title, Qt::CaseInsensitive); byTitle != 0) {
            return byTitle < 0;
        }
        return lhs.calendar.identifier < rhs.calendar.identifier;
    });
    RemoteCalendarGroup group{
        .sourceIdentifier =
            RemoteCalendarIdentityNamespace::sourceIdentifier(account, account.providerAccountIdentifier),
        .sourceTitle = remoteSourceTitle(account),
        .calendars = {},
    };
    for (Listed& entry : listed) {
        group.calendars.push_back(std::move(entry.calendar));
    }
    co_return group;
}

QCoro::Task<std::vector<RemoteMeetingOccurrence>>
GoogleCalendarClient::occurrences(RemoteCalendarAccountMetadata account, RemoteCalendarDescriptor calendar,
                                  FetchInterval interval, RemoteAccessTokenProvider accessToken)
{
    const QUrl base = m_endpoints.apiBase;
    const QString calendarId = providerCalendarIdentifier(account, calendar);
    // Google's bounds are exclusive and whole seconds will do: widen the closed interval to whole seconds outward.
    const QString timeMin = utcTimestamp(std::floor(interval.start.unixTime()));
    const QString timeMax = utcTimestamp(std::ceil(interval.end.unixTime()));
    const auto pageURL = [base, calendarId, timeMin, timeMax](const std::optional<QString>& pageToken) {
        QUrlQuery query;
        addQueryItem(query, u"singleEvents"_s, u"true"_s);
        addQueryItem(query, u"showDeleted"_s, u"true"_s);
        addQueryItem(query, u"orderBy"_s, u"startTime"_s);
        addQueryItem(query, u"maxResults"_s, u"2500"_s);
        addQueryItem(query, u"timeMin"_s, timeMin);
        addQueryItem(query, u"timeMax"_s, timeMax);
        if (pageToken) {
            addQueryItem(query, u"pageToken"_s, *pageToken);
        }
        return serviceURL(base, {u"calendar"_s, u"v3"_s, u"calendars"_s, calendarId, u"events"_s}, query);
    };

    std::vector<RemoteMeetingOccurrence> result;
    RemoteJSONRequester::PageConsumer consume = [&](const QJsonObject& page) -> std::optional<QUrl> {
        const std::optional<QString> token = readEventsPage(page, account, calendar, result);
        return token ? std::optional(pageURL(token)) : std::nullopt;
    };
    const QUrl first = pageURL(std::nullopt);
    QCoro::Task<> reading = m_requester.getPages(first, std::move(accessToken), consume);
    co_await std::move(reading);
    co_return result;
}

std::optional<QString> GoogleCalendarClient::readEventsPage(const QJsonObject& page,
                                                            const RemoteCalendarAccountMetadata& account,
                                                            const RemoteCalendarDescriptor& calendar,
                                                            std::vector<RemoteMeetingOccurrence>& occurrences)
{
    for (const QJsonValue& value : pageItems(page)) {
        if (auto occurrence = occurrenceFromEvent(value.toObject(), account, calendar)) {
            occurrences.push_back(std::move(*occurrence));
        }
    }
    return nextPageToken(page);
}

} // namespace orvane
