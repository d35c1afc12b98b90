// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/PersistenceReadFailure.h"

#include "domain/Overloaded.h"

using namespace Qt::StringLiterals;

namespace orvane {

QString PersistenceReadFailure::message() const
{
    return std::visit(
        Overloaded{
            [](const UnsupportedSchemaVersion& failure) {
                return u"This record uses unsupported schema version "_s + QString::number(failure.version) +
                       u". A newer compatible app may be able to read it without resetting."_s;
            },
            [](const InvalidStoredType&) { return u"The stored value has an unexpected format."_s; },
            [](const MalformedEnvelope&) { return u"The stored record is malformed."_s; },
            [](const InvalidPayload&) { return u"The record version is recognized, but its contents are invalid."_s; },
            [](const UnreadableDatabase&) {
                return u"Orvane's settings file cannot be read, so nothing stored in it can be used."_s;
            },
        },
        value);
}

std::size_t hash(const PersistenceReadFailure& failure)
{
    const auto version = std::holds_alternative<PersistenceReadFailure::UnsupportedSchemaVersion>(failure.value)
                             ? std::get<PersistenceReadFailure::UnsupportedSchemaVersion>(failure.value).version
                             : 0;
    return hashFields(failure.value.index(), version);
}

} // namespace orvane
