// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/CalendarFingerprint.h"

using namespace Qt::StringLiterals;

namespace orvane {

bool CalendarFingerprint::isComplete() const
{
    return !sourceTitle.trimmed().isEmpty() && !calendarTitle.trimmed().isEmpty();
}

std::size_t hash(const CalendarFingerprint& value)
{
    return hashFields(value.sourceKind, value.sourceTitle, value.calendarTitle);
}

json::Value toJson(const CalendarFingerprint& value)
{
    return json::Object{
        {u"sourceKind"_s, toJson(value.sourceKind)},
        {u"sourceTitle"_s, value.sourceTitle},
        {u"calendarTitle"_s, value.calendarTitle},
    };
}

CalendarFingerprint fromJson(const json::Decoder& decoder, json::Tag<CalendarFingerprint>)
{
    return {
        .sourceKind = decoder.decode<CalendarSourceKind>(u"sourceKind"),
        .sourceTitle = decoder.decode<QString>(u"sourceTitle"),
        .calendarTitle = decoder.decode<QString>(u"calendarTitle"),
    };
}

} // namespace orvane
