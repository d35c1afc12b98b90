// SPDX-License-Identifier: GPL-3.0-or-later
// A Google and a Microsoft account from connection to disconnection, as a user goes through it: the sign-in in the
// user's browser (headless Chromium) against a local authorization server, the refresh token in a real keyring, the
// calendars and events read from a local server shaped like the Google Calendar API or Microsoft Graph, the alert for
// the account's meeting, and a disconnection that leaves neither token nor metadata behind. Only the clock, timers
// and alert window are stand-ins.
#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "calendars/CalendarRepository.h"
#include "calendars/CloudAccountCoordinator.h"
#include "calendars/CompositeCalendarRepository.h"
#include "calendars/RemoteAccountCredentials.h"
#include "cloud/GoogleCalendarClient.h"
#include "cloud/MicrosoftGraphCalendarClient.h"
#include "cloud/NetworkRemoteHTTPTransport.h"
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "fakes/FakeAlertWindowSystem.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeDesktopCalendars.h"
#include "fakes/FakeTimerScheduler.h"
#include "model/AppModel.h"
#include "model/SystemEventSource.h"
#include "oauth/KeyringOAuthRefreshTokenStore.h"
#include "oauth/OAuthTokenClient.h"
#include "oauth/OAuthWebAuthorizer.h"
#include "oauth/RemoteOAuthClientIDStore.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"
#include "scheduling/AlertScheduler.h"
#include "support/LocalOAuthProvider.h"
#include "support/Patience.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"
#include "support/SecretServiceTestSession.h"
#include "support/TemporaryDefaults.h"
#include "ui/ConnectedAccountsViewModel.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <gtest/gtest.h>

using namespace orvane;
using namespace orvane::testing;
using namespace Qt::StringLiterals;

namespace {

constexpr double t0 = 700'000'000;

QString rfc3339(double date)
{
    return Date{date}.toDateTime().toString(Qt::ISODate);
}

/// The Google services Orvane reads, answering as Google documents: OpenID Connect userinfo, the calendar list and
/// events.list, each checking the bearer token the sign-in issued.
class LocalGoogleCalendar {
public:
    explicit LocalGoogleCalendar(double meetingStart)
    {
        const auto authorized = [this](const LocalHttpRequest& request, QJsonObject body) {
            const auto bearer = request.header("Authorization").value_or(QByteArray());
            if (!bearer.startsWith("Bearer access-")) {
                return LocalHttpResponse::json(
                    401, R"({"error":{"code":401,"message":"Invalid Credentials","status":"UNAUTHENTICATED"}})");
            }
            return LocalHttpResponse::json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
        };
        server.route("GET", "/v1/userinfo", [=](const LocalHttpRequest& request) {
            return authorized(request, {{u"sub"_s, u"109876543210"_s},
                                        {u"email"_s, u"ada@example.com"_s},
                                        {u"email_verified"_s, true},
                                        {u"name"_s, u"Ada Lovelace"_s}});
        });
        server.route("GET", "/calendar/v3/users/me/calendarList", [=](const LocalHttpRequest& request) {
            return authorized(request,
                              {{u"kind"_s, u"calendar#calendarList"_s},
                               {u"items"_s, QJsonArray{QJsonObject{{u"id"_s, u"ada@example.com"_s},
                                                                   {u"summary"_s, u"ada@example.com"_s},
                                                                   {u"primary"_s, true},
                                                                   {u"accessRole"_s, u"owner"_s},
                                                                   {u"backgroundColor"_s, u"#9fe1e7"_s}},
                                                       QJsonObject{{u"id"_s, u"team@group.calendar.google.com"_s},
                                                                   {u"summary"_s, u"Team"_s},
                                                                   {u"accessRole"_s, u"reader"_s}}}}});
        });
        const QJsonObject review{
            {u"kind"_s, u"calendar#event"_s},
            {u"id"_s, u"review1"_s},
            {u"status"_s, u"confirmed"_s},
            {u"summary"_s, u"Design review"_s},
            {u"start"_s, QJsonObject{{u"dateTime"_s, rfc3339(meetingStart)}}},
            {u"end"_s, QJsonObject{{u"dateTime"_s, rfc3339(meetingStart + 1800)}}},
            {u"iCalUID"_s, u"review1@google.com"_s},
            {u"hangoutLink"_s, u"https://meet.google.com/abc-defg-hij"_s},
            {u"attendees"_s,
             QJsonArray{QJsonObject{{u"email"_s, u"ada@example.com"_s},
                                    {u"self"_s, true},
                                    {u"responseStatus"_s, u"accepted"_s}},
                        QJsonObject{{u"email"_s, u"grace@example.com"_s}, {u"responseStatus"_s, u"needsAction"_s}}}},
        };
        server.route("GET", "/calendar/v3/calendars/ada%40example.com/events", [=](const LocalHttpRequest& request) {
            return authorized(request, {{u"kind"_s, u"calendar#events"_s}, {u"items"_s, QJsonArray{review}}});
        });
        server.route("GET", "/calendar/v3/calendars/team%40group.calendar.google.com/events",
                     [=](const LocalHttpRequest& request) {
                         return authorized(request, {{u"kind"_s, u"calendar#events"_s}, {u"items"_s, QJsonArray{}}});
                     });
    }

