// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/MicrosoftGraphCalendarClient.h"

#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "cloud/RemoteMeetingOccurrence.h"
#include "domain/MeetingLinkDetector.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QTimeZone>
#include <QUrlQuery>

#include <algorithm>
#include <cmath>
#include <functional>
#include <utility>

namespace orvane {

using namespace Qt::StringLiterals;

namespace {

using QueryItems = std::vector<std::pair<QString, QString>>;

const QString selectKey = u"$select"_s;
const QString topKey = u"$top"_s;

/// A text field, absent when missing or empty.
std::optional<QString> nonEmptyString(const QJsonValue& value)
{
    const QString text = value.toString();
    return text.isEmpty() ? std::nullopt : std::optional(text);
}

bool sameAddress(const QString& address, const std::optional<QString>& other)
{
    return other && address.compare(*other, Qt::CaseInsensitive) == 0;
}

/// Hands each object of a Graph collection page to `consume` and returns the next page's link. A page without a
/// "value" array, or with a next link that is not an absolute URL, cannot be trusted as a whole.
std::optional<QUrl> readCollectionPage(const QJsonObject& page, const std::function<void(const QJsonObject&)>& consume)
{
    const QJsonValue items = page.value(u"value"_s);
    if (!items.isArray()) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
    }
    for (const QJsonValue& item : items.toArray()) {
        if (item.isObject()) {
            consume(item.toObject());
        }
    }
    const QJsonValue nextLink = page.value(u"@odata.nextLink"_s);
    if (nextLink.isUndefined() || nextLink.isNull()) {
        return std::nullopt;
    }
    const QUrl next(nextLink.toString(), QUrl::StrictMode);
    if (!nextLink.isString() || !next.isValid() || next.isRelative()) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
    }
    return next;
}

/// "#rrggbb" in upper case; absent for Graph's empty "automatic" colour and anything malformed.
std::optional<QString> colorHex(const QString& value)
{
    static const QRegularExpression pattern(u"^#[0-9A-Fa-f]{6}$"_s);
    if (!pattern.match(value).hasMatch()) {
        return std::nullopt;
    }
    return value.toUpper();
}

/// A Graph date-time text: "2026-11-23T09:00:00.0000000" (a dateTimeTimeZone's local time) or
/// "2026-11-23T09:00:00Z" (a DateTimeOffset).
struct DateTimeText {
    QDate date;
    QTime time;
    /// The fractional second, which Graph writes with seven digits and Qt would not read.
    double fraction = 0;
    /// Seconds ahead of UTC, when the text names its offset.
    std::optional<int> offset;
};

