// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CloudAccountCoordinator.h"

#include "calendars/CompositeCalendarRepository.h"
#include "calendars/RemoteAccountCalendarSource.h"
#include "calendars/RemoteAccountCredentials.h"
#include "calendars/RemoteAccountError.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "oauth/OAuthError.h"
#include "oauth/OAuthRefreshTokenStoring.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "oauth/RemoteOAuthClientIDStore.h"
#include "persistence/DeliveryStoring.h"
#include "persistence/ExclusionStoring.h"
#include "persistence/SettingsStoring.h"
#include "scheduling/Clock.h"

#include <QPointer>

#include <algorithm>
#include <unordered_set>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// Clears a flag and announces it when the change that set it ends, however it ends.
class ProgressGuard {
public:
    ProgressGuard(QPointer<CloudAccountCoordinator> owner, std::function<void()> reset)
        : m_owner(std::move(owner))
        , m_reset(std::move(reset))
    {
    }
    ~ProgressGuard()
    {
        if (m_owner) {
            m_reset();
            Q_EMIT m_owner->changed();
        }
    }
    ProgressGuard(const ProgressGuard&) = delete;
    ProgressGuard& operator=(const ProgressGuard&) = delete;

private:
    QPointer<CloudAccountCoordinator> m_owner;
    std::function<void()> m_reset;
};

QString accountLabel(const RemoteCalendarAccountMetadata& account)
{
    return remoteSourceTitle(account);
}

} // namespace

CloudAccountCoordinator::CloudAccountCoordinator(CloudAccountCoordinatorDependencies dependencies, QObject* parent)
    : QObject(parent)
    , m_dependencies(std::move(dependencies))
{
    if (!m_dependencies.configuration) {
        m_dependencies.configuration = [](RemoteCalendarProviderKind provider, const QString& clientID,
                                          const std::optional<QString>& clientSecret) {
            return provider == RemoteCalendarProviderKind::google
                       ? OAuthProviderConfiguration::google(clientID, clientSecret)
                       : OAuthProviderConfiguration::microsoft(clientID);
        };
    }
    // Usability follows the sources' health.
    connect(&m_dependencies.repository, &CompositeCalendarRepository::healthIssuesChanged, this,
            &CloudAccountCoordinator::changed);
}

CloudAccountCoordinator::~CloudAccountCoordinator()
{
    for (const auto& [id, connection] : m_connections) {
        m_dependencies.repository.removeSource(connection.source->key());
    }
}

void CloudAccountCoordinator::load()
{
    std::vector<RemoteCalendarAccountMetadata> accounts;
    try {
        accounts = m_dependencies.accountStore.loadAccounts();
    } catch (...) {
        m_loadFailure = std::current_exception();
        Q_EMIT changed();
        throw;
    }
    m_loadFailure = nullptr;
    for (const auto& account : m_accounts) {
        detach(account.id);
    }
    m_accounts = std::move(accounts);
    for (const auto& account : m_accounts) {
        attach(account);
    }
    m_loaded = true;
    Q_EMIT changed();
}

void CloudAccountCoordinator::ensureLoaded() const
{
    if (m_loadFailure) {
        // Saving now would replace the stored list nobody could read.
        std::rethrow_exception(m_loadFailure);
    }
}

QSet<QUuid> CloudAccountCoordinator::usableAccountIDs() const
{
    QSet<QUuid> usable;
    for (const auto& account : m_accounts) {
        usable.insert(account.id);
    }
    for (const auto& issue : m_dependencies.repository.healthIssues()) {
        if (const auto* remote = std::get_if<CalendarSourceHealthIssue::Remote>(&issue.source);
            remote && issue.requiresReauthentication) {
            usable.remove(QUuid::fromString(remote->accountID));
        }
    }
    return usable;
}

RemoteCalendarClient& CloudAccountCoordinator::client(RemoteCalendarProviderKind provider) const
{
    return provider == RemoteCalendarProviderKind::google ? m_dependencies.googleClient
                                                          : m_dependencies.microsoftClient;
}

OAuthProviderConfiguration CloudAccountCoordinator::configuration(RemoteCalendarProviderKind provider,
                                                                  const QString& clientID) const
{
    return m_dependencies.configuration(provider, clientID, m_dependencies.clientIDs.clientSecret(provider));
}

RemoteAccountCalendarSource* CloudAccountCoordinator::source(const QUuid& accountID) const
{
    const auto found = m_connections.find(accountID);
    return found == m_connections.end() ? nullptr : found->second.source.get();
}

void CloudAccountCoordinator::attach(const RemoteCalendarAccountMetadata& account)
{
    detach(account.id);
    Connection connection;
    connection.credentials = std::make_unique<RemoteAccountCredentials>(
        account, m_dependencies.tokenClient, m_dependencies.keyring,
        [this](const RemoteCalendarAccountMetadata& owner) {
            // Renewals use the client the account was authorised with, whatever is configured now.
            return configuration(owner.provider, owner.oauthClientID);
        },
        m_dependencies.clock);
    connection.source = std::make_unique<RemoteAccountCalendarSource>(client(account.provider), *connection.credentials);
    m_dependencies.repository.addSource(*connection.source);
    m_connections[account.id] = std::move(connection);
}

