// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/DeliveryRecord.h"

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

} // namespace orvane
