// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthKeychainItemAccessing.h"
#include "oauth/OAuthRefreshTokenStoring.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace orvane {

/// Refresh tokens as secret items of the service "com.velmont.Orvane.calendar-oauth", one per account, holding the
/// token's UTF-8 bytes.
///
/// Every item access runs on one thread of the store's own, one operation after the other, because the calls block
/// on the keyring and possibly on its unlock prompt; each coroutine resumes on the thread that awaited it. Reading
/// moves a legacy item into the current form, and saving removes any legacy item left beside the new one. The store
/// may be destroyed while an operation runs: that operation still completes (the user may be looking at an unlock
/// prompt, so nobody waits for it), as do the ones queued behind it.
class KeyringOAuthRefreshTokenStore final : public OAuthRefreshTokenStoring {
public:
    /// The `service` attribute of every item the store reads or writes.
    static inline const QString keychainService = QStringLiteral("com.velmont.Orvane.calendar-oauth");

    explicit KeyringOAuthRefreshTokenStore(
        std::shared_ptr<OAuthKeychainItemAccessing> access = makePlatformKeychainItemAccess());
    ~KeyringOAuthRefreshTokenStore() override;
    KeyringOAuthRefreshTokenStore(const KeyringOAuthRefreshTokenStore&) = delete;
    KeyringOAuthRefreshTokenStore& operator=(const KeyringOAuthRefreshTokenStore&) = delete;

    QCoro::Task<std::optional<QString>> readRefreshToken(QString account) override;
    QCoro::Task<> saveRefreshToken(QString token, QString account) override;
    QCoro::Task<> deleteRefreshToken(QString account) override;

private:
    class Worker;

    template <class T>
    QCoro::Task<T> onWorker(std::function<T(OAuthKeychainItemAccessing&)> work);

    std::shared_ptr<Worker> m_worker;
};

} // namespace orvane
