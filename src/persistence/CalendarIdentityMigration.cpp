// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/CalendarIdentityMigration.h"

#include "persistence/PersistenceStoreError.h"

using namespace Qt::StringLiterals;

namespace orvane {

bool CalendarIdentityMigration::isValid() const
{
    return originalIdentity != currentIdentity &&
           originalIdentity.seriesIdentifier == currentIdentity.seriesIdentifier &&
           originalIdentity.occurrenceStart == currentIdentity.occurrenceStart &&
           originalIdentity.scheduledStart == currentIdentity.scheduledStart &&
           !currentIdentity.calendarIdentifier.isEmpty();
}

json::Value toJson(const CalendarIdentityMigration& value)
{
    return json::Object{
        {u"originalIdentity"_s, toJson(value.originalIdentity)},
        {u"currentIdentity"_s, toJson(value.currentIdentity)},
    };
}

CalendarIdentityMigration fromJson(const json::Decoder& decoder, json::Tag<CalendarIdentityMigration>)
{
    return {decoder.decode<MeetingIdentity>(u"originalIdentity"), decoder.decode<MeetingIdentity>(u"currentIdentity")};
}

IdentityMigrationMap::IdentityMigrationMap(std::span<const CalendarIdentityMigration> migrations)
{
    for (const auto& migration : migrations) {
        if (!migration.isValid()) {
            throw PersistenceStoreError(PersistenceStoreError::InvalidIdentityMigration{});
        }
        const auto [position, inserted] = m_map.emplace(migration.originalIdentity, migration.currentIdentity);
        if (!inserted && position->second != migration.currentIdentity) {
            throw PersistenceStoreError(PersistenceStoreError::ConflictingIdentityMigration{});
        }
    }
}

const MeetingIdentity& IdentityMigrationMap::migrated(const MeetingIdentity& identity) const
{
    const auto found = m_map.find(identity);
    return found == m_map.end() ? identity : found->second;
}

} // namespace orvane
