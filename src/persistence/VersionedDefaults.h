// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Json.h"
#include "persistence/DefaultsDatabase.h"
#include "persistence/PersistenceReadState.h"
#include "persistence/PersistenceStoreError.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <span>

/// Versioned records in the defaults database: a data blob holding {"schemaVersion": n, "payload": …}.
namespace orvane::VersionedDefaults {

/// The version of a record, decoded before its payload is trusted.
struct Header {
    qint64 schemaVersion = 0;
};

Header fromJson(const json::Decoder& decoder, json::Tag<Header>);

template <class Payload>
struct Envelope {
    qint64 schemaVersion = 0;
    Payload payload;
};

template <class Payload>
Envelope<Payload> fromJson(const json::Decoder& decoder, json::Tag<Envelope<Payload>>)
{
    return {decoder.decode<qint64>(u"schemaVersion"), decoder.decode<Payload>(u"payload")};
}

/// What reading one record found: its state, and the payload when it loaded.
template <class Payload>
struct ReadResult {
    PersistenceReadState state;
    std::optional<Payload> payload;
};

/// Why a stored object is unreadable before its payload is looked at; nothing when it has a supported version.
std::optional<PersistenceReadFailure> classifyEnvelope(const QVariant& stored,
                                                       std::span<const qint64> supportedVersions);

/// Reads and classifies the record under `key`: unreadable database, absent, not a blob, no header, unsupported
/// version, undecodable payload, or loaded. The first failing step decides.
template <class Payload>
ReadResult<Payload> read(const DefaultsDatabase& database, const QString& key,
                         std::span<const qint64> supportedVersions)
{
    if (!database.isReadable()) {
        return {PersistenceReadState::unreadable({PersistenceReadFailure::UnreadableDatabase{}}), std::nullopt};
    }
    const QVariant stored = database.object(key);
    if (!stored.isValid()) {
        return {PersistenceReadState::absent(), std::nullopt};
    }
    if (auto failure = classifyEnvelope(stored, supportedVersions)) {
        return {PersistenceReadState::unreadable(*failure), std::nullopt};
    }
    try {
        auto envelope = json::decode<Envelope<Payload>>(stored.toByteArray());
        return {PersistenceReadState::loaded(envelope.schemaVersion), std::move(envelope.payload)};
    } catch (const json::DecodingError&) {
        return {PersistenceReadState::unreadable({PersistenceReadFailure::InvalidPayload{}}), std::nullopt};
    }
}

/// The blob of an envelope; throws PersistenceStoreError (EncodingFailed) when the payload cannot be encoded.
QByteArray encode(qint64 schemaVersion, const json::Value& payload);

/// A change to one record, encoded and ready: `apply` updates the owning store's memory once the blob is durable.
struct PreparedChange {
    QString key;
    QByteArray blob;
    std::function<void()> apply;
};

/// Writes every prepared blob in one durable step, then applies the changes to memory in order. When the write
/// fails nothing is applied and the PersistenceStoreError propagates.
void commit(DefaultsDatabase& database, std::vector<PreparedChange> changes);

} // namespace orvane::VersionedDefaults
