// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/ExclusionStore.h"

#include "persistence/DeliveryStore.h"
#include "persistence/SettingsStore.h"

#include <algorithm>

namespace orvane {

ExclusionStore::ExclusionStore(DefaultsDatabase& defaults, QString key)
    : m_record(defaults, std::move(key), {1, 2})
{
    requireMainThread("ExclusionStore");
    load();
}

void ExclusionStore::reloadAfterDatabaseRecovered()
{
    if (m_record.isInUnreadableDatabase()) {
        load();
    }
}

void ExclusionStore::load()
{
    m_matcher = ExclusionMatcher();
    if (auto loaded = m_record.load<std::vector<ExclusionRecord>>()) {
        m_matcher = ExclusionMatcher(*loaded);
    }
    if (m_record.needsUpgrade()) {
        // An old record that cannot be rewritten still reads fine: keep using it and try again next launch.
        try {
            commit(m_matcher.records());
        } catch (const PersistenceStoreError&) {
        }
    }
}

VersionedDefaults::PreparedChange ExclusionStore::prepare(std::vector<ExclusionRecord> records)
{
    requireMainThread("ExclusionStore");
    auto payload = json::toJson(records);
    return m_record.prepare(payload, [this, records = std::move(records)] { m_matcher = ExclusionMatcher(records); });
}

void ExclusionStore::commit(std::vector<ExclusionRecord> records)
{
    m_record.commit(prepare(std::move(records)));
}

void ExclusionStore::add(const ExclusionRecord& record)
{
    auto records = m_matcher.records();
    records.push_back(record);
    commit(std::move(records));
}

void ExclusionStore::remove(const QSet<QUuid>& ids)
{
    auto records = m_matcher.records();
    std::erase_if(records, [&ids](const ExclusionRecord& record) { return ids.contains(record.id); });
    commit(std::move(records));
}

void ExclusionStore::removeAll()
{
    commit({});
}

VersionedDefaults::PreparedChange
ExclusionStore::prepareMigrations(std::span<const CalendarIdentityMigration> migrations)
{
    m_record.refuseWhileUnreadable();
    const IdentityMigrationMap map(migrations);
    auto records = m_matcher.records();
    for (auto& record : records) {
        record.identity = map.migrated(record.identity);
    }
    return prepare(std::move(records));
}

void ExclusionStore::applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations)
{
    m_record.commit(prepareMigrations(migrations));
}

void ExclusionStore::resetAfterReadFailure()
{
    requireMainThread("ExclusionStore::resetAfterReadFailure");
    m_record.commit(m_record.prepareReset(json::Array{}, [this] { m_matcher = ExclusionMatcher(); }));
}

void ExclusionStore::applyAtomicBatch(const AtomicStoreBatch& batch, SettingsStoring& settings,
                                      DeliveryStoring& delivery)
{
    auto* settingsStore = dynamic_cast<SettingsStore*>(&settings);
    auto* deliveryStore = dynamic_cast<DeliveryStore*>(&delivery);
    // One durable step needs one file: all three records must live in this store's database.
    if (settingsStore == nullptr || deliveryStore == nullptr || &settingsStore->database() != &m_record.database() ||
        &deliveryStore->database() != &m_record.database()) {
        throw PersistenceStoreError(PersistenceStoreError::AtomicBatchUnsupported{});
    }

    // Every store checks and encodes its part before anything is written, so one refusal stops the whole batch.
    std::vector<VersionedDefaults::PreparedChange> changes;
    if (batch.settings) {
        changes.push_back(settingsStore->prepareSave(*batch.settings));
    }
    if (!batch.identityMigrations.empty()) {
        changes.push_back(prepareMigrations(batch.identityMigrations));
        changes.push_back(deliveryStore->prepareMigrations(batch.identityMigrations));
    }
    if (!changes.empty()) {
        VersionedDefaults::commit(m_record.database(), std::move(changes));
    }
}

} // namespace orvane