    LocalHttpServer server;
};

/// Microsoft Graph as it answers a work account: `/me`, its organisation, the calendars and a calendar view, each
/// checking the bearer token the sign-in issued.
class LocalMicrosoftGraph {
public:
    explicit LocalMicrosoftGraph(double meetingStart)
    {
        const auto authorized = [](const LocalHttpRequest& request, QJsonObject body) {
            if (!request.header("Authorization").value_or(QByteArray()).startsWith("Bearer access-")) {
                return LocalHttpResponse::json(
                    401, R"({"error":{"code":"InvalidAuthenticationToken","message":"Access token is empty."}})");
            }
            return LocalHttpResponse::json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
        };
        const auto graphTime = [](double date) {
            return QJsonObject{{u"dateTime"_s, Date{date}.toDateTime().toString(u"yyyy-MM-ddTHH:mm:ss.zzz0000"_s)},
                               {u"timeZone"_s, u"UTC"_s}};
        };
        server.route("GET", "/v1.0/me", [=](const LocalHttpRequest& request) {
            return authorized(request, {{u"id"_s, u"87d349ed-44d7-43e1-9a83-5f2406dee5bd"_s},
                                        {u"displayName"_s, u"Ada Lovelace"_s},
                                        {u"mail"_s, u"ada@contoso.com"_s},
                                        {u"userPrincipalName"_s, u"ada@contoso.com"_s}});
        });
        server.route("GET", "/v1.0/organization", [=](const LocalHttpRequest& request) {
            return authorized(
                request, {{u"value"_s, QJsonArray{QJsonObject{{u"id"_s, u"84da0dd2-5f3a-4ce1-9b8e-bc3e2b2d1e0f"_s}}}}});
        });
        server.route("GET", "/v1.0/me/calendars", [=](const LocalHttpRequest& request) {
            return authorized(
                request,
                {{u"value"_s,
                  QJsonArray{QJsonObject{{u"id"_s, u"AAMkCal"_s},
                                         {u"name"_s, u"Calendar"_s},
                                         {u"hexColor"_s, u"#0078d4"_s},
                                         {u"canEdit"_s, true},
                                         {u"isDefaultCalendar"_s, true},
                                         {u"owner"_s, QJsonObject{{u"address"_s, u"ada@contoso.com"_s}}}},
                             QJsonObject{{u"id"_s, u"AAMkTeam"_s},
                                         {u"name"_s, u"Team"_s},
                                         {u"canEdit"_s, false},
                                         {u"owner"_s, QJsonObject{{u"address"_s, u"grace@contoso.com"_s}}}}}}});
        });
        const QJsonObject review{
            {u"id"_s, u"AAMkReview"_s},
            {u"subject"_s, u"Design review"_s},
            {u"start"_s, graphTime(meetingStart)},
            {u"end"_s, graphTime(meetingStart + 1800)},
            {u"isAllDay"_s, false},
            {u"isCancelled"_s, false},
            {u"type"_s, u"singleInstance"_s},
            {u"responseStatus"_s, QJsonObject{{u"response"_s, u"accepted"_s}}},
            {u"attendees"_s,
             QJsonArray{QJsonObject{{u"type"_s, u"required"_s},
                                    {u"emailAddress"_s, QJsonObject{{u"address"_s, u"grace@contoso.com"_s}}}}}},
            {u"onlineMeeting"_s, QJsonObject{{u"joinUrl"_s, u"https://teams.microsoft.com/l/meetup-join/19%3a1"_s}}},
            {u"iCalUId"_s, u"040000008200E00074C5B7101A82E008"_s},
        };
        server.route("GET", "/v1.0/me/calendars/AAMkCal/calendarView", [=](const LocalHttpRequest& request) {
            return authorized(request, {{u"value"_s, QJsonArray{review}}});
        });
        server.route("GET", "/v1.0/me/calendars/AAMkTeam/calendarView", [=](const LocalHttpRequest& request) {
            return authorized(request, {{u"value"_s, QJsonArray{}}});
        });
    }

