// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Connected accounts wired as the application wires them, with a real sign-in against a local authorization server,
// a keyring in memory and a calendar service in memory (the HTTP clients have tests of their own).
#include "calendars/CloudAccountCoordinator.h"
#include "calendars/CompositeCalendarRepository.h"
#include "calendars/RemoteAccountCalendarSource.h"
#include "calendars/RemoteAccountCredentials.h"
#include "calendars/RemoteAccountError.h"
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/RemoteCalendarAccountStoreError.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeKeychainItemAccess.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/OAuthError.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "oauth/RemoteOAuthClientIDStore.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStore.h"
#include "support/DiskFull.h"
#include "support/LocalOAuthProvider.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"
#include "support/TemporaryDefaults.h"

#include <QTest>
#include <qcoro/qcorotimer.h>

namespace cloudharness {

using namespace orvane;
using namespace orvane::testing;
using namespace Qt::StringLiterals;

inline constexpr double t0 = 700'000'000;

/// A calendar service in memory that checks tokens the way a real one does: a refused token answers 401.
class FakeCloudClient final : public RemoteCalendarClient {
public:
    explicit FakeCloudClient(RemoteCalendarProviderKind kind)
        : m_kind(kind)
    {
    }

    RemoteCalendarProviderKind provider() const override { return m_kind; }

    QCoro::Task<RemoteAccountProfile> accountProfile(RemoteAccessTokenProvider token) override
    {
        co_await authorized(token);
        const auto copy = profile;
        co_return copy;
    }

    QCoro::Task<RemoteCalendarGroup> calendarGroup(RemoteCalendarAccountMetadata account,
                                                   RemoteAccessTokenProvider token) override
    {
        co_await authorized(token);
        RemoteCalendarGroup group{
            RemoteCalendarIdentityNamespace::sourceIdentifier(account, profile.providerAccountIdentifier),
            remoteSourceTitle(account),
            {}};
        for (const auto& title : calendars) {
            const bool shared = sharedCalendars.contains(title);
            group.calendars.push_back({RemoteCalendarIdentityNamespace::calendarIdentifier(account, title), title,
                                       std::nullopt, shared, !shared});
        }
        co_return group;
    }

    QCoro::Task<std::vector<RemoteMeetingOccurrence>> occurrences(RemoteCalendarAccountMetadata account,
                                                                  RemoteCalendarDescriptor calendar, FetchInterval,
                                                                  RemoteAccessTokenProvider token) override
    {
        maxInFlight = std::max(maxInFlight, ++inFlight);
        co_await QCoro::sleepFor(latency);
        --inFlight;
        co_await authorized(token);
        const auto decoded = RemoteCalendarIdentityNamespace::decodeCalendarIdentifier(calendar.identifier);
        if (const auto failure = failingCalendars.find(decoded->providerCalendarIdentifier);
            failure != failingCalendars.end()) {
            std::rethrow_exception(failure->second);
        }
        std::vector<RemoteMeetingOccurrence> result;
        for (auto event : events[decoded->providerCalendarIdentifier]) {
            event.calendar = calendar;
            event.seriesIdentifier = RemoteCalendarIdentityNamespace::seriesIdentifier(account, event.title);
            result.push_back(event);
        }
        co_return result;
    }

    RemoteAccountProfile profile{u"user-1"_s, std::nullopt, u"Ada Lovelace"_s, u"ada@example.com"_s};
    std::vector<QString> calendars{u"Work"_s};
    /// Calendars shared with the user (read-only, someone else's).
    QSet<QString> sharedCalendars;
    std::map<QString, std::vector<RemoteMeetingOccurrence>> events;
    /// Calendars whose events cannot be read, with what reading them fails with.
    std::map<QString, std::exception_ptr> failingCalendars;
    std::chrono::milliseconds latency{0};
    int inFlight = 0;
    int maxInFlight = 0;
    /// Every token a request carried, in order.
    std::vector<QString> tokensSeen;
    /// Tokens the service refuses, as if revoked or expired early.
    QSet<QString> refused;

private:
    QCoro::Task<> authorized(const RemoteAccessTokenProvider& provider)
    {
        QString token = co_await provider(std::nullopt);
        tokensSeen.push_back(token);
        if (refused.contains(token)) {
            token = co_await provider(token);
            tokensSeen.push_back(token);
            if (refused.contains(token)) {
                throw RemoteHTTPError(RemoteHTTPError::UnexpectedStatus{401, u"Invalid Credentials"_s});
            }
        }
    }

