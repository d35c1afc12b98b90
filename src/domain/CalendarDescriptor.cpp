// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/CalendarDescriptor.h"

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const CalendarDescriptor& value)
{
    return hashFields(value.identifier, value.title, value.sourceIdentifier, value.sourceTitle, value.sourceKind,
                      value.colorHex, value.isSubscribed, value.allowsContentModifications);
}

json::Value toJson(const CalendarDescriptor& value)
{
    json::Object object{
        {u"identifier"_s, value.identifier},
        {u"title"_s, value.title},
        {u"sourceIdentifier"_s, value.sourceIdentifier},
        {u"sourceTitle"_s, value.sourceTitle},
        {u"sourceKind"_s, toJson(value.sourceKind)},
    };
    json::addIfPresent(object, u"colorHex", value.colorHex);
    object.emplace_back(u"isSubscribed"_s, value.isSubscribed);
    object.emplace_back(u"allowsContentModifications"_s, value.allowsContentModifications);
    return object;
}

CalendarDescriptor fromJson(const json::Decoder& decoder, json::Tag<CalendarDescriptor>)
{
    return {
        .identifier = decoder.decode<QString>(u"identifier"),
        .title = decoder.decode<QString>(u"title"),
        .sourceIdentifier = decoder.decode<QString>(u"sourceIdentifier"),
        .sourceTitle = decoder.decode<QString>(u"sourceTitle"),
        .sourceKind = decoder.decode<CalendarSourceKind>(u"sourceKind"),
        .colorHex = decoder.decodeIfPresent<QString>(u"colorHex"),
        .isSubscribed = decoder.decode<bool>(u"isSubscribed"),
        .allowsContentModifications = decoder.decode<bool>(u"allowsContentModifications"),
    };
}

} // namespace orvane
