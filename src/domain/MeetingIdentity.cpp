// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/MeetingIdentity.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const MeetingIdentity& value)
{
    return hashFields(value.sourceIdentifier, value.calendarIdentifier, value.seriesIdentifier,
                      value.calendarFingerprint, value.calendarFingerprintIsUnique, value.occurrenceStart,
                      value.scheduledStart);
}

json::Value toJson(const MeetingIdentity& value)
{
    json::Object object{
        {u"sourceIdentifier"_s, value.sourceIdentifier},
        {u"calendarIdentifier"_s, value.calendarIdentifier},
        {u"seriesIdentifier"_s, value.seriesIdentifier},
    };
    json::addIfPresent(object, u"calendarFingerprint", value.calendarFingerprint);
    object.emplace_back(u"calendarFingerprintIsUnique"_s, value.calendarFingerprintIsUnique);
    object.emplace_back(u"occurrenceStart"_s, toJson(value.occurrenceStart));
    object.emplace_back(u"scheduledStart"_s, toJson(value.scheduledStart));
    return object;
}

MeetingIdentity fromJson(const json::Decoder& decoder, json::Tag<MeetingIdentity>)
{
    MeetingIdentity identity{
        .sourceIdentifier = decoder.decodeIfPresent<QString>(u"sourceIdentifier").value_or(QString()),
        .calendarIdentifier = decoder.decode<QString>(u"calendarIdentifier"),
        .seriesIdentifier = decoder.decode<QString>(u"seriesIdentifier"),
        .calendarFingerprint = decoder.decodeIfPresent<CalendarFingerprint>(u"calendarFingerprint"),
        .calendarFingerprintIsUnique = decoder.decodeIfPresent<bool>(u"calendarFingerprintIsUnique").value_or(false),
        .occurrenceStart = decoder.decode<Date>(u"occurrenceStart"),
        .scheduledStart = {},
    };
    identity.scheduledStart = decoder.decodeIfPresent<Date>(u"scheduledStart").value_or(identity.occurrenceStart);
    return identity;
}

} // namespace orvane
