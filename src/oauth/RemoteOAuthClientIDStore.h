// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RemoteCalendarProviderKind.h"
#include "persistence/DefaultsDatabase.h"

#include <QString>

#include <map>
#include <optional>

namespace orvane {

/// The OAuth client each calendar provider signs in with. A client configured into the build wins; otherwise the
/// user may enter one, kept in their settings.
class RemoteOAuthClientIDStore {
public:
    /// The build-configured keys read from `bundleValues`.
    static const QString googleClientIDKey;
    static const QString googleClientSecretKey;
    static const QString microsoftClientIDKey;
    /// The user's own client ID of a provider is kept under this prefix plus the sign-in service's raw value.
    static const QString userClientIDKeyPrefix;

    /// `bundleValues` are the build-configured values by key (BundleInfo's, for the application).
    RemoteOAuthClientIDStore(DefaultsDatabase& defaults, std::map<QString, QString> bundleValues);

    /// The client ID to sign in with: the build's, else the user's; absent when neither is set.
    std::optional<QString> clientID(RemoteCalendarProviderKind provider) const;
    /// The build's client ID alone; while it exists, the user cannot choose another.
    std::optional<QString> preconfiguredClientID(RemoteCalendarProviderKind provider) const;
    /// The build's Google desktop client secret; Microsoft public clients have none.
    std::optional<QString> clientSecret(RemoteCalendarProviderKind provider) const;
    /// Stores the user's client ID, or forgets it when `value` is absent or blank. With a build-configured client the
    /// user's value is only forgotten. Throws PersistenceStoreError (writeFailed) when the settings cannot be saved.
    void setClientID(const std::optional<QString>& value, RemoteCalendarProviderKind provider);

    static QString userClientIDKey(RemoteCalendarProviderKind provider);

private:
    std::optional<QString> bundleValue(const QString& key) const;
    std::optional<QString> userClientID(RemoteCalendarProviderKind provider) const;

    DefaultsDatabase& m_defaults;
    std::map<QString, QString> m_bundleValues;
};

} // namespace orvane
