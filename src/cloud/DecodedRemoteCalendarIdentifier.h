// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Hashing.h"

#include <QString>
#include <QUuid>

namespace orvane {

/// What a calendar identity string names: the connected account and the provider's calendar in it.
struct DecodedRemoteCalendarIdentifier {
    QUuid accountID;
    QString providerCalendarIdentifier;

    friend bool operator==(const DecodedRemoteCalendarIdentifier&, const DecodedRemoteCalendarIdentifier&) = default;
};

std::size_t hash(const DecodedRemoteCalendarIdentifier& value);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::DecodedRemoteCalendarIdentifier);
