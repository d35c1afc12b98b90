// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/SettingsStore.h"

#include <cmath>

namespace orvane {

SettingsStore::SettingsStore(DefaultsDatabase& defaults, QString key)
    : m_record(defaults, std::move(key), {1, 2})
{
    requireMainThread("SettingsStore");
    load();
}

void SettingsStore::reloadAfterDatabaseRecovered()
{
    if (m_record.isInUnreadableDatabase()) {
        load();
    }
}

void SettingsStore::load()
{
    m_settings = NotifierSettings{};
    if (auto loaded = m_record.load<NotifierSettings>()) {
        m_settings = std::move(*loaded);
    }
    if (!m_record.needsUpgrade()) {
        return;
    }
    try {
        m_record.commit(prepareSave(m_settings));
    } catch (const PersistenceStoreError& error) {
        // Settings that cannot be written back at the current version must not be edited and saved over: the
        // user reviews them. A disk that refused the write is different: the bytes are fine and the next launch
        // tries again.
        if (std::holds_alternative<PersistenceStoreError::EncodingFailed>(error.value())) {
            m_record.setReadState(PersistenceReadState::unreadable({PersistenceReadFailure::InvalidPayload{}}));
        }
    }
}

VersionedDefaults::PreparedChange SettingsStore::prepareSave(const NotifierSettings& settings)
{
    requireMainThread("SettingsStore::save");
    // A lead time the record could not be read back with would lock the user out at the next launch.
    if (!std::isfinite(settings.alertLeadTime) || settings.alertLeadTime < 0 ||
        settings.alertLeadTime > NotifierSettings::maximumAlertLeadTime) {
        if (const auto failure = m_record.readState().failure()) {
            throw PersistenceStoreError(PersistenceStoreError::RecoveryRequired{*failure});
        }
        throw PersistenceStoreError(PersistenceStoreError::EncodingFailed{});
    }
    return m_record.prepare(toJson(settings), [this, settings] { m_settings = settings; });
}

void SettingsStore::save(const NotifierSettings& settings)
{
    m_record.commit(prepareSave(settings));
}

void SettingsStore::resetAfterReadFailure()
{
    requireMainThread("SettingsStore::resetAfterReadFailure");
    m_record.commit(m_record.prepareReset(toJson(NotifierSettings{}), [this] { m_settings = NotifierSettings{}; }));
}

} // namespace orvane
