// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/NotifierSettings.h"
#include "persistence/PersistenceReadState.h"

namespace orvane {

/// The user's alert preferences, kept durable.
class SettingsStoring {
public:
    static constexpr qint64 currentSchemaVersion = 2;

    virtual ~SettingsStoring() = default;

    /// Reads the record again when it was unreadable only because its whole database was, which can be read now;
    /// otherwise does nothing. The record then gets a verdict of its own.
    virtual void reloadAfterDatabaseRecovered() {}

    /// The current settings (the defaults while nothing is stored).
    virtual const NotifierSettings& settings() const = 0;
    virtual const PersistenceReadState& readState() const = 0;
    /// Replaces the whole settings value. Throws PersistenceStoreError.
    virtual void save(const NotifierSettings& settings) = 0;
    /// Replaces an unreadable record with the default settings. Throws PersistenceStoreError.
    virtual void resetAfterReadFailure() = 0;
};

} // namespace orvane
