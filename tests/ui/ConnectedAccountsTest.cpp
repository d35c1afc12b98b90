// SPDX-License-Identifier: GPL-3.0-or-later
// The connected-accounts controls as data: what each provider row and account row shows, and which commands reach
// the model in which state.
#include "SettingsFixtures.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace settingsfixtures;

namespace {

QVariantMap row(const QVariantList& rows, int index)
{
    return rows.at(index).toMap();
}

TEST(ConnectedAccountsViewModelTest, ProvidersOfferTheirClientIDEntryOnlyWhenTheBuildHasNone)
{
    FakeConnectedAccountsModel model;
    ConnectedAccountsViewModel view(model);
    model.preconfigured = {RemoteCalendarProviderKind::google};
    model.clientIDs = {{RemoteCalendarProviderKind::google, u"built-in"_s}};

    const struct {
        bool busy;
        bool googleCanConnect;
        bool outlookCanConnect;
    } cases[] = {
        // Outlook has no client ID yet: its entry is shown and connecting waits for one.
        {false, true, false},
        {true, false, false},
    };
    for (const auto& [busy, googleCanConnect, outlookCanConnect] : cases) {
        model.mutating = busy;
        const auto providers = view.providerList();
        ASSERT_EQ(providers.size(), 2);
        EXPECT_EQ(row(providers, 0)[u"provider"_s], u"google"_s);
        EXPECT_EQ(row(providers, 0)[u"title"_s], u"Google Calendar"_s);
        EXPECT_EQ(row(providers, 0)[u"connectLabel"_s], u"Connect Google…"_s);
        EXPECT_FALSE(row(providers, 0)[u"clientIDEditable"_s].toBool());
        EXPECT_EQ(row(providers, 0)[u"canConnect"_s].toBool(), googleCanConnect);
        EXPECT_EQ(row(providers, 1)[u"title"_s], u"Outlook"_s);
        EXPECT_TRUE(row(providers, 1)[u"clientIDEditable"_s].toBool());
        EXPECT_EQ(row(providers, 1)[u"clientID"_s], QString());
        EXPECT_EQ(row(providers, 1)[u"canConnect"_s].toBool(), outlookCanConnect);
    }

    // Client IDs are stored only when editable and changed.
    model.mutating = false;
    view.setClientID(u"google"_s, u"mine"_s);
    view.setClientID(u"microsoft"_s, u" 6731de76 "_s);
    model.clientIDs[RemoteCalendarProviderKind::microsoft] = u"6731de76"_s;
    view.setClientID(u"microsoft"_s, u"6731de76"_s);
    view.setClientID(u"yahoo"_s, u"x"_s);
    ASSERT_EQ(model.clientIDChanges.size(), 1u);
    EXPECT_EQ(model.clientIDChanges[0].first, RemoteCalendarProviderKind::microsoft);
}

TEST(ConnectedAccountsViewModelTest, EachAccountShowsItsNameAddressAndState)
{
    FakeConnectedAccountsModel model;
    fill(model);
    ConnectedAccountsViewModel view(model);
    const auto accounts = view.accountList();
    ASSERT_EQ(accounts.size(), 2);
    const auto google = row(accounts, 0);
    EXPECT_EQ(google[u"name"_s], u"Alex Doe"_s);
    EXPECT_EQ(google[u"address"_s], u"alex@example.com"_s);
    EXPECT_EQ(google[u"provider"_s], u"Google Calendar"_s);
    EXPECT_TRUE(google[u"state"_s].toString().startsWith(u"Connected since "_s));
    EXPECT_FALSE(google[u"stateIsProblem"_s].toBool());
    EXPECT_FALSE(google[u"needsReconnection"_s].toBool());
    const auto outlook = row(accounts, 1);
    EXPECT_EQ(outlook[u"state"_s], model.healthIssues[0].message);
    EXPECT_TRUE(outlook[u"stateIsProblem"_s].toBool());
    EXPECT_TRUE(outlook[u"needsReconnection"_s].toBool());

    // A usable account whose service is down is still connected, with the problem shown.
    model.usable.insert(model.accounts[1].id);
    model.healthIssues[0].message = u"The calendar service returned HTTP 503."_s;
    EXPECT_EQ(row(view.accountList(), 1)[u"state"_s],
              u"Not reachable right now: The calendar service returned HTTP 503."_s);
    EXPECT_FALSE(row(view.accountList(), 1)[u"needsReconnection"_s].toBool());

    // The account answers but one of its calendars does not: that calendar is named, the account is not blamed.
    model.healthIssues[0].calendar = CalendarSourceHealthIssue::Calendar{u"cal"_s, u"Team"_s};
    EXPECT_EQ(row(view.accountList(), 1)[u"state"_s],
              u"“Team” could not be read: The calendar service returned HTTP 503."_s);
    EXPECT_TRUE(row(view.accountList(), 1)[u"stateIsProblem"_s].toBool());
}

TEST(ConnectedAccountsViewModelTest, CommandsReachTheModelOnlyWhenNothingElseRuns)
{
    FakeConnectedAccountsModel model;
    fill(model);
    ConnectedAccountsViewModel view(model);
    const QString outlook = row(view.accountList(), 1)[u"id"_s].toString();

    view.connectProvider(u"google"_s);
    view.reconnect(outlook);
    view.disconnect(outlook.toLower());
    view.disconnect(u"not-an-account"_s);
    ASSERT_EQ(model.connects.size(), 2u);
    EXPECT_EQ(model.connects[0], std::pair(RemoteCalendarProviderKind::google, std::optional<QUuid>()));
    EXPECT_EQ(model.connects[1], std::pair(RemoteCalendarProviderKind::microsoft, std::optional(model.accounts[1].id)));
    EXPECT_EQ(model.disconnects, std::vector{model.accounts[1].id});

    model.connecting = RemoteCalendarProviderKind::microsoft;
    EXPECT_TRUE(view.isBusy());
    EXPECT_EQ(view.progressText(), u"Waiting for the Outlook sign-in in your browser…"_s);
    view.connectProvider(u"google"_s);
    view.disconnect(outlook);
    EXPECT_EQ(model.connects.size(), 2u);
    EXPECT_EQ(model.disconnects.size(), 1u);
    view.cancel();
    EXPECT_EQ(model.cancels, 1);

    const auto confirmation = view.disconnectConfirmation(outlook);
    EXPECT_EQ(confirmation[u"title"_s], u"Disconnect alex@contoso.com?"_s);
    EXPECT_EQ(confirmation[u"confirm"_s], u"Disconnect"_s);
}

} // namespace
