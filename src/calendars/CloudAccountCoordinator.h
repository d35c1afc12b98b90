// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarAccountMetadata.h"
#include "cloud/RemoteCalendarClient.h"
#include "oauth/OAuthProviderConfiguration.h"

#include <QObject>
#include <QSet>
#include <QUuid>
#include <qcoro/qcorotask.h>

#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace orvane {

class Clock;
class CompositeCalendarRepository;
class DeliveryStoring;
class ExclusionStoring;
class OAuthRefreshTokenStoring;
class OAuthTokenClient;
class OAuthWebAuthorizer;
class RemoteAccountCalendarSource;
class RemoteAccountCredentials;
class RemoteOAuthClientIDStore;
class SettingsStoring;
class UserDefaultsRemoteCalendarAccountStore;

/// What the coordinator works with; all of it must outlive the coordinator.
struct CloudAccountCoordinatorDependencies {
    UserDefaultsRemoteCalendarAccountStore& accountStore;
    RemoteOAuthClientIDStore& clientIDs;
    OAuthWebAuthorizer& authorizer;
    OAuthTokenClient& tokenClient;
    OAuthRefreshTokenStoring& keyring;
    CompositeCalendarRepository& repository;
    SettingsStoring& settingsStore;
    ExclusionStoring& exclusionStore;
    DeliveryStoring& deliveryStore;
    const Clock& clock;
    RemoteCalendarClient& googleClient;
    RemoteCalendarClient& microsoftClient;
    /// The sign-in settings of a provider for a client ID and secret; the providers' own unless a test points them
    /// elsewhere.
    std::function<OAuthProviderConfiguration(RemoteCalendarProviderKind, const QString& clientID,
                                             const std::optional<QString>& clientSecret)>
        configuration;
};

/// Connects, keeps and disconnects the Google and Microsoft accounts whose calendars Orvane reads directly.
///
/// Each account becomes one source of the composite repository, with its access token in memory and its refresh
/// token in the keyring. Connecting signs in through the browser, checks the grant, reads who signed in and stores the
/// account; connecting an account that is already connected renews its sign-in in place (reconnection).
/// Disconnecting revokes what can be revoked and removes the token, the account and everything stored about it.
/// One change runs at a time. Main thread only.
class CloudAccountCoordinator final : public QObject {
    Q_OBJECT

public:
    explicit CloudAccountCoordinator(CloudAccountCoordinatorDependencies dependencies, QObject* parent = nullptr);
    ~CloudAccountCoordinator() override;

    /// Reads the stored accounts and registers a source for each. Throws the store's error (and then registers
    /// nothing and refuses changes, so that nothing stored is overwritten) until a later load succeeds.
    void load();

    /// The connected accounts in listing order.
    const std::vector<RemoteCalendarAccountMetadata>& accounts() const { return m_accounts; }
    /// The accounts whose sign-in currently works, as far as the last fetch could tell.
    QSet<QUuid> usableAccountIDs() const;
    /// The provider whose sign-in is in progress.
    std::optional<RemoteCalendarProviderKind> connectingProvider() const { return m_connecting; }
    /// An account is being added or removed.
    bool isMutating() const { return m_mutating; }

    /// Signs in to `provider` and connects the account, or renews the sign-in of the same account when it is
    /// connected already. With `reconnecting`, the sign-in must be that account's. Returns the stored account.
    /// Throws RemoteAccountError, OAuthError (including Cancelled), RemoteHTTPError, the store's or the keyring's
    /// error; nothing is stored then.
    QCoro::Task<RemoteCalendarAccountMetadata> connectAccount(RemoteCalendarProviderKind provider,
                                                              std::optional<QUuid> reconnecting = std::nullopt);
    /// Stops a sign-in that waits for the browser (it ends with OAuthError::Cancelled).
    void cancelConnection();
    /// Disconnects an account. Its Google token is revoked (a revocation the network prevents does not keep the
    /// account: the failure is returned as a warning text), its keyring item and metadata are removed, and the
    /// selections, exclusions, reminder history and snoozes of its calendars are forgotten. Throws when the keyring
    /// item or the account list cannot be changed; the account then stays connected.
    QCoro::Task<std::optional<QString>> disconnectAccount(QUuid accountID);

    /// The source of an account, while it is connected.
    RemoteAccountCalendarSource* source(const QUuid& accountID) const;

Q_SIGNALS:
    /// Accounts, usability or progress changed.
    void changed();

private:
    struct Connection {
        std::unique_ptr<RemoteAccountCredentials> credentials;
        std::unique_ptr<RemoteAccountCalendarSource> source;
    };

    RemoteCalendarClient& client(RemoteCalendarProviderKind provider) const;
    OAuthProviderConfiguration configuration(RemoteCalendarProviderKind provider, const QString& clientID) const;
    void attach(const RemoteCalendarAccountMetadata& account);
    void detach(const QUuid& accountID);
    void forgetStoredState(const RemoteCalendarAccountMetadata& account);
    void ensureLoaded() const;

    CloudAccountCoordinatorDependencies m_dependencies;
    std::vector<RemoteCalendarAccountMetadata> m_accounts;
    std::map<QUuid, Connection> m_connections;
    std::exception_ptr m_loadFailure;
    bool m_loaded = false;
    std::optional<RemoteCalendarProviderKind> m_connecting;
    bool m_mutating = false;
};

} // namespace orvane
