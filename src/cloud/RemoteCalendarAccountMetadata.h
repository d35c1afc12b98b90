// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/ProviderAccountKey.h"
#include "domain/Date.h"

#include <QUuid>

namespace orvane {

/// A connected Google or Microsoft account, as it is stored under "Orvane.remoteCalendarAccounts".
///
/// The JSON keys are the field names, in declaration order; absent optionals are left out.
struct RemoteCalendarAccountMetadata {
    /// Orvane's own identifier for the connection; part of every remote identity string of the account.
    QUuid id;
    RemoteCalendarProviderKind provider = RemoteCalendarProviderKind::google;
    QString providerAccountIdentifier;
    std::optional<QString> tenantIdentifier;
    /// The name shown in Settings.
    QString displayName;
    std::optional<QString> emailAddress;
    /// The client ID the account was authorised with; token refreshes must use the same one.
    QString oauthClientID;
    Date connectedAt;

    /// The account as its provider names it.
    ProviderAccountKey providerAccountKey() const { return {provider, providerAccountIdentifier, tenantIdentifier}; }

    friend bool operator==(const RemoteCalendarAccountMetadata&, const RemoteCalendarAccountMetadata&) = default;
};

std::size_t hash(const RemoteCalendarAccountMetadata& value);
json::Value toJson(const RemoteCalendarAccountMetadata& value);
RemoteCalendarAccountMetadata fromJson(const json::Decoder& decoder, json::Tag<RemoteCalendarAccountMetadata>);

/// The order in which accounts are listed: by provider raw value ("google" before "microsoft"), then by the text
/// fields in declaration order compared as strings (an absent optional before any present one), then by identifier.
bool listsBefore(const RemoteCalendarAccountMetadata& lhs, const RemoteCalendarAccountMetadata& rhs);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::RemoteCalendarAccountMetadata);
