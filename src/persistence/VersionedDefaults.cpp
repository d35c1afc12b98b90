// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/VersionedDefaults.h"

#include <QMetaType>

using namespace Qt::StringLiterals;

namespace orvane::VersionedDefaults {

Header fromJson(const json::Decoder& decoder, json::Tag<Header>)
{
    return {decoder.decode<qint64>(u"schemaVersion")};
}

std::optional<PersistenceReadFailure> classifyEnvelope(const QVariant& stored,
                                                       std::span<const qint64> supportedVersions)
{
    if (stored.typeId() != QMetaType::QByteArray) {
        return PersistenceReadFailure{PersistenceReadFailure::InvalidStoredType{}};
    }
    Header header;
    try {
        header = json::decode<Header>(stored.toByteArray());
    } catch (const json::DecodingError&) {
        return PersistenceReadFailure{PersistenceReadFailure::MalformedEnvelope{}};
    }
    if (std::find(supportedVersions.begin(), supportedVersions.end(), header.schemaVersion) ==
        supportedVersions.end()) {
        return PersistenceReadFailure{PersistenceReadFailure::UnsupportedSchemaVersion{header.schemaVersion}};
    }
    return std::nullopt;
}

QByteArray encode(qint64 schemaVersion, const json::Value& payload)
{
    try {
        return json::serialize(json::Object{{u"schemaVersion"_s, schemaVersion}, {u"payload"_s, payload}});
    } catch (const json::EncodingError&) {
        throw PersistenceStoreError(PersistenceStoreError::EncodingFailed{});
    }
}

void commit(DefaultsDatabase& database, std::vector<PreparedChange> changes)
{
    std::vector<std::pair<QString, QByteArray>> blobs;
    blobs.reserve(changes.size());
    for (const auto& change : changes) {
        blobs.emplace_back(change.key, change.blob);
    }
    database.setObjects(blobs);
    for (auto& change : changes) {
        change.apply();
    }
}

} // namespace orvane::VersionedDefaults
