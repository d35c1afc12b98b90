// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/ExclusionStoring.h"
#include "persistence/VersionedRecord.h"

namespace orvane {

/// The exclusions record ("Orvane.exclusions", versions 1 and 2) in the defaults database.
class ExclusionStore final : public ExclusionStoring {
public:
    static inline const QString defaultKey = QStringLiteral("Orvane.exclusions");

    ExclusionStore(DefaultsDatabase& defaults, QString key = defaultKey);

    const std::vector<ExclusionRecord>& records() const override { return m_matcher.records(); }
    const ExclusionMatcher& matcher() const override { return m_matcher; }
    const PersistenceReadState& readState() const override { return m_record.readState(); }

    void add(const ExclusionRecord& record) override;
    void remove(const QSet<QUuid>& ids) override;
    void removeAll() override;
    void applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration> migrations) override;
    void resetAfterReadFailure() override;
    void reloadAfterDatabaseRecovered() override;
    /// Works with the settings and delivery stores of this same database; other stores are unsupported.
    void applyAtomicBatch(const AtomicStoreBatch& batch, SettingsStoring& settings, DeliveryStoring& delivery) override;

private:
    void load();
    VersionedDefaults::PreparedChange prepare(std::vector<ExclusionRecord> records);
    VersionedDefaults::PreparedChange prepareMigrations(std::span<const CalendarIdentityMigration> migrations);
    void commit(std::vector<ExclusionRecord> records);

    ExclusionMatcher m_matcher;
    VersionedRecord m_record;
};

} // namespace orvane
