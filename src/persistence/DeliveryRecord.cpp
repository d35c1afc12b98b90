// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/DeliveryRecord.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const DeliveryRecord& value)
{
    return hashFields(value.identity, value.triggerDate, value.status, value.deliveredAt);
}

json::Value toJson(const DeliveryRecord& value)
{
    return json::Object{
        {u"identity"_s, toJson(value.identity)},
        {u"triggerDate"_s, toJson(value.triggerDate)},
        {u"status"_s, toJson(value.status)},
        {u"deliveredAt"_s, toJson(value.deliveredAt)},
    };
}

DeliveryRecord fromJson(const json::Decoder& decoder, json::Tag<DeliveryRecord>)
{
    return {
        .identity = decoder.decode<MeetingIdentity>(u"identity"),
        .triggerDate = decoder.decode<Date>(u"triggerDate"),
        .status = decoder.decodeIfPresent<DeliveryStatus>(u"status").value_or(DeliveryStatus::confirmed),
        .deliveredAt = decoder.decode<Date>(u"deliveredAt"),
    };
}

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

json::Value toJson(const DeliveryState& value)
{
    return json::Object{
        {u"records"_s, json::toJson(value.records)},
        {u"snoozes"_s, json::toJson(value.snoozes)},
    };
}

DeliveryState fromJson(const json::Decoder& decoder, json::Tag<DeliveryState>)
{
    return {
        .records = decoder.decode<std::vector<DeliveryRecord>>(u"records"),
        .snoozes = decoder.decode<std::vector<SnoozeRecord>>(u"snoozes"),
    };
}

} // namespace orvane