    LocalHttpServer server;
};

class ConnectedAccountEndToEnd : public ::testing::TestWithParam<RemoteCalendarProviderKind> {
protected:
    static void SetUpTestSuite()
    {
        keyringSession = new SecretServiceTestSession;
        keyringSession->start();
    }
    static void TearDownTestSuite()
    {
        delete keyringSession;
        keyringSession = nullptr;
    }
    static inline SecretServiceTestSession* keyringSession = nullptr;
};

TEST_P(ConnectedAccountEndToEnd, ConnectSeeCalendarsGetAlertedAndDisconnect)
{
    const bool google = GetParam() == RemoteCalendarProviderKind::google;
    const QString address = google ? u"ada@example.com"_s : u"ada@contoso.com"_s;
    const QUrl joinLink = google ? QUrl(u"https://meet.google.com/abc-defg-hij"_s)
                                 : QUrl(u"https://teams.microsoft.com/l/meetup-join/19%3a1"_s);
    ASSERT_FALSE(QStandardPaths::findExecutable(u"chromium"_s).isEmpty()) << "Debian's chromium package is needed";
    TemporaryDefaults defaults;
    FakeClock clock{Date{t0}};
    FakeTimerScheduler timers{clock};
    LocalOAuthProvider provider(u"desktop-secret"_s);
    provider.publicClients.insert(u"client-m"_s);
    LocalGoogleCalendar googleService(t0 + 600);
    LocalMicrosoftGraph graphService(t0 + 600);
    HeadlessBrowser browser;

    SettingsStore settings(defaults.database());
    ExclusionStore exclusions(defaults.database());
    DeliveryStore delivery(defaults.database());
    CompositeCalendarRepository repository(settings, clock);
    AlertScheduler scheduler(repository, settings, exclusions, delivery, timers, clock);
    SecureEventInputActivationGate gate(clock, timers, [] { return false; });
    AlertPresentationAvailability presentation;
    FakeAlertWindowSystem windows;
    FullScreenAlertController alerts(presentation, windows, clock, timers, gate);
    SystemEventSource systemEvents;

    NetworkRemoteHTTPTransport transport;
    OAuthTokenClient tokens(
        transport, [&] { return clock.now(); }, provider.url(u"/revoke"_s));
    KeyringOAuthRefreshTokenStore keyring;
    OAuthWebAuthorizer authorizer([&](const QUrl& url) { return browser.open(url); });
    UserDefaultsRemoteCalendarAccountStore accountStore(defaults.database());
    RemoteOAuthClientIDStore clientIDs(defaults.database(),
                                       {{RemoteOAuthClientIDStore::googleClientIDKey, u"client-g"_s},
                                        {RemoteOAuthClientIDStore::googleClientSecretKey, u"desktop-secret"_s},
                                        {RemoteOAuthClientIDStore::microsoftClientIDKey, u"client-m"_s}});
    GoogleCalendarClient googleClient(transport, {googleService.server.url(u"/"_s), googleService.server.url(u"/"_s)});
    MicrosoftGraphCalendarClient microsoftClient(transport, {graphService.server.url(u"/"_s)});
    CloudAccountCoordinator coordinator(
        {accountStore, clientIDs, authorizer, tokens, keyring, repository, settings, exclusions, delivery, clock,
         googleClient, microsoftClient,
         [&](RemoteCalendarProviderKind kind, const QString& clientID, const std::optional<QString>& secret) {
             return provider.configuration(kind, clientID, secret);
         }});

    FakeDesktopCalendars desktop{orvane::CalendarAuthorizationState::denied, false};
    AppModel model({.defaults = defaults.database(),
                    .localCalendars = desktop,
                    .repository = repository,
                    .settingsStore = settings,
                    .exclusionStore = exclusions,
                    .deliveryStore = delivery,
                    .scheduler = scheduler,
                    .alertController = alerts,
                    .clock = clock,
                    .systemEvents = systemEvents,
                    .openUrl = [](const QUrl&) { return true; },
                    .remoteAccountCoordinator = &coordinator,
                    .oauthClientIDs = &clientIDs});
    AppModelConnectedAccountsModel accountsModel(model);
    ConnectedAccountsViewModel accountsView(accountsModel);
    const auto settle = [&] {
        ASSERT_TRUE(QTest::qWaitFor([&] { return !scheduler.isRefreshing(); }, patience));
    };

    runTask(model.start());
    model.setAlertLeadTime(60);
    EXPECT_FALSE(model.hasUsableCalendarSource());

    // Connect: the settings control starts the sign-in; the browser completes it.
    accountsView.connectProvider(rawValue(GetParam()));
    EXPECT_EQ(accountsView.progressText(), google ? u"Waiting for the Google Calendar sign-in in your browser…"_s
                                                  : u"Waiting for the Outlook sign-in in your browser…"_s);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !model.calendarGroups().empty() && !accountsView.isBusy(); }, patience))
        << model.lastError().value_or(u"(no error)"_s).toStdString();
    settle();
    EXPECT_FALSE(model.lastError()) << model.lastError()->toStdString();
    EXPECT_TRUE(provider.tokenErrors.empty());
    EXPECT_TRUE(model.hasUsableCalendarSource());

    // Settings shows the account and its calendars.
    const auto shownAccounts = accountsView.accountList();
    ASSERT_EQ(shownAccounts.size(), 1);
    const QVariantMap shown = shownAccounts.front().toMap();
    EXPECT_EQ(shown[u"name"_s], u"Ada Lovelace"_s);
    EXPECT_EQ(shown[u"address"_s], address);
    EXPECT_FALSE(shown[u"needsReconnection"_s].toBool());
    ASSERT_EQ(model.calendarGroups().size(), 1u);
    const auto& group = model.calendarGroups().front();
    EXPECT_EQ(group.sourceTitle, address);
    ASSERT_EQ(group.calendars.size(), 2u);
    EXPECT_EQ(group.calendars[0].title, google ? address : u"Calendar"_s);
    EXPECT_EQ(group.calendars[1].title, u"Team"_s);
    const auto account = model.remoteAccounts().front();
    EXPECT_EQ(runTask(keyring.readRefreshToken(RemoteAccountCredentials::keyringAccount(account))),
              u"refresh-code-1"_s);

    // The account's meeting alerts at its lead time, with its Meet link.
    ASSERT_EQ(model.upcoming().size(), 1u);
    EXPECT_EQ(model.upcoming().front().title, u"Design review"_s);
    timers.advanceTo(Date{t0 + 540});
    settle();
    const auto panel = windows.alertPanel();
    ASSERT_TRUE(panel);
    ASSERT_EQ(panel->content.meetings.size(), 1u);
    EXPECT_EQ(panel->content.meetings.front().meetingURL, joinLink);
    windows.pressEscape();
    settle();

    // Disconnect: a Google grant is revoked (Microsoft has no revocation for public clients), and nothing of the
    // account is left.
    accountsView.disconnect(shown[u"id"_s].toString());
    ASSERT_TRUE(QTest::qWaitFor([&] { return model.calendarGroups().empty() && !accountsView.isBusy(); }, patience));
    settle();
    EXPECT_FALSE(model.lastError()) << model.lastError()->toStdString();
    EXPECT_EQ(provider.revoked().contains(u"refresh-code-1"_s), google);
    EXPECT_EQ(runTask(keyring.readRefreshToken(RemoteAccountCredentials::keyringAccount(account))), std::nullopt);
    EXPECT_TRUE(accountStore.loadAccounts().empty());
    EXPECT_FALSE(defaults.fileBytes().contains(account.id.toString(QUuid::WithoutBraces).toUpper().toUtf8()));
    EXPECT_TRUE(model.calendarGroups().empty());
    EXPECT_TRUE(model.upcoming().empty());
    EXPECT_TRUE(delivery.records().empty());
}

INSTANTIATE_TEST_SUITE_P(Providers, ConnectedAccountEndToEnd,
                         ::testing::Values(RemoteCalendarProviderKind::google, RemoteCalendarProviderKind::microsoft),
                         [](const auto& info) { return rawValue(info.param).toStdString(); });

} // namespace
