// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/PersistenceStoreError.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

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
