// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Hashing.h"
#include "domain/RemoteCalendarProviderKind.h"

#include <QString>

#include <optional>

namespace orvane {

/// An account as its provider names it. No two connected accounts may share one.
struct ProviderAccountKey {
    RemoteCalendarProviderKind provider = RemoteCalendarProviderKind::google;
    /// The provider's user identifier.
    QString providerAccountIdentifier;
    /// The directory tenant of a Microsoft work account; absent otherwise.
    std::optional<QString> tenantIdentifier;

    friend bool operator==(const ProviderAccountKey&, const ProviderAccountKey&) = default;
};

std::size_t hash(const ProviderAccountKey& value);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::ProviderAccountKey);