void CloudAccountCoordinator::detach(const QUuid& accountID)
{
    const auto found = m_connections.find(accountID);
    if (found == m_connections.end()) {
        return;
    }
    m_dependencies.repository.removeSource(found->second.source->key());
    m_connections.erase(found);
}

QCoro::Task<RemoteCalendarAccountMetadata> CloudAccountCoordinator::connectAccount(RemoteCalendarProviderKind provider,
                                                                                   std::optional<QUuid> reconnecting)
{
    if (m_connecting || m_mutating) {
        throw RemoteAccountError(RemoteAccountError::Busy{});
    }
    ensureLoaded();
    const std::optional<QString> clientID = m_dependencies.clientIDs.clientID(provider);
    if (!clientID) {
        throw RemoteAccountError(RemoteAccountError::MissingClientID{});
    }
    std::optional<RemoteCalendarAccountMetadata> expected;
    if (reconnecting) {
        const auto found = std::find_if(m_accounts.begin(), m_accounts.end(),
                                        [&](const auto& account) { return account.id == *reconnecting; });
        if (found == m_accounts.end()) {
            throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
        }
        expected = *found;
    }

    const QPointer<CloudAccountCoordinator> self(this);
    m_connecting = provider;
    m_mutating = true;
    Q_EMIT changed();
    const ProgressGuard progress(self, [this] {
        m_connecting.reset();
        m_mutating = false;
    });

    const OAuthProviderConfiguration signIn = configuration(provider, *clientID);
    const OAuthAuthorizationGrant grant = co_await m_dependencies.authorizer.authorize(signIn);
    if (!self) {
        throw OAuthError(OAuthError::Cancelled{});
    }
    const OAuthTokenSet tokens = co_await m_dependencies.tokenClient.exchange(grant);
    if (!self) {
        throw OAuthError(OAuthError::Cancelled{});
    }
    if (const QStringList missing = signIn.missingRequiredResourceScopes(tokens.grantedScopes); !missing.isEmpty()) {
        throw OAuthError(OAuthError::MissingRequiredScopes{missing});
    }
    if (!tokens.refreshToken || tokens.refreshToken->isEmpty()) {
        throw OAuthError(OAuthError::MissingRefreshToken{});
    }

    const QString accessToken = tokens.accessToken;
    const RemoteAccessTokenProvider signedIn = [accessToken](std::optional<QString> rejected) -> QCoro::Task<QString> {
        if (rejected) {
            // The token of a sign-in a moment ago is refused: nothing a renewal would change.
            throw RemoteAccountError(RemoteAccountError::SignInExpired{});
        }
        co_return accessToken;
    };
    const RemoteAccountProfile profile = co_await client(provider).accountProfile(signedIn);
    if (!self) {
        throw OAuthError(OAuthError::Cancelled{});
    }
    ensureLoaded();

    const ProviderAccountKey key{provider, profile.providerAccountIdentifier, profile.tenantIdentifier};
    if (expected && expected->providerAccountKey() != key) {
        throw RemoteAccountError(RemoteAccountError::DifferentAccount{
            accountLabel(*expected), profile.emailAddress.value_or(profile.displayName)});
    }
    const auto existing = std::find_if(m_accounts.begin(), m_accounts.end(),
                                       [&](const auto& account) { return account.providerAccountKey() == key; });
    RemoteCalendarAccountMetadata account{
        .id = existing != m_accounts.end() ? existing->id : QUuid::createUuid(),
        .provider = provider,
        .providerAccountIdentifier = profile.providerAccountIdentifier,
        .tenantIdentifier = profile.tenantIdentifier,
        .displayName = profile.displayName.trimmed().isEmpty() ? profile.emailAddress.value_or(QString())
                                                               : profile.displayName,
        .emailAddress = profile.emailAddress,
        .oauthClientID = grant.configuration.clientID,
        .connectedAt = m_dependencies.clock.now(),
    };
    std::vector<RemoteCalendarAccountMetadata> updated = m_accounts;
    std::erase_if(updated, [&](const auto& stored) { return stored.id == account.id; });
    updated.push_back(account);
    std::sort(updated.begin(), updated.end(), listsBefore);
    // Checked before the token is stored, so that a refusal leaves nothing behind.
    UserDefaultsRemoteCalendarAccountStore::validate(updated);

    const QString keyringName = RemoteAccountCredentials::keyringAccount(account);
    std::optional<QString> previousToken;
    if (existing != m_accounts.end()) {
        previousToken = co_await m_dependencies.keyring.readRefreshToken(keyringName);
    }
    const QString refreshToken = *tokens.refreshToken;
    co_await m_dependencies.keyring.saveRefreshToken(refreshToken, keyringName);
    if (!self) {
        throw OAuthError(OAuthError::Cancelled{});
    }
    std::exception_ptr saveFailure;
    try {
        m_dependencies.accountStore.saveAccounts(updated);
    } catch (...) {
        saveFailure = std::current_exception();
    }
    if (saveFailure) {
        // The account was not stored: its token must not stay behind (or a reconnected one's old token comes back).
        if (previousToken) {
            const QString previous = *previousToken;
            co_await m_dependencies.keyring.saveRefreshToken(previous, keyringName);
        } else {
            co_await m_dependencies.keyring.deleteRefreshToken(keyringName);
        }
        std::rethrow_exception(saveFailure);
    }
    if (!self) {
        throw OAuthError(OAuthError::Cancelled{});
    }

    m_accounts = std::move(updated);
    attach(account);
    m_connections[account.id].credentials->seed(tokens);
    co_return account;
}

