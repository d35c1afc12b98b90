// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <exception>
#include <variant>

namespace orvane {

/// Why the stored list of connected accounts could not be read, or a list could not be stored.
class RemoteCalendarAccountStoreError : public std::exception {
public:
    /// The list was written in a format version this build does not know.
    struct UnsupportedSchemaVersion {
        qint64 version = 0;
        friend bool operator==(const UnsupportedSchemaVersion&, const UnsupportedSchemaVersion&) = default;
    };
    /// Something other than a data blob is stored under the key.
    struct InvalidStoredType {
        friend bool operator==(const InvalidStoredType&, const InvalidStoredType&) = default;
    };
    /// The blob is not JSON with a numeric format version.
    struct MalformedEnvelope {
        friend bool operator==(const MalformedEnvelope&, const MalformedEnvelope&) = default;
    };
    /// The format version is known but the accounts do not decode.
    struct InvalidPayload {
        friend bool operator==(const InvalidPayload&, const InvalidPayload&) = default;
    };
    /// An account lacks an identifier it cannot work without.
    struct InvalidAccountMetadata {
        friend bool operator==(const InvalidAccountMetadata&, const InvalidAccountMetadata&) = default;
    };
    /// Two accounts share Orvane's own identifier.
    struct DuplicateAccountIdentifier {
        friend bool operator==(const DuplicateAccountIdentifier&, const DuplicateAccountIdentifier&) = default;
    };
    /// Two accounts are the same provider account (same provider, user and tenant).
    struct DuplicateProviderAccount {
        friend bool operator==(const DuplicateProviderAccount&, const DuplicateProviderAccount&) = default;
    };
    /// The settings file that holds the list cannot be read at all.
    struct UnreadableDatabase {
        friend bool operator==(const UnreadableDatabase&, const UnreadableDatabase&) = default;
    };

    using Case =
        std::variant<UnsupportedSchemaVersion, InvalidStoredType, MalformedEnvelope, InvalidPayload,
                     InvalidAccountMetadata, DuplicateAccountIdentifier, DuplicateProviderAccount, UnreadableDatabase>;

    explicit RemoteCalendarAccountStoreError(Case value);

    const Case& value() const { return m_value; }
    /// A plain English description of the error.
    QString description() const;
    /// Whether the stored bytes could be read but the accounts in them are not a valid list.
    bool isValidationFailure() const;
    /// The sentence the application shows: "Unable to read …" or "Unable to validate connected calendar
    /// accounts:" followed by the description.
    QString userMessage() const;
    const char* what() const noexcept override;

    friend bool operator==(const RemoteCalendarAccountStoreError& lhs, const RemoteCalendarAccountStoreError& rhs)
    {
        return lhs.m_value == rhs.m_value;
    }

private:
    Case m_value;
    QByteArray m_what;
};

} // namespace orvane
