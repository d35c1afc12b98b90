// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/SettingsStoring.h"
#include "persistence/VersionedRecord.h"

namespace orvane {

/// The settings record ("Orvane.settings", versions 1 and 2) in the defaults database.
class SettingsStore final : public SettingsStoring {
public:
    static inline const QString defaultKey = QStringLiteral("Orvane.settings");

    /// Reads the record once; a record of the first version is rewritten at the current one at once.
    SettingsStore(DefaultsDatabase& defaults, QString key = defaultKey);

    const NotifierSettings& settings() const override { return m_settings; }
    const PersistenceReadState& readState() const override { return m_record.readState(); }
    void save(const NotifierSettings& settings) override;
    void resetAfterReadFailure() override;
    void reloadAfterDatabaseRecovered() override;

    /// The guarded, encoded save, for a batch with the other stores.
    VersionedDefaults::PreparedChange prepareSave(const NotifierSettings& settings);
    DefaultsDatabase& database() const { return m_record.database(); }

private:
    void load();

    NotifierSettings m_settings;
    VersionedRecord m_record;
};

} // namespace orvane
