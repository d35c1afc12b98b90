// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionMatcher.h"
#include "domain/NotifierSettings.h"
#include "persistence/CalendarIdentityMigration.h"
#include "persistence/PersistenceReadState.h"

#include <QSet>
#include <QUuid>

#include <optional>
#include <span>

namespace orvane {

class SettingsStoring;
class DeliveryStoring;

/// Changes to several stored records that must become durable together or not at all, as calendar identity
/// reconciliation needs: new settings (a re-matched calendar selection) and identity migrations applied to both the
/// exclusions and the reminder history.
struct AtomicStoreBatch {
    std::optional<NotifierSettings> settings;
    std::vector<CalendarIdentityMigration> identityMigrations;
};

/// The meetings the user excluded, kept durable.
class ExclusionStoring {
public:
    static constexpr qint64 currentSchemaVersion = 2;

    virtual ~ExclusionStoring() = default;

    /// Reads the record again when it was unreadable only because its whole database was, which can be read now;
    /// otherwise does nothing. The record then gets a verdict of its own.
    virtual void reloadAfterDatabaseRecovered() {}

    /// The records in stored order.
    virtual const std::vector<ExclusionRecord>& records() const = 0;
    /// The records, indexed for matching many occurrences.
    virtual const ExclusionMatcher& matcher() const = 0;
    virtual const PersistenceReadState& readState() const = 0;

    /// Whether a stored exclusion covers the occurrence with this identity (the first matching record decides).
    bool isExcluded(const MeetingIdentity& identity) const { return matcher().isExcluded(identity); }

    /// Each mutation throws PersistenceStoreError and then changes nothing.
    virtual void add(const ExclusionRecord& record) = 0;
    virtual void remove(const QSet<QUuid>& ids) = 0;
    virtual void removeAll() = 0;
    virtual void applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations) = 0;
    virtual void resetAfterReadFailure() = 0;

    /// Applies `batch` to this store and the other two in one durable step. Stores that cannot do that throw
    /// AtomicBatchUnsupported, which is what this default does.
    virtual void applyAtomicBatch(const AtomicStoreBatch& batch, SettingsStoring& settings, DeliveryStoring& delivery);
};

} // namespace orvane
