// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/SnoozeRecord.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const SnoozeRecord& value)
{
    return hashFields(value.identity, value.snoozedUntil, value.createdAt);
}

json::Value toJson(const SnoozeRecord& value)
{
    return json::Object{
        {u"identity"_s, toJson(value.identity)},
        {u"snoozedUntil"_s, toJson(value.snoozedUntil)},
        {u"createdAt"_s, toJson(value.createdAt)},
    };
}

SnoozeRecord fromJson(const json::Decoder& decoder, json::Tag<SnoozeRecord>)
{
    return {
        .identity = decoder.decode<MeetingIdentity>(u"identity"),
        .snoozedUntil = decoder.decode<Date>(u"snoozedUntil"),
        .createdAt = decoder.decode<Date>(u"createdAt"),
    };
}

} // namespace orvane
