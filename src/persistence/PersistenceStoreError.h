// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/PersistenceReadFailure.h"

#include <QByteArray>

#include <exception>
#include <variant>

namespace orvane {

/// Why a store refused or failed a change. Thrown by every store mutation; memory and stored bytes are unchanged.
class PersistenceStoreError : public std::exception {
public:
    /// The record is unreadable; only an explicit reset may replace it.
    struct RecoveryRequired {
        PersistenceReadFailure failure;
        friend bool operator==(const RecoveryRequired&, const RecoveryRequired&) = default;
    };
    /// The new record could not be encoded; nothing was written.
    struct EncodingFailed {
        friend bool operator==(const EncodingFailed&, const EncodingFailed&) = default;
    };
    /// A reset was asked of a record that is readable.
    struct RecoveryNotRequired {
        friend bool operator==(const RecoveryNotRequired&, const RecoveryNotRequired&) = default;
    };
    /// This store cannot take part in an atomic change of several records.
    struct AtomicBatchUnsupported {
        friend bool operator==(const AtomicBatchUnsupported&, const AtomicBatchUnsupported&) = default;
    };
    /// A calendar identity migration is not valid.
    struct InvalidIdentityMigration {
        friend bool operator==(const InvalidIdentityMigration&, const InvalidIdentityMigration&) = default;
    };
    /// Two migrations move the same identity to different places.
    struct ConflictingIdentityMigration {
        friend bool operator==(const ConflictingIdentityMigration&, const ConflictingIdentityMigration&) = default;
    };
    /// The record could not be written to disk (configuration folder not writable, disk full, unreadable file).
    struct WriteFailed {
        friend bool operator==(const WriteFailed&, const WriteFailed&) = default;
    };

    using Case = std::variant<RecoveryRequired, EncodingFailed, RecoveryNotRequired, AtomicBatchUnsupported,
                              InvalidIdentityMigration, ConflictingIdentityMigration, WriteFailed>;

    explicit PersistenceStoreError(Case value);

    const Case& value() const { return m_value; }
    /// A plain English description for the user.
    QString description() const;
    const char* what() const noexcept override;

    friend bool operator==(const PersistenceStoreError& lhs, const PersistenceStoreError& rhs)
    {
        return lhs.m_value == rhs.m_value;
    }

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
