// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/ExclusionRecord.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const ExclusionRecord& value)
{
    return hashFields(value.id, value.identity, value.scope, value.createdAt, value.eventTitle, value.calendarTitle);
}

json::Value toJson(const ExclusionRecord& value)
{
    json::Object object{
        {u"id"_s, json::toJson(value.id)},
        {u"identity"_s, toJson(value.identity)},
        {u"scope"_s, toJson(value.scope)},
        {u"createdAt"_s, toJson(value.createdAt)},
    };
    json::addIfPresent(object, u"eventTitle", value.eventTitle);
    json::addIfPresent(object, u"calendarTitle", value.calendarTitle);
    return object;
}

ExclusionRecord fromJson(const json::Decoder& decoder, json::Tag<ExclusionRecord>)
{
    return {
        .id = decoder.decode<QUuid>(u"id"),
        .identity = decoder.decode<MeetingIdentity>(u"identity"),
        .scope = decoder.decode<ExclusionScope>(u"scope"),
        .createdAt = decoder.decode<Date>(u"createdAt"),
        .eventTitle = decoder.decodeIfPresent<QString>(u"eventTitle"),
        .calendarTitle = decoder.decodeIfPresent<QString>(u"calendarTitle"),
    };
}

} // namespace orvane
