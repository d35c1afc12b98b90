// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>

namespace orvane {

/// The statuses the keychain seam reports, with the values of the macOS Keychain's codes of the same meaning so
/// that both editions show the same number for the same failure. Every failure an adapter meets is turned into one
/// of these in one place (the Secret Service adapter's status mapping).
namespace OAuthKeychainStatus {
inline constexpr std::int32_t success = 0;
/// No item matches the query (errSecItemNotFound).
inline constexpr std::int32_t itemNotFound = -25300;
/// An item matching the query already exists, so it cannot be added (errSecDuplicateItem).
inline constexpr std::int32_t duplicateItem = -25299;
/// There is no secret store to talk to: no session bus, or no Secret Service on it (errSecNotAvailable).
inline constexpr std::int32_t notAvailable = -25291;
/// The keyring is locked and stayed locked: the unlock prompt was dismissed or refused (errSecAuthFailed).
inline constexpr std::int32_t authorizationFailed = -25293;
/// The stored data is not a token: it is not UTF-8 text (errSecDecode).
inline constexpr std::int32_t undecodableData = -26275;
/// Any other failure of the secret store or of the conversation with it (errSecInternalComponent).
inline constexpr std::int32_t internalFailure = -2070;
} // namespace OAuthKeychainStatus

/// Which item a query addresses. The current form is the item Orvane writes; the legacy form is a generic
/// password item for the same service and account, as earlier versions and `secret-tool store` write it. The two
/// never match each other's items, so that reading can move a legacy item into the current form.
struct OAuthKeychainQuery {
    enum class Form { current, legacy };

    Form form = Form::current;
    QString service;
    QString account;

    friend bool operator==(const OAuthKeychainQuery&, const OAuthKeychainQuery&) = default;
};

/// The outcome of copying an item's data: the status and, on success, the item's bytes.
struct OAuthKeychainCopyResult {
    std::int32_t status = OAuthKeychainStatus::success;
    QByteArray data;

    friend bool operator==(const OAuthKeychainCopyResult&, const OAuthKeychainCopyResult&) = default;
};

/// The thin seam over the platform's secret items. Every call blocks until the store answered (which may include
/// the user answering an unlock prompt), so callers run it off the user interface thread.
class OAuthKeychainItemAccessing {
public:
    virtual ~OAuthKeychainItemAccessing() = default;

    /// The data of the item matching `query`; itemNotFound when there is none.
    virtual OAuthKeychainCopyResult copyMatching(const OAuthKeychainQuery& query) = 0;
    /// Replaces the data of the items matching `query`; itemNotFound when there is none.
    virtual std::int32_t update(const OAuthKeychainQuery& query, const QByteArray& data) = 0;
    /// Creates an item for `query` holding `data`; duplicateItem when one exists already.
    virtual std::int32_t add(const OAuthKeychainQuery& query, const QByteArray& data) = 0;
    /// Deletes the items matching `query`; itemNotFound when there is none.
    virtual std::int32_t remove(const OAuthKeychainQuery& query) = 0;
};

/// The platform's own item access (on Linux the Secret Service through libsecret).
std::shared_ptr<OAuthKeychainItemAccessing> makePlatformKeychainItemAccess();

} // namespace orvane
