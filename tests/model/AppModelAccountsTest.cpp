// SPDX-License-Identifier: GPL-3.0-or-later
// The model's side of connected accounts: what it says when the stored list is unreadable, when a connection fails
// or is cancelled, and how an account makes alerts possible without the desktop's calendars.
#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "calendars/CalendarRepository.h"
#include "fakes/FakeAlertWindowSystem.h"
#include "fakes/FakeDesktopCalendars.h"
#include "fakes/FakeTimerScheduler.h"
#include "model/AppModel.h"
#include "model/SystemEventSource.h"
#include "scheduling/AlertScheduler.h"
#include "support/CloudAccountHarness.h"
#include "support/Patience.h"

#include <gtest/gtest.h>

using namespace cloudharness;

namespace {

struct ModelHarness : CloudAccountHarness {
    AppModel& model()
    {
        if (!m_model) {
            coordinator(false);
            m_model = std::make_unique<AppModel>(AppModelDependencies{
                .defaults = defaults.database(),
                .localCalendars = desktop,
                .repository = repository,
                .settingsStore = settings,
                .exclusionStore = exclusions,
                .deliveryStore = delivery,
                .scheduler = scheduler,
                .alertController = alerts,
                .clock = clock,
                .systemEvents = systemEvents,
                .openUrl = {},
                .remoteAccountCoordinator = &coordinator(),
                .oauthClientIDs = clientIDs.get(),
            });
            runTask(m_model->start());
            settle();
        }
        return *m_model;
    }
    void settle()
    {
        ASSERT_TRUE(QTest::qWaitFor([this] { return !scheduler.isRefreshing(); }, patience));
    }

    FakeDesktopCalendars desktop{orvane::CalendarAuthorizationState::denied, false};
    FakeTimerScheduler timers{clock};
    AlertScheduler scheduler{repository, settings, exclusions, delivery, timers, clock};
    SecureEventInputActivationGate gate{clock, timers, [] {
                                            return false;
                                        }};
    AlertPresentationAvailability presentation;
    FakeAlertWindowSystem windows;
    FullScreenAlertController alerts{presentation, windows, clock, timers, gate};
    SystemEventSource systemEvents;

private:
    std::unique_ptr<AppModel> m_model;
};

TEST(AppModelAccounts, AnUnreadableAccountListIsReportedAsReadOrValidationFailure)
{
    const RemoteCalendarAccountMetadata twin{QUuid::createUuid(),
                                             RemoteCalendarProviderKind::google,
                                             u"user-1"_s,
                                             std::nullopt,
                                             u"Ada"_s,
                                             std::nullopt,
                                             u"client-g"_s,
                                             Date{t0}};
    const struct {
        const char* name;
        std::function<void(ModelHarness&)> store;
        QString prefix;
    } cases[] = {
        {"not data",
         [](ModelHarness& harness) {
             harness.defaults.store(UserDefaultsRemoteCalendarAccountStore::storageKey, u"not data"_s);
         },
         u"Unable to read connected calendar accounts: "_s},
        {"the same account twice",
         [&](ModelHarness& harness) {
             auto second = twin;
             second.id = QUuid::createUuid();
             harness.defaults.store(UserDefaultsRemoteCalendarAccountStore::storageKey,
                                    QByteArray(R"({"schemaVersion":1,"accounts":[)" + json::serialize(toJson(twin)) +
                                               "," + json::serialize(toJson(second)) + "]}"));
         },
         u"Unable to validate connected calendar accounts: "_s},
    };
    for (const auto& [name, store, prefix] : cases) {
        SCOPED_TRACE(name);
        ModelHarness harness;
        store(harness);
        AppModel& model = harness.model();
        ASSERT_TRUE(model.lastError());
        EXPECT_TRUE(model.lastError()->startsWith(prefix)) << model.lastError()->toStdString();
        EXPECT_TRUE(model.remoteAccounts().empty());
        // Connecting would overwrite what could not be read: it is refused with the same text.
        runTask(model.connectRemoteAccount(RemoteCalendarProviderKind::google));
        EXPECT_TRUE(model.lastError()->startsWith(prefix));
        EXPECT_EQ(harness.user.opened, 0);
    }
}

TEST(AppModelAccounts, ConnectionFailuresAreShownButACancelledSignInIsNot)
{
    ModelHarness harness;
    harness.bundle.erase(RemoteOAuthClientIDStore::microsoftClientIDKey);
    AppModel& model = harness.model();
    runTask(model.connectRemoteAccount(RemoteCalendarProviderKind::microsoft));
    EXPECT_EQ(model.lastError(), u"Enter the provider's OAuth client ID first."_s);

    harness.user.declines = true;
    auto connecting = model.connectRemoteAccount(RemoteCalendarProviderKind::google);
    ASSERT_TRUE(QTest::qWaitFor([&] { return harness.user.opened == 1; }, patience));
    EXPECT_EQ(model.isConnectingRemoteProvider(), RemoteCalendarProviderKind::google);
    model.cancelRemoteConnection();
    runTask(std::move(connecting));
    EXPECT_FALSE(model.isConnectingRemoteProvider());
    // The earlier failure stays until a command succeeds; cancelling adds none of its own.
    EXPECT_EQ(model.lastError(), u"Enter the provider's OAuth client ID first."_s);

    model.setOAuthClientID(RemoteCalendarProviderKind::microsoft, u" my-client "_s);
    EXPECT_EQ(model.oauthClientID(RemoteCalendarProviderKind::microsoft), u"my-client"_s);
    EXPECT_FALSE(model.hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind::microsoft));
    EXPECT_TRUE(model.hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind::google));
    EXPECT_FALSE(model.lastError());
}