void CloudAccountCoordinator::cancelConnection()
{
    m_dependencies.authorizer.cancel();
}

QCoro::Task<std::optional<QString>> CloudAccountCoordinator::disconnectAccount(QUuid accountID)
{
    if (m_connecting || m_mutating) {
        throw RemoteAccountError(RemoteAccountError::Busy{});
    }
    ensureLoaded();
    const auto found = std::find_if(m_accounts.begin(), m_accounts.end(),
                                    [&](const auto& account) { return account.id == accountID; });
    if (found == m_accounts.end()) {
        throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
    }
    const RemoteCalendarAccountMetadata account = *found;

    const QPointer<CloudAccountCoordinator> self(this);
    m_mutating = true;
    Q_EMIT changed();
    const ProgressGuard progress(self, [this] { m_mutating = false; });

    const QString keyringName = RemoteAccountCredentials::keyringAccount(account);
    std::optional<QString> warning;
    if (account.provider == RemoteCalendarProviderKind::google) {
        // Microsoft has no revocation endpoint for public clients; its token dies with the keyring item.
        const std::optional<QString> refreshToken = co_await m_dependencies.keyring.readRefreshToken(keyringName);
        if (refreshToken) {
            try {
                const QString token = *refreshToken;
                co_await m_dependencies.tokenClient.revokeGoogleToken(token);
            } catch (const std::exception& error) {
                warning = u"%1 was disconnected, but Google could not be asked to revoke Orvane's access: %2 You "
                          u"can remove it in your Google account's security settings."_s.arg(
                              accountLabel(account), QString::fromUtf8(error.what()));
            }
        }
    }
    co_await m_dependencies.keyring.deleteRefreshToken(keyringName);
    if (!self) {
        co_return warning;
    }
    std::vector<RemoteCalendarAccountMetadata> remaining = m_accounts;
    std::erase_if(remaining, [&](const auto& stored) { return stored.id == account.id; });
    m_dependencies.accountStore.saveAccounts(remaining);
    m_accounts = std::move(remaining);
    detach(account.id);
    forgetStoredState(account);
    co_return warning;
}

void CloudAccountCoordinator::forgetStoredState(const RemoteCalendarAccountMetadata& account)
{
    const auto belongs = [&](const MeetingIdentity& identity) {
        return RemoteCalendarIdentityNamespace::belongsToAccount(identity.calendarIdentifier, account) ||
               RemoteCalendarIdentityNamespace::belongsToAccount(identity.sourceIdentifier, account);
    };
    // Each store is cleaned on its own; one that is unreadable keeps its bytes untouched for the review, and the
    // identities of a disconnected account can never match a meeting again, so leftovers are harmless.
    auto& settingsStore = m_dependencies.settingsStore;
    if (const auto& selected = settingsStore.settings().selectedCalendars;
        selected && !settingsStore.readState().isUnreadable()) {
        std::vector<CalendarSelectionRecord> kept;
        std::copy_if(selected->begin(), selected->end(), std::back_inserter(kept), [&](const auto& record) {
            return !RemoteCalendarIdentityNamespace::belongsToAccount(record.calendarIdentifier, account);
        });
        if (kept.size() != selected->size()) {
            NotifierSettings settings = settingsStore.settings();
            settings.selectedCalendars = std::move(kept);
            try {
                settingsStore.save(settings);
            } catch (const std::exception&) {
            }
        }
    }
    auto& exclusions = m_dependencies.exclusionStore;
    if (!exclusions.readState().isUnreadable()) {
        QSet<QUuid> ids;
        for (const auto& record : exclusions.records()) {
            if (belongs(record.identity)) {
                ids.insert(record.id);
            }
        }
        if (!ids.isEmpty()) {
            try {
                exclusions.remove(ids);
            } catch (const std::exception&) {
            }
        }
    }
    auto& deliveries = m_dependencies.deliveryStore;
    if (!deliveries.readState().isUnreadable()) {
        std::unordered_set<MeetingIdentity> identities;
        for (const auto& record : deliveries.records()) {
            if (belongs(record.identity)) {
                identities.insert(record.identity);
            }
        }
        for (const auto& snooze : deliveries.snoozes()) {
            if (belongs(snooze.identity)) {
                identities.insert(snooze.identity);
            }
        }
        if (!identities.empty()) {
            try {
                deliveries.removePersistedState(identities);
            } catch (const std::exception&) {
            }
        }
    }
}

} // namespace orvane
