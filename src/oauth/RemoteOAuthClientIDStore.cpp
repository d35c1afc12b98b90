// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/RemoteOAuthClientIDStore.h"

#include "oauth/OAuthService.h"

#include <QMetaType>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// The value with surrounding white space and line breaks removed; absent when nothing is left.
std::optional<QString> nonBlank(const QString& value)
{
    QString trimmed = value.trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    return trimmed;
}

} // namespace

const QString RemoteOAuthClientIDStore::googleClientIDKey = u"OrvaneGoogleOAuthClientID"_s;
const QString RemoteOAuthClientIDStore::googleClientSecretKey = u"OrvaneGoogleOAuthClientSecret"_s;
const QString RemoteOAuthClientIDStore::microsoftClientIDKey = u"OrvaneMicrosoftOAuthClientID"_s;
const QString RemoteOAuthClientIDStore::userClientIDKeyPrefix = u"Orvane.oauthClientID."_s;

RemoteOAuthClientIDStore::RemoteOAuthClientIDStore(DefaultsDatabase& defaults, std::map<QString, QString> bundleValues)
    : m_defaults(defaults)
    , m_bundleValues(std::move(bundleValues))
{
}

std::optional<QString> RemoteOAuthClientIDStore::clientID(RemoteCalendarProviderKind provider) const
{
    if (auto preconfigured = preconfiguredClientID(provider)) {
        return preconfigured;
    }
    return userClientID(provider);
}

std::optional<QString> RemoteOAuthClientIDStore::preconfiguredClientID(RemoteCalendarProviderKind provider) const
{
    switch (provider) {
    case RemoteCalendarProviderKind::google:
        return bundleValue(googleClientIDKey);
    case RemoteCalendarProviderKind::microsoft:
        return bundleValue(microsoftClientIDKey);
    }
    return std::nullopt;
}

std::optional<QString> RemoteOAuthClientIDStore::clientSecret(RemoteCalendarProviderKind provider) const
{
    // Microsoft desktop apps are public clients: a secret shipped in the build would protect nothing.
    return provider == RemoteCalendarProviderKind::google ? bundleValue(googleClientSecretKey) : std::nullopt;
}

void RemoteOAuthClientIDStore::setClientID(const std::optional<QString>& value, RemoteCalendarProviderKind provider)
{
    // A value left from before the build had its own client would come back if that client were ever removed.
    const std::optional<QString> stored = preconfiguredClientID(provider) || !value ? std::nullopt : nonBlank(*value);
    m_defaults.setString(userClientIDKey(provider), stored);
}

QString RemoteOAuthClientIDStore::userClientIDKey(RemoteCalendarProviderKind provider)
{
    return userClientIDKeyPrefix + rawValue(oauthService(provider));
}

std::optional<QString> RemoteOAuthClientIDStore::bundleValue(const QString& key) const
{
    const auto found = m_bundleValues.find(key);
    return found == m_bundleValues.end() ? std::nullopt : nonBlank(found->second);
}

std::optional<QString> RemoteOAuthClientIDStore::userClientID(RemoteCalendarProviderKind provider) const
{
    const QVariant stored = m_defaults.object(userClientIDKey(provider));
    // Only text counts: a number or a blob under this key was not written by Orvane and names no client.
    if (stored.typeId() != QMetaType::QString) {
        return std::nullopt;
    }
    return nonBlank(stored.toString());
}

} // namespace orvane