    RemoteCalendarProviderKind m_kind;
};

inline RemoteMeetingOccurrence event(const QString& title, double start, std::optional<QString> uid = std::nullopt)
{
    RemoteMeetingOccurrence occurrence;
    occurrence.title = title;
    occurrence.occurrenceStart = occurrence.startDate = Date{start};
    occurrence.endDate = Date{start + 1800};
    occurrence.iCalendarUID = std::move(uid);
    return occurrence;
}

struct CloudAccountHarness {
    CloudAccountHarness()
    {
        provider.publicClients.insert(u"client-m"_s);
        bundle[RemoteOAuthClientIDStore::googleClientIDKey] = u"client-g"_s;
        bundle[RemoteOAuthClientIDStore::googleClientSecretKey] = u"desktop-secret"_s;
        bundle[RemoteOAuthClientIDStore::microsoftClientIDKey] = u"client-m"_s;
    }

    /// The coordinator, made on first use and, unless `load` is false, with the stored accounts loaded.
    CloudAccountCoordinator& coordinator(bool load = true)
    {
        if (!m_coordinator) {
            clientIDs = std::make_unique<RemoteOAuthClientIDStore>(defaults.database(), bundle);
            m_coordinator = std::make_unique<CloudAccountCoordinator>(CloudAccountCoordinatorDependencies{
                accountStore, *clientIDs, authorizer, tokens, keyring, repository, settings, exclusions, delivery,
                clock, google, microsoft,
                [this](RemoteCalendarProviderKind kind, const QString& clientID, const std::optional<QString>& secret) {
                    return provider.configuration(kind, clientID, secret);
                }});
            if (load) {
                m_coordinator->load();
            }
        }
        return *m_coordinator;
    }

    RemoteCalendarAccountMetadata connect(RemoteCalendarProviderKind kind = RemoteCalendarProviderKind::google,
                                          std::optional<QUuid> reconnecting = std::nullopt)
    {
        return runTask(coordinator().connectAccount(kind, reconnecting));
    }

    std::optional<QString> storedToken(const RemoteCalendarAccountMetadata& account)
    {
        return runTask(keyring.readRefreshToken(RemoteAccountCredentials::keyringAccount(account)));
    }

    std::vector<MeetingOccurrence> fetch() { return runTask(repository.occurrences({Date{t0}, Date{t0 + 86'400}})); }

    int tokenRequests() const { return int(provider.server().requestsFor("/token").size()); }

    TemporaryDefaults defaults;
    std::map<QString, QString> bundle;
    FakeClock clock{Date{t0}};
    LocalOAuthProvider provider{u"desktop-secret"_s};
    ConsentingUserAgent user;
    OAuthWebAuthorizer authorizer{[this](const QUrl& url) {
        return user.open(url);
    }};
    NetworkRemoteHTTPTransport transport;
    OAuthTokenClient tokens{transport, [this] { return clock.now(); }, provider.url(u"/revoke"_s)};
    std::shared_ptr<FakeKeychainItemAccess> secrets = std::make_shared<FakeKeychainItemAccess>();
    KeyringOAuthRefreshTokenStore keyring{secrets};
    UserDefaultsRemoteCalendarAccountStore accountStore{defaults.database()};
    SettingsStore settings{defaults.database()};
    ExclusionStore exclusions{defaults.database()};
    DeliveryStore delivery{defaults.database()};
    CompositeCalendarRepository repository{settings, clock};
    FakeCloudClient google{RemoteCalendarProviderKind::google};
    FakeCloudClient microsoft{RemoteCalendarProviderKind::microsoft};
    std::unique_ptr<RemoteOAuthClientIDStore> clientIDs;
    std::optional<DiskFull> diskFull;

private:
    std::unique_ptr<CloudAccountCoordinator> m_coordinator;
};

} // namespace cloudharness
