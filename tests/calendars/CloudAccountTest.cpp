// SPDX-License-Identifier: GPL-3.0-or-later
// Connected accounts around the sign-in: what connecting stores, how tokens are renewed and shared, how an account's
// calendars reach the composite repository, and what disconnecting leaves behind. The sign-in runs for real against
// a local authorization server; the calendar service is an in-memory client (the HTTP clients have their own tests).
#include "fakes/FakeCalendarSource.h"
#include "support/CloudAccountHarness.h"
#include "support/Patience.h"

#include <gtest/gtest.h>

using namespace orvane;
using namespace orvane::testing;
using namespace fixtures;
using namespace cloudharness;
using namespace Qt::StringLiterals;

namespace {

using Harness = CloudAccountHarness;

template <class Error>
Error thrownBy(const std::function<void()>& action)
{
    try {
        action();
    } catch (const Error& error) {
        return error;
    } catch (const std::exception& other) {
        ADD_FAILURE() << "another error: " << other.what();
    }
    ADD_FAILURE() << "nothing thrown";
    throw std::logic_error("expected an error");
}

TEST(CloudAccountTest, ConnectingStoresTheAccountItsTokenAndItsCalendars)
{
    Harness harness;
    harness.google.events[u"Work"_s] = {event(u"Standup"_s, t0 + 3600)};
    const auto account = harness.connect();

    EXPECT_EQ(account.providerAccountIdentifier, u"user-1"_s);
    EXPECT_EQ(account.displayName, u"Ada Lovelace"_s);
    EXPECT_EQ(account.emailAddress, u"ada@example.com"_s);
    EXPECT_EQ(account.oauthClientID, u"client-g"_s);
    EXPECT_EQ(harness.accountStore.loadAccounts(), std::vector{account});
    EXPECT_EQ(harness.storedToken(account), u"refresh-code-1"_s);
    EXPECT_EQ(harness.coordinator().usableAccountIDs(), QSet{account.id});
    EXPECT_FALSE(harness.coordinator().connectingProvider());
    EXPECT_FALSE(harness.coordinator().isMutating());

    const auto* source = harness.coordinator().source(account.id);
    ASSERT_NE(source, nullptr);
    EXPECT_FALSE(source->pendingResync());
    const auto meetings = harness.fetch();
    // The services push nothing to a desktop program: the account is read again after a while.
    ASSERT_TRUE(source->pendingResync());
    EXPECT_GT(*source->pendingResync(), std::chrono::minutes(4));
    ASSERT_EQ(meetings.size(), 1u);
    EXPECT_EQ(meetings[0].title, u"Standup"_s);
    EXPECT_EQ(meetings[0].calendar.sourceKind, CalendarSourceKind::google);
    EXPECT_TRUE(RemoteCalendarIdentityNamespace::belongsToAccount(meetings[0].identity.calendarIdentifier, account));
    // The sign-in's own access token serves until it expires: one token request (the exchange) in all.
    EXPECT_EQ(harness.tokenRequests(), 1);
    EXPECT_EQ(harness.google.tokensSeen.back(), u"access-code-1"_s);
}

TEST(CloudAccountTest, ConnectingTheSameAccountAgainRenewsItInPlace)
{
    Harness harness;
    const auto first = harness.connect();
    harness.clock.advance(60);
    const auto again = harness.connect(RemoteCalendarProviderKind::google, first.id);
    EXPECT_EQ(again.id, first.id);
    EXPECT_EQ(harness.accountStore.loadAccounts().size(), 1u);
    EXPECT_EQ(harness.storedToken(first), u"refresh-code-2"_s);

    // Reconnecting one account with another's sign-in changes nothing.
    harness.google.profile = {u"user-2"_s, std::nullopt, u"Grace"_s, u"grace@example.com"_s};
    const auto error =
        thrownBy<RemoteAccountError>([&] { harness.connect(RemoteCalendarProviderKind::google, first.id); });
    EXPECT_EQ(error.value(), RemoteAccountError::Case(
                                 RemoteAccountError::DifferentAccount{u"ada@example.com"_s, u"grace@example.com"_s}));
    EXPECT_EQ(harness.accountStore.loadAccounts(), std::vector{again});
    EXPECT_EQ(harness.storedToken(first), u"refresh-code-2"_s);

    // Without `reconnecting`, the other sign-in is a second account of the same provider.
    const auto second = harness.connect();
    EXPECT_NE(second.id, first.id);
    EXPECT_EQ(harness.accountStore.loadAccounts().size(), 2u);
}

TEST(CloudAccountTest, AFailedConnectionStoresNothing)
{
    struct Row {
        const char* name;
        std::function<void(Harness&)> arrange;
        std::function<bool(const std::exception&)> expected;
        int signInPagesOpened;
    };
    const auto isOAuth = [](auto matches) {
        return [matches](const std::exception& error) {
            const auto* oauth = dynamic_cast<const OAuthError*>(&error);
            return oauth && std::visit(matches, oauth->value());
        };
    };
    const std::vector<Row> rows{
        {"no client ID configured",
         [](Harness& harness) { harness.bundle.erase(RemoteOAuthClientIDStore::googleClientIDKey); },
         [](const std::exception& error) {
             const auto* account = dynamic_cast<const RemoteAccountError*>(&error);
             return account && std::holds_alternative<RemoteAccountError::MissingClientID>(account->value()) &&
                    account->description() == u"Enter the provider's OAuth client ID first."_s;
         },
         0},
        {"a calendar permission left unticked",
         [](Harness& harness) {
             harness.provider.grantedScope = u"openid email https://www.googleapis.com/auth/calendar.events.readonly"_s;
         },
         isOAuth([](const auto& value) {
             using T = std::decay_t<decltype(value)>;
             if constexpr (std::is_same_v<T, OAuthError::MissingRequiredScopes>) {
                 return value.scopes ==
                        QStringList{u"https://www.googleapis.com/auth/calendar.calendarlist.readonly"_s};
             }
             return false;
         }),
         1},
        {"no offline access", [](Harness& harness) { harness.provider.issuesRefreshToken = false; },
         isOAuth([](const auto& value) {
             return std::is_same_v<std::decay_t<decltype(value)>, OAuthError::MissingRefreshToken>;
         }),
         1},
        {"the profile cannot be read", [](Harness& harness) { harness.google.refused.insert(u"access-code-1"_s); },
         [](const std::exception& error) {
             const auto* account = dynamic_cast<const RemoteAccountError*>(&error);
             return account && account->requiresReauthentication();
         },
         1},
        {"the account list cannot be written", [](Harness& harness) { harness.diskFull.emplace(); },
         [](const std::exception& error) { return dynamic_cast<const PersistenceStoreError*>(&error); }, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Harness harness;
        row.arrange(harness);
        const auto stored = harness.accountStore.loadAccounts();
        try {
            harness.connect();
            ADD_FAILURE() << "connected";
        } catch (const std::exception& error) {
            EXPECT_TRUE(row.expected(error)) << error.what();
        }
        harness.diskFull.reset();
        EXPECT_EQ(harness.user.opened, row.signInPagesOpened);
        EXPECT_EQ(harness.accountStore.loadAccounts(), stored);
        EXPECT_TRUE(harness.secrets->items.empty());
        EXPECT_FALSE(harness.coordinator().connectingProvider());
        EXPECT_FALSE(harness.coordinator().isMutating());
    }
}

TEST(CloudAccountTest, ASignInCanBeCancelledWhileTheBrowserIsOpen)
{
    Harness harness;
    harness.user.declines = true;
    auto connecting = harness.coordinator().connectAccount(RemoteCalendarProviderKind::microsoft);
    ASSERT_TRUE(QTest::qWaitFor([&] { return harness.user.opened == 1; }, patience));
    EXPECT_EQ(harness.coordinator().connectingProvider(), RemoteCalendarProviderKind::microsoft);
    // A second change waits for the first.
    EXPECT_THROW(runTask(harness.coordinator().connectAccount(RemoteCalendarProviderKind::google)), RemoteAccountError);
    harness.coordinator().cancelConnection();
    EXPECT_THROW(runTask(std::move(connecting)), OAuthError);
    EXPECT_FALSE(harness.coordinator().connectingProvider());
    EXPECT_TRUE(harness.accountStore.loadAccounts().empty());
}

TEST(CloudAccountTest, AnExpiredTokenIsRenewedOnceForEveryRequestWaitingOnIt)
{
    Harness harness;
    harness.google.calendars = {u"A"_s, u"B"_s, u"C"_s, u"D"_s, u"E"_s};
    harness.connect();
    harness.fetch();
    ASSERT_EQ(harness.tokenRequests(), 1);

    // Within the renewal margin of its expiry the token is renewed before use, by one request for all calendars.
    harness.clock.advance(3599 - RemoteAccountCredentials::renewalMargin + 1);
    harness.fetch();
    EXPECT_EQ(harness.tokenRequests(), 2);
    EXPECT_EQ(harness.google.tokensSeen.back(), u"access-renewed-1"_s);

    // A token the service refuses early is renewed once, again shared by every calendar's request.
    harness.google.refused.insert(u"access-renewed-1"_s);
    harness.fetch();
    EXPECT_EQ(harness.tokenRequests(), 3);
    EXPECT_EQ(harness.google.tokensSeen.back(), u"access-renewed-2"_s);
    EXPECT_TRUE(harness.repository.healthIssues().empty());
}

TEST(CloudAccountTest, ARevokedSignInAsksForReconnectionAndReconnectingRecovers)
{
    Harness harness;
    harness.google.events[u"Work"_s] = {event(u"Standup"_s, t0 + 3600)};
    const auto account = harness.connect();
    harness.fetch();
    harness.provider.revokeAll();
    harness.google.refused.insert(u"access-code-1"_s);

    const auto kept = harness.fetch();
    ASSERT_EQ(harness.repository.healthIssues().size(), 1u);
    const auto& issue = harness.repository.healthIssues().front();
    EXPECT_TRUE(issue.requiresReauthentication);
    EXPECT_EQ(issue.displayName, u"ada@example.com (Google)"_s);
    EXPECT_EQ(issue.message, u"The provider no longer accepts this account's sign-in (invalid_grant). Reconnect the "
                             u"account."_s);
    EXPECT_TRUE(harness.coordinator().usableAccountIDs().isEmpty());
    // The meetings delivered before stay for a while, so a revoked sign-in does not silently drop an alert.
    EXPECT_EQ(kept.size(), 1u);

    harness.connect(RemoteCalendarProviderKind::google, account.id);
    EXPECT_EQ(harness.fetch().size(), 1u);
    EXPECT_TRUE(harness.repository.healthIssues().empty());
    EXPECT_EQ(harness.coordinator().usableAccountIDs(), QSet{account.id});

    // A sign-in removed from the keyring also asks for reconnection.
    harness.secrets->items.clear();
    harness.google.refused.insert(u"access-code-2"_s);
    harness.fetch();
    ASSERT_EQ(harness.repository.healthIssues().size(), 1u);
    EXPECT_TRUE(harness.repository.healthIssues().front().requiresReauthentication);
}

TEST(CloudAccountTest, ACalendarTheServiceCannotServeDoesNotHideTheOthers)
{
    struct Row {
        const char* name;
        std::map<QString, std::exception_ptr> failing;
        QStringList issues;
        bool reconnect;
    };
    const auto status = [](int code) {
        return std::make_exception_ptr(RemoteHTTPError(RemoteHTTPError::UnexpectedStatus{code, std::nullopt}));
    };
    // A failure of the sign-in or the token is the whole account's, even when another calendar answered before it.
    const std::vector<Row> rows{
        {"one calendar gone, another failing",
         {{u"Team"_s, status(404)}, {u"Old"_s, status(500)}},
         {u"Calendar “Team” of ada@example.com (Google): The calendar service returned HTTP 404."_s,
          u"Calendar “Old” of ada@example.com (Google): The calendar service returned HTTP 500."_s},
         false},
        {"no calendar answering",
         {{u"Work"_s, status(503)}, {u"Team"_s, status(503)}, {u"Old"_s, status(503)}},
         {u"ada@example.com (Google): The calendar service returned HTTP 503."_s},
         false},
        {"the sign-in refused",
         {{u"Team"_s, status(401)}},
         {u"ada@example.com (Google): The calendar service returned HTTP 401."_s},
         true},
        {"the sign-in revoked",
         {{u"Team"_s,
           std::make_exception_ptr(RemoteAccountError(RemoteAccountError::SignInExpired{u"invalid_grant"_s}))}},
         {u"ada@example.com (Google): The provider no longer accepts this account's sign-in (invalid_grant). Reconnect "
          u"the account."_s},
         true},
        {"the token not renewed",
         {{u"Team"_s, std::make_exception_ptr(OAuthError(OAuthError::TokenExchangeFailed{503, {}, {}}))}},
         {u"ada@example.com (Google): Token request failed with HTTP 503."_s},
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Harness harness;
        harness.google.calendars = {u"Work"_s, u"Team"_s, u"Old"_s};
        harness.google.events[u"Work"_s] = {event(u"Standup"_s, t0 + 3600)};
        const auto account = harness.connect();
        harness.fetch();
        harness.google.failingCalendars = row.failing;

        // Fresh from the calendar that answers, or kept from the last fetch when the account failed.
        const auto meetings = harness.fetch();
        ASSERT_EQ(meetings.size(), 1u);
        EXPECT_EQ(meetings[0].title, u"Standup"_s);
        QStringList issues;
        for (const auto& issue : harness.repository.healthIssues()) {
            issues.append(issue.title() + u": "_s + issue.message);
            EXPECT_EQ(issue.requiresReauthentication, row.reconnect);
        }
        EXPECT_EQ(issues, row.issues);
        EXPECT_EQ(harness.coordinator().usableAccountIDs().contains(account.id), !row.reconnect);
    }
}

TEST(CloudAccountTest, CalendarsAreFetchedSideBySideAFewAtATimeInTheirOrder)
{
    Harness harness;
    harness.google.calendars.clear();
    for (int index = 0; index < 20; ++index) {
        const QString title = u"Calendar %1"_s.arg(index, 2, 10, QChar(u'0'));
        harness.google.calendars.push_back(title);
        harness.google.events[title] = {event(title, t0 + 60 * index)};
    }
    harness.google.latency = std::chrono::milliseconds(20);
    harness.connect();
    const auto meetings = harness.fetch();
    EXPECT_EQ(harness.google.maxInFlight, RemoteAccountCalendarSource::defaultConcurrentRequests);
    ASSERT_EQ(meetings.size(), 20u);
    for (int index = 0; index < 20; ++index) {
        EXPECT_EQ(meetings[index].calendar.title, harness.google.calendars[index]);
    }
}

TEST(CloudAccountTest, TheSameMeetingSeenOnTheDesktopAndDirectlyAlertsOnce)
{
    Harness harness;
    FakeCalendarSource desktop(u"local"_s);
    desktop.meetings = {meeting(u"external:uid-1@example.com"_s, t0 + 3600)};
    harness.repository.addSource(desktop);
    harness.google.events[u"Work"_s] = {event(u"Same meeting"_s, t0 + 3600, u"uid-1@example.com"_s),
                                        event(u"Moved copy"_s, t0 + 7200, u"uid-1@example.com"_s),
                                        event(u"Only here"_s, t0 + 3600)};
    harness.connect();
    const auto meetings = harness.fetch();
    std::vector<QString> series;
    for (const auto& meeting : meetings) {
        series.push_back(meeting.title);
    }
    // The desktop's copy is kept (added first); an occurrence at another start is another meeting.
    ASSERT_EQ(meetings.size(), 3u);
    EXPECT_EQ(meetings[0].identity.seriesIdentifier, u"external:uid-1@example.com"_s);
    EXPECT_EQ(series[1], u"Moved copy"_s);
    EXPECT_EQ(series[2], u"Only here"_s);
}

TEST(CloudAccountTest, DisconnectingRemovesTheTokenTheAccountAndWhatWasStoredAboutIt)
{
    for (const auto kind : {RemoteCalendarProviderKind::google, RemoteCalendarProviderKind::microsoft}) {
        SCOPED_TRACE(rawValue(kind).toStdString());
        Harness harness;
        auto& client = kind == RemoteCalendarProviderKind::google ? harness.google : harness.microsoft;
        client.events[u"Work"_s] = {event(u"Planning"_s, t0 + 3600)};
        const auto account = harness.connect(kind);
        const auto remote = harness.fetch().at(0);
        const auto local = meeting(u"external:local-uid"_s, t0 + 3600);

        NotifierSettings settings = harness.settings.settings();
        settings.selectedCalendars = std::vector<CalendarSelectionRecord>{{remote.calendar.identifier, std::nullopt},
                                                                          {u"local-calendar"_s, std::nullopt}};
        harness.settings.save(settings);
        harness.exclusions.add(exclusion(remote.identity));
        harness.exclusions.add(exclusion(local.identity));
        harness.delivery.setSnoozes(std::vector{SnoozeRecord{remote.identity, Date{t0 + 300}, Date{t0}},
                                                SnoozeRecord{local.identity, Date{t0 + 300}, Date{t0}}});

        const auto warning = runTask(harness.coordinator().disconnectAccount(account.id));
        EXPECT_FALSE(warning);
        EXPECT_TRUE(harness.accountStore.loadAccounts().empty());
        EXPECT_TRUE(harness.secrets->items.empty());
        EXPECT_EQ(harness.provider.revoked().contains(u"refresh-code-1"_s), kind == RemoteCalendarProviderKind::google);
        EXPECT_TRUE(harness.coordinator().accounts().empty());
        EXPECT_TRUE(harness.fetch().empty());
        ASSERT_TRUE(harness.settings.settings().selectedCalendars);
        EXPECT_EQ(harness.settings.settings().selectedCalendars->size(), 1u);
        ASSERT_EQ(harness.exclusions.records().size(), 1u);
        EXPECT_EQ(harness.exclusions.records()[0].identity, local.identity);
        ASSERT_EQ(harness.delivery.snoozes().size(), 1u);
        EXPECT_EQ(harness.delivery.snoozes()[0].identity, local.identity);
    }
}

TEST(CloudAccountTest, AGoogleRevocationThatFailsStillDisconnectsWithAWarning)
{
    Harness harness;
    const auto account = harness.connect();
    harness.provider.revocationStatus = 503;
    const auto warning = runTask(harness.coordinator().disconnectAccount(account.id));
    ASSERT_TRUE(warning);
    EXPECT_TRUE(warning->startsWith(u"ada@example.com was disconnected, but Google could not be asked to revoke"_s))
        << warning->toStdString();
    EXPECT_TRUE(harness.secrets->items.empty());
    EXPECT_TRUE(harness.accountStore.loadAccounts().empty());
}

TEST(CloudAccountTest, AnUnreadableAccountListIsNeverOverwritten)
{
    Harness harness;
    harness.defaults.store(UserDefaultsRemoteCalendarAccountStore::storageKey, u"not data"_s);
    const QByteArray before = harness.defaults.fileBytes();
    EXPECT_THROW(harness.coordinator(), RemoteCalendarAccountStoreError);
    EXPECT_THROW(harness.connect(), RemoteCalendarAccountStoreError);
    EXPECT_EQ(harness.user.opened, 0);
    EXPECT_EQ(harness.defaults.fileBytes(), before);
}

TEST(CloudAccountTest, StoredAccountsBecomeSourcesWhenLoaded)
{
    Harness before;
    const auto account = before.connect();

    // A later run: the account list and the keyring are all there is; the first fetch renews the access token.
    Harness next;
    next.defaults.store(UserDefaultsRemoteCalendarAccountStore::storageKey,
                        before.defaults.stored(UserDefaultsRemoteCalendarAccountStore::storageKey));
    next.secrets->items = before.secrets->items;
    next.google.events[u"Work"_s] = {event(u"Review"_s, t0 + 3600)};
    EXPECT_EQ(next.coordinator().accounts(), std::vector{account});
    const auto meetings = next.fetch();
    ASSERT_EQ(meetings.size(), 1u);
    EXPECT_EQ(meetings[0].title, u"Review"_s);
    EXPECT_EQ(next.google.tokensSeen.front(), u"access-renewed-1"_s);
}

} // namespace
