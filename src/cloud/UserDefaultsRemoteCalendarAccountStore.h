// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarAccountMetadata.h"
#include "cloud/RemoteCalendarAccountStoreError.h"
#include "persistence/DefaultsDatabase.h"

#include <vector>

namespace orvane {

/// The list of connected cloud accounts, stored under "Orvane.remoteCalendarAccounts" as
/// `{"schemaVersion":1,"accounts":[…]}`.
///
/// The design's named suite is whichever DefaultsDatabase the composition root hands in. Calls are synchronous
/// and made from the thread that owns the store (the main thread): one QSettings write is quick, and one owning
/// thread gives the one-at-a-time access the design asks of it. Nothing is cached, so a failed load leaves the
/// stored bytes exactly as they were.
class UserDefaultsRemoteCalendarAccountStore {
public:
    /// The defaults key that holds the list.
    static inline const QString storageKey = QStringLiteral("Orvane.remoteCalendarAccounts");
    /// The only format version this build reads and writes.
    static constexpr qint64 schemaVersion = 1;

    explicit UserDefaultsRemoteCalendarAccountStore(DefaultsDatabase& database);

    /// The stored accounts in listing order; empty when nothing is stored. Throws RemoteCalendarAccountStoreError.
    std::vector<RemoteCalendarAccountMetadata> loadAccounts() const;

    /// Replaces the stored list. A list that would fail to load throws RemoteCalendarAccountStoreError; one that
    /// cannot be encoded or written throws PersistenceStoreError. Either way nothing is written.
    void saveAccounts(std::vector<RemoteCalendarAccountMetadata> accounts);

    /// Throws the validation case of RemoteCalendarAccountStoreError that `accounts` break, if any.
    static void validate(const std::vector<RemoteCalendarAccountMetadata>& accounts);

private:
    DefaultsDatabase& m_database;
};

} // namespace orvane
