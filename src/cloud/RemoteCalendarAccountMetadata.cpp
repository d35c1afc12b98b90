// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarAccountMetadata.h"

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

int compareOptional(const std::optional<QString>& lhs, const std::optional<QString>& rhs)
{
    if (lhs && rhs) {
        return QString::compare(*lhs, *rhs);
    }
    return int(bool(lhs)) - int(bool(rhs));
}

} // namespace

std::size_t hash(const RemoteCalendarAccountMetadata& value)
{
    return hashFields(value.id, value.provider, value.providerAccountIdentifier, value.tenantIdentifier,
                      value.displayName, value.emailAddress, value.oauthClientID, value.connectedAt);
}

json::Value toJson(const RemoteCalendarAccountMetadata& value)
{
    json::Object object{
        {u"id"_s, json::toJson(value.id)},
        {u"provider"_s, toJson(value.provider)},
        {u"providerAccountIdentifier"_s, value.providerAccountIdentifier},
    };
    json::addIfPresent(object, u"tenantIdentifier", value.tenantIdentifier);
    object.emplace_back(u"displayName"_s, value.displayName);
    json::addIfPresent(object, u"emailAddress", value.emailAddress);
    object.emplace_back(u"oauthClientID"_s, value.oauthClientID);
    object.emplace_back(u"connectedAt"_s, toJson(value.connectedAt));
    return object;
}

RemoteCalendarAccountMetadata fromJson(const json::Decoder& decoder, json::Tag<RemoteCalendarAccountMetadata>)
{
    return {
        .id = decoder.decode<QUuid>(u"id"),
        .provider = decoder.decode<RemoteCalendarProviderKind>(u"provider"),
        .providerAccountIdentifier = decoder.decode<QString>(u"providerAccountIdentifier"),
        .tenantIdentifier = decoder.decodeIfPresent<QString>(u"tenantIdentifier"),
        .displayName = decoder.decode<QString>(u"displayName"),
        .emailAddress = decoder.decodeIfPresent<QString>(u"emailAddress"),
        .oauthClientID = decoder.decode<QString>(u"oauthClientID"),
        .connectedAt = decoder.decode<Date>(u"connectedAt"),
    };
}

bool listsBefore(const RemoteCalendarAccountMetadata& lhs, const RemoteCalendarAccountMetadata& rhs)
{
    const int order[] = {
        QString::compare(rawValue(lhs.provider), rawValue(rhs.provider)),
        QString::compare(lhs.providerAccountIdentifier, rhs.providerAccountIdentifier),
        compareOptional(lhs.tenantIdentifier, rhs.tenantIdentifier),
        // The provider account key is unique in a valid list; the rest only makes the order total.
        QString::compare(lhs.displayName, rhs.displayName),
        compareOptional(lhs.emailAddress, rhs.emailAddress),
        QString::compare(lhs.oauthClientID, rhs.oauthClientID),
        QString::compare(lhs.id.toString(QUuid::WithoutBraces), rhs.id.toString(QUuid::WithoutBraces)),
    };
    for (const int result : order) {
        if (result != 0) {
            return result < 0;
        }
    }
    return lhs.connectedAt < rhs.connectedAt;
}

} // namespace orvane
