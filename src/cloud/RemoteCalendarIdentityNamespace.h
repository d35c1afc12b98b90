// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/DecodedRemoteCalendarIdentifier.h"
#include "cloud/RemoteCalendarAccountMetadata.h"

#include <optional>

/// Builds and reads the identity strings that turn a provider's own identifiers into identifiers for the rest of
/// Orvane: "orvane.remote.v1:<provider>:<account UUID>:<kind>:<provider identifier as base64url>".
///
/// The provider's identifier is base64url-encoded without padding, so it never contains ":" however the provider
/// spells it, and the string stays stable for as long as the account stays connected. The strings end up in stored
/// selections, exclusions and deliveries, so their form never changes within version 1.
namespace orvane::RemoteCalendarIdentityNamespace {

/// The version prefix every identity string starts with.
inline constexpr char16_t prefix[] = u"orvane.remote.v1";

/// The identity of one account's source (kind "source").
QString sourceIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerSourceIdentifier);

/// The identity of one provider calendar (kind "calendar").
QString calendarIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerCalendarIdentifier);

/// The series identity of a provider event: "external:" followed by the identity of kind "series".
QString seriesIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerSeriesIdentifier);

/// Whether `value` is an identity of `account` (of any kind, also behind "external:"): what is stored about an
/// account is found, and removed with it, through this.
bool belongsToAccount(const QString& value, const RemoteCalendarAccountMetadata& account);
/// Whether `value` begins with "orvane.remote.v1:" (a series identity, behind "external:", does not).
bool isRemoteIdentifier(const QString& value);

/// The account and provider calendar a calendar identity names; absent for anything else, including identities of
/// other kinds, unknown providers or versions, and a last field that is not base64url of UTF-8 text. Never throws.
std::optional<DecodedRemoteCalendarIdentifier> decodeCalendarIdentifier(const QString& value);

} // namespace orvane::RemoteCalendarIdentityNamespace