std::optional<DateTimeText> parseDateTimeText(const QString& text)
{
    static const QRegularExpression pattern(
        u"^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2})(?::(\\d{2})(?:\\.(\\d{1,16}))?)?(Z|[+-]\\d{2}:\\d{2})?$"_s);
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    DateTimeText result;
    result.date = QDate(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    result.time = QTime(match.captured(4).toInt(), match.captured(5).toInt(), match.captured(6).toInt());
    if (!result.date.isValid() || !result.time.isValid()) {
        return std::nullopt;
    }
    if (const QString digits = match.captured(7); !digits.isEmpty()) {
        result.fraction = (u"0."_s + digits).toDouble();
    }
    if (const QString offset = match.captured(8); offset == u"Z") {
        result.offset = 0;
    } else if (!offset.isEmpty()) {
        const int hours = offset.mid(1, 2).toInt();
        const int minutes = offset.mid(4, 2).toInt();
        if (hours > 23 || minutes > 59) {
            return std::nullopt;
        }
        result.offset = (offset.startsWith(u'-') ? -1 : 1) * (hours * 3600 + minutes * 60);
    }
    return result;
}

std::optional<Date> instant(const DateTimeText& text, const QTimeZone& zone)
{
    const QDateTime dateTime(text.date, text.time, text.offset ? QTimeZone(*text.offset) : zone);
    if (!dateTime.isValid()) {
        return std::nullopt;
    }
    return Date::fromDateTime(dateTime) + text.fraction;
}

/// The zone a dateTimeTimeZone names: IANA or Windows names both occur; absent for one Qt does not know.
std::optional<QTimeZone> timeZoneNamed(const QString& name)
{
    if (name.isEmpty() || name.compare(u"UTC"_s, Qt::CaseInsensitive) == 0) {
        return QTimeZone::utc();
    }
    if (const QTimeZone zone(name.toUtf8()); zone.isValid()) {
        return zone;
    }
    if (const QByteArray iana = QTimeZone::windowsIdToDefaultIanaId(name.toUtf8()); !iana.isEmpty()) {
        if (const QTimeZone zone(iana); zone.isValid()) {
            return zone;
        }
    }
    return std::nullopt;
}

/// A dateTimeTimeZone ({"dateTime":…,"timeZone":…}). All-day events are at local midnight of their date: Graph
/// states them as midnight in the requested zone, but the day is what the user means, wherever they are.
std::optional<Date> eventDate(const QJsonValue& value, bool isAllDay)
{
    const QJsonObject object = value.toObject();
    const auto text = parseDateTimeText(object.value(u"dateTime"_s).toString());
    if (!text) {
        return std::nullopt;
    }
    if (isAllDay) {
        const QDateTime midnight(text->date, QTime(0, 0), QTimeZone::systemTimeZone());
        return midnight.isValid() ? std::optional(Date::fromDateTime(midnight)) : std::nullopt;
    }
    const auto zone = timeZoneNamed(object.value(u"timeZone"_s).toString());
    return zone ? instant(*text, *zone) : std::nullopt;
}

MeetingParticipationStatus participationStatus(const QString& response)
{
    if (response == u"organizer" || response == u"accepted") {
        return MeetingParticipationStatus::accepted;
    }
    if (response == u"tentativelyAccepted") {
        return MeetingParticipationStatus::tentative;
    }
    if (response == u"declined") {
        return MeetingParticipationStatus::declined;
    }
    if (response == u"notResponded") {
        return MeetingParticipationStatus::pending;
    }
    return MeetingParticipationStatus::unknown;
}

/// One calendarView item as an occurrence; absent for a series master or an event too malformed to place.
std::optional<RemoteMeetingOccurrence> occurrence(const QJsonObject& event,
                                                  const RemoteCalendarAccountMetadata& account,
                                                  const RemoteCalendarDescriptor& calendar)
{
    const QString id = event.value(u"id"_s).toString();
    const QString type = event.value(u"type"_s).toString();
    // The calendar view expands series itself; a master that slips through would double its occurrences.
    if (id.isEmpty() || type == u"seriesMaster") {
        return std::nullopt;
    }
    const bool isAllDay = event.value(u"isAllDay"_s).toBool();
    const auto start = eventDate(event.value(u"start"_s), isAllDay);
    const auto end = eventDate(event.value(u"end"_s), isAllDay);
    if (!start || !end || *end < *start) {
        return std::nullopt;
    }

    RemoteMeetingOccurrence result;
    result.calendar = calendar;
    const bool isInstance = type == u"occurrence" || type == u"exception";
    const QString seriesMasterId = event.value(u"seriesMasterId"_s).toString();
    result.isRecurring = isInstance;
    result.seriesIdentifier = RemoteCalendarIdentityNamespace::seriesIdentifier(
        account, isInstance && !seriesMasterId.isEmpty() ? seriesMasterId : id);
    result.occurrenceStart = *start;
    if (const auto original = parseDateTimeText(event.value(u"originalStart"_s).toString())) {
        // A DateTimeOffset; without an offset it can only be UTC, the zone every date here was asked in.
        if (const auto originalStart = instant(*original, QTimeZone::utc())) {
            result.occurrenceStart = *originalStart;
        }
    }
    result.title = occurrenceTitle(event.value(u"subject"_s).toString());
    result.startDate = *start;
    result.endDate = *end;
    result.isAllDay = isAllDay;
    result.isCanceled = event.value(u"isCancelled"_s).toBool();

    // Graph lists the invitees, never the organiser; an invitee's copy can list only the user, so the organiser of
    // an invitation is someone else too. Rooms and equipment are not people.
    const QJsonArray attendees = event.value(u"attendees"_s).toArray();
    const bool isOrganizer = event.value(u"isOrganizer"_s).toBool();
    for (const QJsonValue& attendee : attendees) {
        const QJsonObject object = attendee.toObject();
        const QString address = object.value(u"emailAddress"_s).toObject().value(u"address"_s).toString();
        if (object.value(u"type"_s).toString() != u"resource" && !sameAddress(address, account.emailAddress)) {
            result.hasAttendees = true;
            break;
        }
    }
    if (!attendees.isEmpty() && !isOrganizer) {
        const QString organizer =
            event.value(u"organizer"_s).toObject().value(u"emailAddress"_s).toObject().value(u"address"_s).toString();
        result.hasAttendees =
            result.hasAttendees || (!organizer.isEmpty() && !sameAddress(organizer, account.emailAddress));
    }
    // Without attendees the event is no invitation and "organizer" merely says the user made it.
    if (!attendees.isEmpty()) {
        result.participationStatus =
            isOrganizer
                ? MeetingParticipationStatus::accepted
                : participationStatus(event.value(u"responseStatus"_s).toObject().value(u"response"_s).toString());
    }

    result.location = nonEmptyString(event.value(u"location"_s).toObject().value(u"displayName"_s));
    std::optional<QUrl> structuredURL;
    if (const auto joinURL = nonEmptyString(event.value(u"onlineMeeting"_s).toObject().value(u"joinUrl"_s))) {
        structuredURL = QUrl(*joinURL);
    } else if (const auto legacyURL = nonEmptyString(event.value(u"onlineMeetingUrl"_s))) {
        structuredURL = QUrl(*legacyURL);
    }
    result.meetingURL = MeetingLinkDetector::detect(
        structuredURL, result.location, nonEmptyString(event.value(u"body"_s).toObject().value(u"content"_s)));

    // Graph gives each occurrence of a series an iCalUId of its own, unlike the UID the desktop's calendars carry
    // for the whole series; only a single event's UID can name the same meeting there.
    if (type.isEmpty() || type == u"singleInstance") {
        result.iCalendarUID = nonEmptyString(event.value(u"iCalUId"_s));
    }
    return result;
}

/// An instant as Graph's query parameters take it: UTC, whole seconds, "2026-11-22T10:00:00Z".
QString queryTime(double secondsSinceReferenceDate)
{
    return Date{secondsSinceReferenceDate}.toDateTime().toUTC().toString(Qt::ISODate);
}

} // namespace

