// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/VersionedRecord.h"

#include <QCoreApplication>
#include <QThread>

namespace orvane {

VersionedRecord::VersionedRecord(DefaultsDatabase& database, QString key, std::vector<qint64> supportedVersions)
    : m_database(database)
    , m_key(std::move(key))
    , m_supportedVersions(std::move(supportedVersions))
{
}

bool VersionedRecord::needsUpgrade() const
{
    const auto* loaded = std::get_if<PersistenceReadState::Loaded>(&m_readState.value);
    return loaded != nullptr && loaded->schemaVersion != currentSchemaVersion();
}

bool VersionedRecord::isInUnreadableDatabase() const
{
    const auto failure = m_readState.failure();
    return failure && failure->isUnreadableDatabase();
}

void VersionedRecord::refuseWhileUnreadable() const
{
    if (auto failure = m_readState.failure()) {
        throw PersistenceStoreError(PersistenceStoreError::RecoveryRequired{*failure});
    }
}

VersionedDefaults::PreparedChange VersionedRecord::prepare(const json::Value& payload, std::function<void()> apply)
{
    refuseWhileUnreadable();
    return encodeChange(payload, std::move(apply));
}

VersionedDefaults::PreparedChange VersionedRecord::prepareReset(const json::Value& emptyPayload,
                                                                std::function<void()> apply)
{
    if (!m_readState.isUnreadable()) {
        throw PersistenceStoreError(PersistenceStoreError::RecoveryNotRequired{});
    }
    return encodeChange(emptyPayload, std::move(apply));
}

VersionedDefaults::PreparedChange VersionedRecord::encodeChange(const json::Value& payload, std::function<void()> apply)
{
    return {m_key, VersionedDefaults::encode(currentSchemaVersion(), payload), [this, apply = std::move(apply)] {
                apply();
                m_readState = PersistenceReadState::loaded(currentSchemaVersion());
            }};
}

void VersionedRecord::commit(VersionedDefaults::PreparedChange change)
{
    std::vector<VersionedDefaults::PreparedChange> changes;
    changes.push_back(std::move(change));
    VersionedDefaults::commit(m_database, std::move(changes));
}

void requireMainThread(const char* operation)
{
    const auto* application = QCoreApplication::instance();
    if (application != nullptr && QThread::currentThread() != application->thread()) {
        qFatal("%s must run on the main thread", operation);
    }
}

} // namespace orvane
