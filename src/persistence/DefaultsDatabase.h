// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/PersistenceStoreError.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace orvane {

/// The user defaults database: named values that outlive the process.
class DefaultsDatabase {
public:
    virtual ~DefaultsDatabase() = default;

    /// The value stored under `key`; invalid when nothing is.
    virtual QVariant object(const QString& key) const = 0;

    /// Where the database is, as the user would look for it; empty when it has no such place.
    virtual QString location() const { return {}; }
    /// Whether the database itself can be read. One that cannot (a settings file that cannot be opened or parsed)
    /// holds nothing to trust and takes no writes.
    virtual bool isReadable() const { return true; }
    /// Calls `readable` once, when an unreadable database can be read again (its permissions were fixed, say).
    virtual void watchUntilReadable(std::function<void()> readable) { Q_UNUSED(readable); }
    /// Moves an unreadable database aside, its bytes kept, so that a fresh one starts; returns where it now is. A
    /// watch for it to become readable ends: the caller takes up the fresh one itself. Throws PersistenceStoreError
    /// (writeFailed) when it cannot.
    virtual QString moveAside() { throw PersistenceStoreError(PersistenceStoreError::WriteFailed{}); }

    /// Stores each blob under its key and makes all of them durable in one step: afterwards either every value
    /// is on disk or none is and the database reads as before. Throws PersistenceStoreError (writeFailed).
    virtual void setObjects(const std::vector<std::pair<QString, QByteArray>>& values) = 0;

    void setObject(const QString& key, const QByteArray& value) { setObjects({{key, value}}); }

    /// Stores `value` as plain text under `key`, or removes `key` when `value` is absent, durably. Used for single
    /// user-entered strings that other tools may read or edit. Throws PersistenceStoreError (writeFailed), which is
    /// all a database that keeps only blobs can do.
    virtual void setString(const QString& key, const std::optional<QString>& value)
    {
        Q_UNUSED(key);
        Q_UNUSED(value);
        throw PersistenceStoreError(PersistenceStoreError::WriteFailed{});
    }
};

} // namespace orvane