MicrosoftGraphCalendarClient::MicrosoftGraphCalendarClient(RemoteHTTPTransport& transport, Endpoints endpoints,
                                                           RemoteJSONRequester::Options options)
    : m_endpoints(std::move(endpoints))
    , m_requester(transport, &MicrosoftGraphCalendarClient::errorMessage, options)
{
}

std::optional<QString> MicrosoftGraphCalendarClient::errorMessage(const QByteArray& body)
{
    const QJsonObject error = QJsonDocument::fromJson(body).object().value(u"error"_s).toObject();
    if (auto message = nonEmptyString(error.value(u"message"_s))) {
        return message;
    }
    return nonEmptyString(error.value(u"code"_s));
}

namespace {

/// `path` (segments already percent-encoded) under the Graph base, with `query` values percent-encoded in full so a
/// "+" can never read as a space.
QUrl graphURL(const QUrl& base, const QString& path, const QueryItems& query)
{
    QUrl url = base;
    QString basePath = base.path(QUrl::FullyEncoded);
    while (basePath.endsWith(u'/')) {
        basePath.chop(1);
    }
    url.setPath(basePath + u"/v1.0"_s + path, QUrl::TolerantMode);
    QUrlQuery urlQuery;
    for (const auto& [key, value] : query) {
        urlQuery.addQueryItem(key, QString::fromLatin1(QUrl::toPercentEncoding(value, ",$")));
    }
    url.setQuery(urlQuery);
    return url;
}

} // namespace

QCoro::Task<RemoteAccountProfile> MicrosoftGraphCalendarClient::accountProfile(RemoteAccessTokenProvider accessToken)
{
    const QUrl url =
        graphURL(m_endpoints.graphBase, u"/me"_s, {{selectKey, u"id,displayName,mail,userPrincipalName"_s}});
    const QJsonObject me = co_await m_requester.get(url, accessToken);
    RemoteAccountProfile profile;
    profile.providerAccountIdentifier = me.value(u"id"_s).toString();
    if (profile.providerAccountIdentifier.isEmpty()) {
        throw RemoteHTTPError(RemoteHTTPError::InvalidResponse{});
    }
    profile.emailAddress = nonEmptyString(me.value(u"mail"_s));
    if (!profile.emailAddress) {
        profile.emailAddress = nonEmptyString(me.value(u"userPrincipalName"_s));
    }
    profile.displayName = nonEmptyString(me.value(u"displayName"_s)).value_or(profile.emailAddress.value_or(QString()));
    profile.tenantIdentifier = co_await tenantIdentifier(accessToken);
    co_return profile;
}

QCoro::Task<std::optional<QString>>
MicrosoftGraphCalendarClient::tenantIdentifier(RemoteAccessTokenProvider accessToken)
{
    const QUrl url = graphURL(m_endpoints.graphBase, u"/organization"_s, {{selectKey, u"id"_s}});
    QJsonObject organizations;
    try {
        organizations = co_await m_requester.get(url, accessToken);
    } catch (const RemoteHTTPError& error) {
        // A personal account belongs to no organisation, and Graph may refuse to list one for it.
        const auto* status = std::get_if<RemoteHTTPError::UnexpectedStatus>(&error.value());
        if (!status || (status->statusCode != 403 && status->statusCode != 404)) {
            throw;
        }
        co_return std::nullopt;
    }
    const QJsonArray value = organizations.value(u"value"_s).toArray();
    co_return value.isEmpty() ? std::nullopt : nonEmptyString(value.first().toObject().value(u"id"_s));
}

