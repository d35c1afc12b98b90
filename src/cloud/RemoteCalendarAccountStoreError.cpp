// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarAccountStoreError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

RemoteCalendarAccountStoreError::RemoteCalendarAccountStoreError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString RemoteCalendarAccountStoreError::description() const
{
    return std::visit(
        Overloaded{
            [](const UnsupportedSchemaVersion& error) {
                return u"The accounts were saved in format version %1, which this version of Orvane cannot read."_s.arg(
                    error.version);
            },
            [](const InvalidStoredType&) { return u"The stored accounts are not saved as data."_s; },
            [](const MalformedEnvelope&) {
                return u"The stored accounts are damaged: their format version cannot be read."_s;
            },
            [](const InvalidPayload&) {
                return u"The stored accounts are damaged: the list of accounts cannot be read."_s;
            },
            [](const InvalidAccountMetadata&) {
                return u"An account is missing its account identifier, tenant or client ID."_s;
            },
            [](const DuplicateAccountIdentifier&) { return u"Two accounts have the same identifier."_s; },
            [](const DuplicateProviderAccount&) { return u"The same provider account is connected twice."_s; },
            [](const UnreadableDatabase&) { return u"Orvane's settings file, which lists them, cannot be read."_s; },
        },
        m_value);
}

bool RemoteCalendarAccountStoreError::isValidationFailure() const
{
    return std::holds_alternative<InvalidAccountMetadata>(m_value) ||
           std::holds_alternative<DuplicateAccountIdentifier>(m_value) ||
           std::holds_alternative<DuplicateProviderAccount>(m_value);
}

QString RemoteCalendarAccountStoreError::userMessage() const
{
    const QString lead = isValidationFailure() ? u"Unable to validate connected calendar accounts:"_s
                                               : u"Unable to read connected calendar accounts:"_s;
    return lead + u' ' + description();
}

const char* RemoteCalendarAccountStoreError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
