// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/PersistenceStoreError.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

PersistenceStoreError::PersistenceStoreError(Case value)
    : m_value(std::move(value))
    , m_what(description().toUtf8())
{
}

QString PersistenceStoreError::description() const
{
    return std::visit(
        Overloaded{
            [](const RecoveryRequired& error) {
                return u"This stored record cannot be read and must be reviewed in Settings before it can change. "_s +
                       error.failure.message();
            },
            [](const EncodingFailed&) { return u"The change could not be encoded, so nothing was saved."_s; },
            [](const RecoveryNotRequired&) { return u"This stored record is readable and does not need a reset."_s; },
            [](const AtomicBatchUnsupported&) { return u"These stores cannot save several records in one step."_s; },
            [](const InvalidIdentityMigration&) {
                return u"A calendar identity update was not valid, so nothing was changed."_s;
            },
            [](const ConflictingIdentityMigration&) {
                return u"Two calendar identity updates conflict, so nothing was changed."_s;
            },
            [](const WriteFailed&) {
                return u"The change could not be saved to disk. Check that your configuration folder is writable and "
                       u"the disk is not full; nothing was changed."_s;
            },
        },
        m_value);
}

const char* PersistenceStoreError::what() const noexcept
{
    return m_what.constData();
}

} // namespace orvane
