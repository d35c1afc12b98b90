// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/CalendarGroup.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const CalendarGroup& value)
{
    return hashFields(value.sourceIdentifier, value.sourceTitle, value.sourceKind, value.calendars);
}

json::Value toJson(const CalendarGroup& value)
{
    return json::Object{
        {u"sourceIdentifier"_s, value.sourceIdentifier},
        {u"sourceTitle"_s, value.sourceTitle},
        {u"sourceKind"_s, toJson(value.sourceKind)},
        {u"calendars"_s, json::toJson(value.calendars)},
    };
}

CalendarGroup fromJson(const json::Decoder& decoder, json::Tag<CalendarGroup>)
{
    return {
        .sourceIdentifier = decoder.decode<QString>(u"sourceIdentifier"),
        .sourceTitle = decoder.decode<QString>(u"sourceTitle"),
        .sourceKind = decoder.decode<CalendarSourceKind>(u"sourceKind"),
        .calendars = decoder.decode<std::vector<CalendarDescriptor>>(u"calendars"),
    };
}

} // namespace orvane