TEST(AppModelAccounts, AConnectedAccountIsACalendarSourceUntilItsSignInIsRefused)
{
    ModelHarness harness;
    harness.google.events[u"Work"_s] = {event(u"Standup"_s, t0 + 3600)};
    AppModel& model = harness.model();
    EXPECT_FALSE(model.hasUsableCalendarSource());

    runTask(model.connectRemoteAccount(RemoteCalendarProviderKind::google));
    harness.settle();
    EXPECT_FALSE(model.lastError());
    EXPECT_TRUE(model.hasUsableCalendarSource());
    EXPECT_FALSE(model.hasRemoteAccountNeedingReconnection());
    ASSERT_EQ(model.calendarGroups().size(), 1u);
    ASSERT_EQ(model.upcoming().size(), 1u);

    harness.provider.revokeAll();
    harness.google.refused.insert(u"access-code-1"_s);
    model.refresh();
    harness.settle();
    EXPECT_TRUE(model.hasRemoteAccountNeedingReconnection());
    EXPECT_FALSE(model.hasUsableCalendarSource());
    // The meeting delivered before is kept for a while, so the refusal does not silently drop its alert.
    EXPECT_EQ(model.upcoming().size(), 1u);

    runTask(model.disconnectRemoteAccount(model.remoteAccounts().front().id));
    harness.settle();
    EXPECT_TRUE(model.remoteAccounts().empty());
    EXPECT_TRUE(model.calendarGroups().empty());
    EXPECT_TRUE(model.upcoming().empty());
}

TEST(AppModelAccounts, ANewAccountsOwnCalendarsJoinTheSelectionButSharedOnesWait)
{
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails ? "connection fails" : "connected");
        ModelHarness harness;
        harness.google.calendars = {u"Work"_s, u"Colleague"_s};
        harness.google.sharedCalendars = {u"Colleague"_s};
        harness.google.events[u"Work"_s] = {event(u"Standup"_s, t0 + 3600)};
        harness.google.events[u"Colleague"_s] = {event(u"Their one-to-one"_s, t0 + 3600)};
        harness.provider.issuesRefreshToken = !fails;
        AppModel& model = harness.model();
        ASSERT_FALSE(harness.settings.settings().selectedCalendars) << "all calendars";

        runTask(model.connectRemoteAccount(RemoteCalendarProviderKind::google));
        harness.settle();
        if (fails) {
            EXPECT_TRUE(model.lastError());
            EXPECT_FALSE(harness.settings.settings().selectedCalendars) << "all calendars again";
            continue;
        }
        ASSERT_TRUE(harness.settings.settings().selectedCalendars);
        const auto& selection = *harness.settings.settings().selectedCalendars;
        ASSERT_EQ(selection.size(), 1u);
        ASSERT_TRUE(selection[0].fingerprint);
        EXPECT_EQ(selection[0].fingerprint->calendarTitle, u"Work"_s);
        ASSERT_EQ(model.upcoming().size(), 1u);
        EXPECT_EQ(model.upcoming()[0].title, u"Standup"_s);
    }
}

} // namespace
