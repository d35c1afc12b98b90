// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthKeychainItemAccessing.h"

#include <QString>

using GError = struct _GError;

namespace orvane {

/// Secret items in the user's keyring through the Secret Service API (libsecret): GNOME Keyring, KWallet or any
/// other provider of org.freedesktop.secrets on the session bus.
///
/// A current-form item carries Orvane's own schema name (the "xdg:schema" attribute libsecret stores) with the
/// attributes `service` and `account`, and lives in the default collection. A legacy item has the same two
/// attributes and either no schema name (as `secret-tool store` writes it) or the generic one; items of any other
/// schema never match. Every call blocks on D-Bus, and when an item or the default collection is locked, on the
/// keyring's unlock prompt. Any thread may call; libsecret serialises on its own shared service object.
class SecretServiceKeychainItemAccess final : public OAuthKeychainItemAccessing {
public:
    /// The schema name of Orvane's own items.
    static constexpr const char* schemaName = "com.velmont.Orvane.CalendarOAuth";
    /// The schema name that libsecret gives generic password items.
    static constexpr const char* genericSchemaName = "org.freedesktop.Secret.Generic";

    OAuthKeychainCopyResult copyMatching(const OAuthKeychainQuery& query) override;
    std::int32_t update(const OAuthKeychainQuery& query, const QByteArray& data) override;
    std::int32_t add(const OAuthKeychainQuery& query, const QByteArray& data) override;
    std::int32_t remove(const OAuthKeychainQuery& query) override;

    /// The label a new item is shown under in keyring managers such as Seahorse.
    static QString label(const QString& account);
    /// The status for a libsecret or D-Bus failure: the one place where GLib errors become keychain statuses.
    static std::int32_t statusForError(const GError* error);
};

} // namespace orvane
