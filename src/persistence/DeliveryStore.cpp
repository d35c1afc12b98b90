// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/DeliveryStore.h"

#include <algorithm>
#include <unordered_map>

namespace orvane {

namespace {

/// At most one record per key: the first one of each key stays, later ones go.
std::vector<DeliveryRecord> cleaned(std::vector<DeliveryRecord> records)
{
    std::unordered_set<DeliveryKey> seen;
    seen.reserve(records.size());
    std::erase_if(records, [&seen](const DeliveryRecord& record) { return !seen.insert(record.id()).second; });
    return records;
}

/// At most one snooze per identity: a later snooze of the same meeting replaces the earlier one in its place.
std::vector<SnoozeRecord> oneSnoozePerIdentity(std::span<const SnoozeRecord> snoozes)
{
    std::vector<SnoozeRecord> result;
    std::unordered_map<MeetingIdentity, std::size_t> positions;
    for (const auto& snooze : snoozes) {
        const auto [position, inserted] = positions.emplace(snooze.identity, result.size());
        if (inserted) {
            result.push_back(snooze);
        } else {
            result[position->second] = snooze;
        }
    }
    return result;
}

std::unordered_set<DeliveryKey> keySet(std::span<const DeliveryKey> keys)
{
    return {keys.begin(), keys.end()};
}

} // namespace

DeliveryStore::DeliveryStore(DefaultsDatabase& defaults, QString key)
    : m_record(defaults, std::move(key), {1, 2, 3})
{
    requireMainThread("DeliveryStore");
    load();
}

void DeliveryStore::reloadAfterDatabaseRecovered()
{
    if (m_record.isInUnreadableDatabase()) {
        load();
    }
}

void DeliveryStore::load()
{
    m_state = DeliveryState{};
    if (auto loaded = m_record.load<DeliveryState>()) {
        m_state = {cleaned(std::move(loaded->records)), oneSnoozePerIdentity(loaded->snoozes)};
    }
    if (m_record.needsUpgrade()) {
        // An old record that cannot be rewritten still reads fine: keep using it and try again next launch.
        try {
            commit(m_state);
        } catch (const PersistenceStoreError&) {
        }
    }
}

bool DeliveryStore::hasDelivered(const MeetingIdentity& identity, Date triggerDate) const
{
    return std::any_of(m_state.records.begin(), m_state.records.end(), [&](const DeliveryRecord& record) {
        return record.status == DeliveryStatus::confirmed && record.triggerDate == triggerDate &&
               record.identity == identity;
    });
}

std::optional<SnoozeRecord> DeliveryStore::snoozeRecord(const MeetingIdentity& identity) const
{
    const auto found = std::find_if(m_state.snoozes.begin(), m_state.snoozes.end(),
                                    [&](const SnoozeRecord& snooze) { return snooze.identity == identity; });
    if (found == m_state.snoozes.end()) {
        return std::nullopt;
    }
    return *found;
}

VersionedDefaults::PreparedChange DeliveryStore::prepare(DeliveryState state)
{
    requireMainThread("DeliveryStore");
    auto payload = toJson(state);
    return m_record.prepare(payload, [this, state = std::move(state)]() mutable { m_state = std::move(state); });
}

void DeliveryStore::commit(DeliveryState state)
{
    // Pruning runs on every refresh and usually removes nothing: an unchanged record is not written again.
    if (state == m_state && !m_record.readState().isUnreadable() && !m_record.needsUpgrade()) {
        return;
    }
    m_record.commit(prepare(std::move(state)));
}

void DeliveryStore::prepareDeliveries(std::span<const DeliveryRecord> records)
{
    auto state = m_state;
    std::unordered_map<DeliveryKey, std::size_t> positions;
    for (std::size_t index = 0; index < state.records.size(); ++index) {
        positions.emplace(state.records[index].id(), index);
    }
    for (auto record : records) {
        record.status = DeliveryStatus::pending;
        const auto found = positions.find(record.id());
        if (found == positions.end()) {
            positions.emplace(record.id(), state.records.size());
            state.records.push_back(record);
        } else if (state.records[found->second].status == DeliveryStatus::pending) {
            state.records[found->second] = record;
        }
        // An alert already confirmed stays confirmed: turning it back to pending would let it show again.
    }
    commit(std::move(state));
}

void DeliveryStore::confirmDeliveries(std::span<const DeliveryKey> keys, Date confirmedAt)
{
    auto state = m_state;
    auto unconfirmed = keySet(keys);
    for (auto& record : state.records) {
        if (unconfirmed.erase(record.id()) > 0) {
            record.status = DeliveryStatus::confirmed;
            record.deliveredAt = confirmedAt;
        }
    }
    // The alert was shown even if its pending record is gone (reset, pruned): remember it all the same, in the
    // order the keys were given, so that it does not show again.
    for (const auto& key : keys) {
        if (unconfirmed.erase(key) > 0) {
            state.records.push_back({key.identity, key.triggerDate, DeliveryStatus::confirmed, confirmedAt});
        }
    }
    commit(std::move(state));
}

void DeliveryStore::discardPendingDeliveries(std::span<const DeliveryKey> keys)
{
    auto state = m_state;
    const auto discarded = keySet(keys);
    std::erase_if(state.records, [&](const DeliveryRecord& record) {
        return record.status == DeliveryStatus::pending && discarded.contains(record.id());
    });
    commit(std::move(state));
}

void DeliveryStore::setSnoozes(std::span<const SnoozeRecord> snoozes)
{
    commit({m_state.records, oneSnoozePerIdentity(snoozes)});
}

void DeliveryStore::clearSnooze(const MeetingIdentity& identity)
{
    clearSnoozes(std::span(&identity, 1));
}

void DeliveryStore::clearSnoozes(std::span<const MeetingIdentity> identities)
{
    const std::unordered_set<MeetingIdentity> cleared(identities.begin(), identities.end());
    auto state = m_state;
    std::erase_if(state.snoozes, [&](const SnoozeRecord& snooze) { return cleared.contains(snooze.identity); });
    commit(std::move(state));
}

void DeliveryStore::removePersistedState(const std::unordered_set<MeetingIdentity>& identities)
{
    auto state = m_state;
    std::erase_if(state.records, [&](const DeliveryRecord& record) { return identities.contains(record.identity); });
    std::erase_if(state.snoozes, [&](const SnoozeRecord& snooze) { return identities.contains(snooze.identity); });
    commit(std::move(state));
}

VersionedDefaults::PreparedChange
DeliveryStore::prepareMigrations(std::span<const CalendarIdentityMigration> migrations)
{
    m_record.refuseWhileUnreadable();
    const IdentityMigrationMap map(migrations);
    auto state = m_state;
    for (auto& record : state.records) {
        record.identity = map.migrated(record.identity);
    }
    for (auto& snooze : state.snoozes) {
        snooze.identity = map.migrated(snooze.identity);
    }
    // Two identities may have become one: keep the invariants of one record per key and one snooze per meeting.
    return prepare({cleaned(std::move(state.records)), oneSnoozePerIdentity(state.snoozes)});
}

void DeliveryStore::applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations)
{
    m_record.commit(prepareMigrations(migrations));
}

void DeliveryStore::prune(Date deliveriesBefore, Date snoozesBefore)
{
    auto state = m_state;
    std::erase_if(state.records, [&](const DeliveryRecord& record) { return record.deliveredAt < deliveriesBefore; });
    std::erase_if(state.snoozes, [&](const SnoozeRecord& snooze) { return snooze.snoozedUntil < snoozesBefore; });
    commit(std::move(state));
}

void DeliveryStore::resetAfterReadFailure()
{
    requireMainThread("DeliveryStore::resetAfterReadFailure");
    m_record.commit(m_record.prepareReset(toJson(DeliveryState{}), [this] { m_state = DeliveryState{}; }));
}

} // namespace orvane
