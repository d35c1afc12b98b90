// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/DeliveryStoring.h"
#include "persistence/VersionedRecord.h"

namespace orvane {

/// The delivery record ("Orvane.delivery", versions 1 to 3) in the defaults database.
class DeliveryStore final : public DeliveryStoring {
public:
    static inline const QString defaultKey = QStringLiteral("Orvane.delivery");

    DeliveryStore(DefaultsDatabase& defaults, QString key = defaultKey);

    const std::vector<DeliveryRecord>& records() const override { return m_state.records; }
    const std::vector<SnoozeRecord>& snoozes() const override { return m_state.snoozes; }
    const PersistenceReadState& readState() const override { return m_record.readState(); }

    bool hasDelivered(const MeetingIdentity& identity, Date triggerDate) const override;
    std::optional<SnoozeRecord> snoozeRecord(const MeetingIdentity& identity) const override;

    void prepareDeliveries(std::span<const DeliveryRecord> records) override;
    void confirmDeliveries(std::span<const DeliveryKey> keys, Date confirmedAt) override;
    void discardPendingDeliveries(std::span<const DeliveryKey> keys) override;
    void setSnoozes(std::span<const SnoozeRecord> snoozes) override;
    void clearSnooze(const MeetingIdentity& identity);
    void clearSnoozes(std::span<const MeetingIdentity> identities);
    void removePersistedState(const std::unordered_set<MeetingIdentity>& identities) override;
    void applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations) override;
    void prune(Date deliveriesBefore, Date snoozesBefore) override;
    void resetAfterReadFailure() override;
    void reloadAfterDatabaseRecovered() override;

    /// The guarded, encoded migration, for a batch with the other stores.
    VersionedDefaults::PreparedChange prepareMigrations(std::span<const CalendarIdentityMigration> migrations);
    DefaultsDatabase& database() const { return m_record.database(); }

private:
    void load();
    VersionedDefaults::PreparedChange prepare(DeliveryState state);
    void commit(DeliveryState state);

    DeliveryState m_state;
    VersionedRecord m_record;
};

} // namespace orvane
