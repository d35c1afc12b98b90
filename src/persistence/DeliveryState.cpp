// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/DeliveryState.h"

using namespace Qt::StringLiterals;

namespace orvane {

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
