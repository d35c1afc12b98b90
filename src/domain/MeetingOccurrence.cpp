// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingOccurrence.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const MeetingOccurrence& value)
{
    return hashFields(value.identity, value.title, value.startDate, value.endDate, value.isAllDay, value.isCanceled,
                      value.participationStatus, value.hasAttendees, value.location, value.isRecurring, value.calendar,
                      value.meetingURL);
}

json::Value toJson(const MeetingOccurrence& value)
{
    json::Object object{
        {u"identity"_s, toJson(value.identity)},
        {u"title"_s, value.title},
        {u"startDate"_s, toJson(value.startDate)},
        {u"endDate"_s, toJson(value.endDate)},
        {u"isAllDay"_s, value.isAllDay},
        {u"isCanceled"_s, value.isCanceled},
        {u"participationStatus"_s, toJson(value.participationStatus)},
        {u"isDeclined"_s, value.participationStatus == MeetingParticipationStatus::declined},
        {u"hasAttendees"_s, value.hasAttendees},
    };
    json::addIfPresent(object, u"location", value.location);
    object.emplace_back(u"isRecurring"_s, value.isRecurring);
    object.emplace_back(u"calendar"_s, toJson(value.calendar));
    json::addIfPresent(object, u"meetingURL", value.meetingURL);
    return object;
}

MeetingOccurrence fromJson(const json::Decoder& decoder, json::Tag<MeetingOccurrence>)
{
    MeetingOccurrence occurrence{
        .identity = decoder.decode<MeetingIdentity>(u"identity"),
        .title = decoder.decode<QString>(u"title"),
        .startDate = decoder.decode<Date>(u"startDate"),
        .endDate = decoder.decode<Date>(u"endDate"),
        .isAllDay = decoder.decode<bool>(u"isAllDay"),
        .isCanceled = decoder.decode<bool>(u"isCanceled"),
        .participationStatus = MeetingParticipationStatus::unknown,
        .hasAttendees = false,
        .location = std::nullopt,
        .isRecurring = false,
        .calendar = {},
        .meetingURL = std::nullopt,
    };
    const bool isDeclined = decoder.decodeIfPresent<bool>(u"isDeclined").value_or(false);
    occurrence.participationStatus =
        decoder.decodeIfPresent<MeetingParticipationStatus>(u"participationStatus")
            .value_or(isDeclined ? MeetingParticipationStatus::declined : MeetingParticipationStatus::unknown);
    occurrence.hasAttendees = decoder.decode<bool>(u"hasAttendees");
    occurrence.location = decoder.decodeIfPresent<QString>(u"location");
    occurrence.isRecurring = decoder.decodeIfPresent<bool>(u"isRecurring").value_or(false);
    occurrence.calendar = decoder.decode<CalendarDescriptor>(u"calendar");
    occurrence.meetingURL = decoder.decodeIfPresent<QUrl>(u"meetingURL");
    return occurrence;
}

QString occurrenceTitle(const QString& title)
{
    return title.trimmed().isEmpty() ? u"Untitled event"_s : title;
}

} // namespace orvane
