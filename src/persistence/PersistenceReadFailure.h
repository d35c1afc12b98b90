// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Hashing.h"

#include <QString>

#include <variant>

namespace orvane {

/// Why a stored record could not be read.
struct PersistenceReadFailure {
    /// The record's version is not one this build supports (a newer build may read it).
    struct UnsupportedSchemaVersion {
        qint64 version = 0;
        friend bool operator==(const UnsupportedSchemaVersion&, const UnsupportedSchemaVersion&) = default;
    };
    /// Something other than a data blob is stored under the key.
    struct InvalidStoredType {
        friend bool operator==(const InvalidStoredType&, const InvalidStoredType&) = default;
    };
    /// The blob is not a JSON object with an integer "schemaVersion".
    struct MalformedEnvelope {
        friend bool operator==(const MalformedEnvelope&, const MalformedEnvelope&) = default;
    };
    /// The version is supported but the contents do not decode.
    struct InvalidPayload {
        friend bool operator==(const InvalidPayload&, const InvalidPayload&) = default;
    };
    /// The database that holds the record could not be read at all (a settings file that cannot be opened or
    /// parsed), so no record in it can be trusted.
    struct UnreadableDatabase {
        friend bool operator==(const UnreadableDatabase&, const UnreadableDatabase&) = default;
    };

    std::variant<UnsupportedSchemaVersion, InvalidStoredType, MalformedEnvelope, InvalidPayload, UnreadableDatabase>
        value;

    /// The user-facing description.
    QString message() const;
    /// Whether the whole database failed rather than this record.
    bool isUnreadableDatabase() const { return std::holds_alternative<UnreadableDatabase>(value); }

    friend bool operator==(const PersistenceReadFailure&, const PersistenceReadFailure&) = default;
};

std::size_t hash(const PersistenceReadFailure& failure);

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::PersistenceReadFailure);
