// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/CalendarSelectionRecord.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const CalendarSelectionRecord& value)
{
    return hashFields(value.calendarIdentifier, value.fingerprint);
}

json::Value toJson(const CalendarSelectionRecord& value)
{
    json::Object object{{u"calendarIdentifier"_s, value.calendarIdentifier}};
    json::addIfPresent(object, u"fingerprint", value.fingerprint);
    return object;
}

CalendarSelectionRecord fromJson(const json::Decoder& decoder, json::Tag<CalendarSelectionRecord>)
{
    return {
        .calendarIdentifier = decoder.decode<QString>(u"calendarIdentifier"),
        .fingerprint = decoder.decodeIfPresent<CalendarFingerprint>(u"fingerprint"),
    };
}

} // namespace orvane
