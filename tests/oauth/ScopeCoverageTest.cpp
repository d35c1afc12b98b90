// SPDX-License-Identifier: GPL-3.0-or-later
#include "../support/QtPrinters.h"
#include "oauth/OAuthProviderConfiguration.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using orvane::OAuthProviderConfiguration;
using orvane::OAuthService;

namespace {

const QString google = u"https://www.googleapis.com/auth/"_s;
const QString graph = u"https://graph.microsoft.com/"_s;

TEST(ScopeCoverageTest, MissingRequiredResourceScopes)
{
    const auto googleConfiguration = OAuthProviderConfiguration::google(u"id"_s, std::nullopt);
    const auto microsoftConfiguration = OAuthProviderConfiguration::microsoft(u"id"_s);
    const QString calendarList = google + u"calendar.calendarlist.readonly"_s;
    const QString events = google + u"calendar.events.readonly"_s;
    struct Row {
        const char* name;
        const OAuthProviderConfiguration& configuration;
        QSet<QString> granted;
        QStringList missing;
    };
    const Row rows[] = {
        {"nothing reported", googleConfiguration, {}, {}},
        {"google exact", googleConfiguration, {u"openid"_s, calendarList, events}, {}},
        {"google full calendar", googleConfiguration, {google + u"calendar"_s}, {}},
        {"google calendar.readonly", googleConfiguration, {google + u"calendar.readonly"_s}, {}},
        {"google calendar.events", googleConfiguration, {google + u"calendar.events"_s}, {calendarList}},
        {"google calendarlist", googleConfiguration, {google + u"calendar.calendarlist"_s}, {events}},
        {"google identity only", googleConfiguration, {u"openid"_s, u"email"_s}, {calendarList, events}},
        {"google scopes compare exactly", googleConfiguration, {calendarList.toUpper(), events}, {calendarList}},
        {"microsoft nothing reported", microsoftConfiguration, {}, {}},
        {"microsoft bare names",
         microsoftConfiguration,
         {u"User.Read"_s, u"Calendars.Read"_s, u"Calendars.Read.Shared"_s},
         {}},
        {"microsoft full URIs in any case",
         microsoftConfiguration,
         {u"HTTPS://GRAPH.MICROSOFT.COM/user.read"_s, graph + u"calendars.read"_s, graph + u"Calendars.Read.Shared"_s,
          u"openid"_s},
         {}},
        {"microsoft partial",
         microsoftConfiguration,
         {u"user.read"_s, u"profile"_s, u"offline_access"_s},
         {u"Calendars.Read"_s, u"Calendars.Read.Shared"_s}},
        {"microsoft write is not shared",
         microsoftConfiguration,
         {u"User.Read"_s, u"Calendars.ReadWrite"_s},
         {u"Calendars.Read"_s, u"Calendars.Read.Shared"_s}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.configuration.missingRequiredResourceScopes(row.granted), row.missing) << row.name;
    }
}

TEST(ScopeCoverageTest, ProviderConfigurations)
{
    const auto googleConfiguration = OAuthProviderConfiguration::google(u"g-id"_s, u"g-secret"_s);
    EXPECT_EQ(googleConfiguration.service, OAuthService::google);
    EXPECT_EQ(googleConfiguration.clientID, u"g-id"_s);
    EXPECT_EQ(googleConfiguration.clientSecret, u"g-secret"_s);
    EXPECT_EQ(googleConfiguration.authorizationEndpoint, QUrl(u"https://accounts.google.com/o/oauth2/v2/auth"_s));
    EXPECT_EQ(googleConfiguration.tokenEndpoint, QUrl(u"https://oauth2.googleapis.com/token"_s));
    EXPECT_EQ(googleConfiguration.scopes,
              (QStringList{u"openid"_s, u"email"_s, google + u"calendar.calendarlist.readonly"_s,
                           google + u"calendar.events.readonly"_s}));
    EXPECT_EQ(googleConfiguration.additionalAuthorizationParameters,
              (std::map<QString, QString>{{u"access_type"_s, u"offline"_s}, {u"prompt"_s, u"consent"_s}}));
    EXPECT_EQ(googleConfiguration.loopbackCallbackHost(), u"127.0.0.1"_s);
    EXPECT_EQ(googleConfiguration.loopbackCallbackPath(), u"/"_s);
    EXPECT_EQ(OAuthProviderConfiguration::googleRevocationEndpoint(), QUrl(u"https://oauth2.googleapis.com/revoke"_s));

    const auto microsoftConfiguration = OAuthProviderConfiguration::microsoft(u"m-id"_s);
    EXPECT_EQ(microsoftConfiguration.service, OAuthService::microsoft);
    EXPECT_EQ(microsoftConfiguration.clientSecret, std::nullopt);
    EXPECT_EQ(microsoftConfiguration.authorizationEndpoint,
              QUrl(u"https://login.microsoftonline.com/common/oauth2/v2.0/authorize"_s));
    EXPECT_EQ(microsoftConfiguration.tokenEndpoint,
              QUrl(u"https://login.microsoftonline.com/common/oauth2/v2.0/token"_s));
    EXPECT_EQ(microsoftConfiguration.scopes,
              (QStringList{u"openid"_s, u"profile"_s, u"offline_access"_s, graph + u"User.Read"_s,
                           graph + u"Calendars.Read"_s, graph + u"Calendars.Read.Shared"_s}));
    EXPECT_EQ(microsoftConfiguration.additionalAuthorizationParameters,
              (std::map<QString, QString>{{u"response_mode"_s, u"query"_s}}));
    EXPECT_EQ(microsoftConfiguration.loopbackCallbackHost(), u"localhost"_s);
}

} // namespace
