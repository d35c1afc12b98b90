// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/CalendarIdentityMigration.h"
#include "persistence/DeliveryState.h"
#include "persistence/PersistenceReadState.h"

#include <span>
#include <unordered_set>

namespace orvane {

/// The reminder history (which alerts were shown) and the active snoozes, kept durable.
class DeliveryStoring {
public:
    static constexpr qint64 currentSchemaVersion = 3;

    virtual ~DeliveryStoring() = default;

    /// Reads the record again when it was unreadable only because its whole database was, which can be read now;
    /// otherwise does nothing. The record then gets a verdict of its own.
    virtual void reloadAfterDatabaseRecovered() {}

    virtual const std::vector<DeliveryRecord>& records() const = 0;
    virtual const std::vector<SnoozeRecord>& snoozes() const = 0;
    virtual const PersistenceReadState& readState() const = 0;

    /// Whether a confirmed delivery exists for this identity and trigger date.
    virtual bool hasDelivered(const MeetingIdentity& identity, Date triggerDate) const = 0;
    /// The snooze held for this identity.
    virtual std::optional<SnoozeRecord> snoozeRecord(const MeetingIdentity& identity) const = 0;

    /// Each mutation throws PersistenceStoreError and then changes nothing.

    /// Records alerts about to be shown, as pending, under their keys.
    virtual void prepareDeliveries(std::span<const DeliveryRecord> records) = 0;
    /// Marks the alerts of these keys as shown at `confirmedAt`.
    virtual void confirmDeliveries(std::span<const DeliveryKey> keys, Date confirmedAt) = 0;
    /// Drops the records of these keys that are still pending (the alert was never shown).
    virtual void discardPendingDeliveries(std::span<const DeliveryKey> keys) = 0;
    /// Replaces every snooze.
    virtual void setSnoozes(std::span<const SnoozeRecord> snoozes) = 0;
    /// Deletes the deliveries and snoozes of these identities (whole-identity equality).
    virtual void removePersistedState(const std::unordered_set<MeetingIdentity>& identities) = 0;
    virtual void applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations) = 0;
    /// Keeps the deliveries delivered at or after `deliveriesBefore` and the snoozes ending at or after
    /// `snoozesBefore`.
    virtual void prune(Date deliveriesBefore, Date snoozesBefore) = 0;
    virtual void resetAfterReadFailure() = 0;
};

} // namespace orvane