QCoro::Task<RemoteCalendarGroup> MicrosoftGraphCalendarClient::calendarGroup(RemoteCalendarAccountMetadata account,
                                                                             RemoteAccessTokenProvider accessToken)
{
    struct Listed {
        bool isDefault = false;
        RemoteCalendarDescriptor descriptor;
    };
    std::vector<Listed> listed;
    QSet<QString> seen;
    const auto readCalendar = [&](const QJsonObject& calendar) {
        const QString id = calendar.value(u"id"_s).toString();
        if (id.isEmpty() || seen.contains(id)) {
            return;
        }
        seen.insert(id);
        RemoteCalendarDescriptor descriptor;
        descriptor.identifier = RemoteCalendarIdentityNamespace::calendarIdentifier(account, id);
        descriptor.title = calendar.value(u"name"_s).toString();
        descriptor.colorHex = colorHex(calendar.value(u"hexColor"_s).toString());
        descriptor.allowsContentModifications = calendar.value(u"canEdit"_s).toBool();
        const QString owner = calendar.value(u"owner"_s).toObject().value(u"address"_s).toString();
        descriptor.isSubscribed = !owner.isEmpty() && account.emailAddress && !sameAddress(owner, account.emailAddress);
        listed.push_back({calendar.value(u"isDefaultCalendar"_s).toBool(), std::move(descriptor)});
    };
    const RemoteJSONRequester::PageConsumer consume = [&readCalendar](const QJsonObject& page) {
        return readCollectionPage(page, readCalendar);
    };
    const QUrl first =
        graphURL(m_endpoints.graphBase, u"/me/calendars"_s,
                 {{selectKey, u"id,name,color,hexColor,canEdit,isDefaultCalendar,owner"_s}, {topKey, u"100"_s}});
    co_await m_requester.getPages(first, accessToken, consume);

    std::stable_sort(listed.begin(), listed.end(), [](const Listed& lhs, const Listed& rhs) {
        if (lhs.isDefault != rhs.isDefault) {
            return lhs.isDefault;
        }
        const int byTitle = lhs.descriptor.title.compare(rhs.descriptor.title, Qt::CaseInsensitive);
        return byTitle != 0 ? byTitle < 0 : lhs.descriptor.title < rhs.descriptor.title;
    });
    RemoteCalendarGroup group;
    group.sourceIdentifier =
        RemoteCalendarIdentityNamespace::sourceIdentifier(account, account.providerAccountIdentifier);
    group.sourceTitle = remoteSourceTitle(account);
    group.calendars.reserve(listed.size());
    for (Listed& calendar : listed) {
        group.calendars.push_back(std::move(calendar.descriptor));
    }
    co_return group;
}

QCoro::Task<std::vector<RemoteMeetingOccurrence>>
MicrosoftGraphCalendarClient::occurrences(RemoteCalendarAccountMetadata account, RemoteCalendarDescriptor calendar,
                                          FetchInterval interval, RemoteAccessTokenProvider accessToken)
{
    const QString calendarSegment =
        QString::fromLatin1(QUrl::toPercentEncoding(providerCalendarIdentifier(account, calendar)));
    const QUrl first = graphURL(
        m_endpoints.graphBase, u"/me/calendars/"_s + calendarSegment + u"/calendarView"_s,
        {{u"startDateTime"_s, queryTime(std::floor(interval.start.secondsSinceReferenceDate))},
         {u"endDateTime"_s, queryTime(std::ceil(interval.end.secondsSinceReferenceDate))},
         {topKey, u"250"_s},
         {selectKey, u"id,subject,start,end,isAllDay,isCancelled,type,seriesMasterId,originalStart,responseStatus,"
                     u"attendees,organizer,isOrganizer,location,onlineMeeting,onlineMeetingUrl,isOnlineMeeting,body,"
                     u"iCalUId"_s}});
    // Dates in UTC keep the arithmetic away from Windows zone names; plain-text bodies let links be found in notes.
    const RemoteJSONRequester::Headers headers = {
        {"Prefer", R"(outlook.timezone="UTC", outlook.body-content-type="text")"}};

    std::vector<RemoteMeetingOccurrence> result;
    const RemoteJSONRequester::PageConsumer consume = [&](const QJsonObject& page) {
        return readEventsPage(page, account, calendar, result);
    };
    co_await m_requester.getPages(first, accessToken, consume, headers);
    co_return result;
}

std::optional<QUrl> MicrosoftGraphCalendarClient::readEventsPage(const QJsonObject& page,
                                                                 const RemoteCalendarAccountMetadata& account,
                                                                 const RemoteCalendarDescriptor& calendar,
                                                                 std::vector<RemoteMeetingOccurrence>& occurrences)
{
    return readCollectionPage(page, [&](const QJsonObject& event) {
        if (auto mapped = occurrence(event, account, calendar)) {
            occurrences.push_back(std::move(*mapped));
        }
    });
}

} // namespace orvane
