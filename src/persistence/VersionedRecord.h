// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/VersionedDefaults.h"

#include <vector>

namespace orvane {

/// One store's record: its key, versions and read state, and the write guard every mutation goes through.
class VersionedRecord {
public:
    VersionedRecord(DefaultsDatabase& database, QString key, std::vector<qint64> supportedVersions);

    /// Reads the record once; sets the read state and returns the payload when it loaded.
    template <class Payload>
    std::optional<Payload> load()
    {
        auto result = VersionedDefaults::read<Payload>(m_database, m_key, m_supportedVersions);
        m_readState = result.state;
        return std::move(result.payload);
    }

    /// The record was read at an older version than the current one and should be rewritten.
    bool needsUpgrade() const;
    /// The record is unreadable only because its database could not be read.
    bool isInUnreadableDatabase() const;

    /// Guard and encode a new payload: refuses while unreadable (RecoveryRequired), fails without effect when the
    /// payload cannot be encoded (EncodingFailed). Once the blob is durable, `apply` runs and the state becomes
    /// loaded at the current version.
    VersionedDefaults::PreparedChange prepare(const json::Value& payload, std::function<void()> apply);

    /// Throws RecoveryRequired while unreadable. Mutations that check their arguments first call this before, so
    /// that a locked record is reported as such whatever else is wrong with the change.
    void refuseWhileUnreadable() const;

    /// The same for a reset: allowed only while unreadable (otherwise RecoveryNotRequired).
    VersionedDefaults::PreparedChange prepareReset(const json::Value& emptyPayload, std::function<void()> apply);

    /// Writes one prepared change and applies it.
    void commit(VersionedDefaults::PreparedChange change);

    const PersistenceReadState& readState() const { return m_readState; }
    void setReadState(PersistenceReadState state) { m_readState = std::move(state); }
    DefaultsDatabase& database() const { return m_database; }
    const QString& key() const { return m_key; }
    qint64 currentSchemaVersion() const { return m_supportedVersions.back(); }

private:
    VersionedDefaults::PreparedChange encodeChange(const json::Value& payload, std::function<void()> apply);

    DefaultsDatabase& m_database;
    QString m_key;
    std::vector<qint64> m_supportedVersions;
    PersistenceReadState m_readState;
};

/// Stops the process when a store is used off the main thread: the stores are not synchronised, by design.
void requireMainThread(const char* operation);

} // namespace orvane
