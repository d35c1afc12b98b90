// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingIdentity.h"

#include <span>
#include <unordered_map>

namespace orvane {

/// A stored meeting identity whose calendar now goes by another identity.
struct CalendarIdentityMigration {
    MeetingIdentity originalIdentity;
    MeetingIdentity currentIdentity;

    /// A migration moves an occurrence to another calendar identity and nothing else: the identities differ,
    /// the series and both starts are unchanged, and the new calendar identifier is not empty.
    bool isValid() const;

    friend bool operator==(const CalendarIdentityMigration&, const CalendarIdentityMigration&) = default;
};

json::Value toJson(const CalendarIdentityMigration& value);
CalendarIdentityMigration fromJson(const json::Decoder& decoder, json::Tag<CalendarIdentityMigration>);

/// Original identity to current identity, built from a list of migrations that is checked whole first: an invalid
/// migration throws InvalidIdentityMigration, the same original with two different currents throws
/// ConflictingIdentityMigration, and exact repeats count once.
class IdentityMigrationMap {
public:
    explicit IdentityMigrationMap(std::span<const CalendarIdentityMigration> migrations);

    /// The identity `identity` migrates to, or `identity` itself.
    const MeetingIdentity& migrated(const MeetingIdentity& identity) const;
    bool isEmpty() const { return m_map.empty(); }

private:
    std::unordered_map<MeetingIdentity, MeetingIdentity> m_map;
};

} // namespace orvane
