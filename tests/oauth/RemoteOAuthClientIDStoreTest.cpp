// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/RemoteOAuthClientIDStore.h"

#include "../support/DiskFull.h"
#include "../support/QtPrinters.h"
#include "../support/TemporaryDefaults.h"
#include "persistence/PersistenceStoreError.h"

#include <QRect>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using orvane::RemoteCalendarProviderKind;
using orvane::RemoteOAuthClientIDStore;
using Store = RemoteOAuthClientIDStore;

namespace {

constexpr auto google = RemoteCalendarProviderKind::google;
constexpr auto microsoft = RemoteCalendarProviderKind::microsoft;

const QString googleUserKey = u"Orvane.oauthClientID.google"_s;
const QString microsoftUserKey = u"Orvane.oauthClientID.microsoft"_s;

} // namespace

TEST(RemoteOAuthClientIDStore, BuildClientWinsOverTheUsersAndBothAreTrimmed)
{
    const std::optional<QString> none;
    const struct {
        const char* name;
        std::optional<QString> bundle;
        QVariant user;
        std::optional<QString> clientID;
        std::optional<QString> preconfigured;
    } cases[] = {
        {"neither", none, {}, none, none},
        {"build only", u" build.apps \n"_s, {}, u"build.apps"_s, u"build.apps"_s},
        {"user only", none, u"\tuser.apps\r\n"_s, u"user.apps"_s, none},
        {"both", u"build.apps"_s, u"user.apps"_s, u"build.apps"_s, u"build.apps"_s},
        {"blank build", u" \n\t"_s, u"user.apps"_s, u"user.apps"_s, none},
        {"blank user", none, u"  "_s, none, none},
        {"user blob", none, QByteArray("user.apps"), none, none},
        {"user list", none, QStringList{u"a"_s, u"b"_s}, none, none},
        {"user rectangle", none, QRect(1, 2, 3, 4), none, none},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.name);
        TemporaryDefaults defaults;
        if (entry.user.isValid()) {
            defaults.store(googleUserKey, entry.user);
            defaults.store(microsoftUserKey, entry.user);
        }
        std::map<QString, QString> bundle;
        if (entry.bundle) {
            bundle = {{Store::googleClientIDKey, *entry.bundle}, {Store::microsoftClientIDKey, *entry.bundle}};
        }
        const Store store(defaults.database(), bundle);
        for (const auto provider : {google, microsoft}) {
            EXPECT_EQ(store.clientID(provider), entry.clientID);
            EXPECT_EQ(store.preconfiguredClientID(provider), entry.preconfigured);
        }
    }
}

TEST(RemoteOAuthClientIDStore, OnlyGoogleHasAClientSecret)
{
    TemporaryDefaults defaults;
    const Store store(defaults.database(), {{Store::googleClientSecretKey, u" GOCSPX-secret\n"_s}});
    EXPECT_EQ(store.clientSecret(google), u"GOCSPX-secret"_s);
    EXPECT_EQ(store.clientSecret(microsoft), std::nullopt);
    const Store blank(defaults.database(), {{Store::googleClientSecretKey, u"\n"_s}});
    EXPECT_EQ(blank.clientSecret(google), std::nullopt);
}

TEST(RemoteOAuthClientIDStore, SettingStoresTrimmedTextAndBlankOrAbsentRemovesIt)
{
    TemporaryDefaults defaults;
    Store store(defaults.database(), {});
    store.setClientID(u"  my-client\n"_s, microsoft);
    // Plain text in the file, so the user (or a support script) can read and edit it.
    EXPECT_EQ(defaults.stored(microsoftUserKey), QVariant(u"my-client"_s));
    EXPECT_EQ(store.clientID(microsoft), u"my-client"_s);
    EXPECT_EQ(store.clientID(google), std::nullopt);

    store.setClientID(u" \t\n"_s, microsoft);
    EXPECT_FALSE(defaults.stored(microsoftUserKey).isValid());

    store.setClientID(u"again"_s, microsoft);
    store.setClientID(std::nullopt, microsoft);
    EXPECT_FALSE(defaults.stored(microsoftUserKey).isValid());
    EXPECT_FALSE(defaults.fileBytes().contains("oauthClientID"));
}

TEST(RemoteOAuthClientIDStore, SettingWithABuildClientOnlyErasesTheUsersValue)
{
    TemporaryDefaults defaults;
    defaults.store(googleUserKey, u"old-user-client"_s);
    Store store(defaults.database(), {{Store::googleClientIDKey, u"build.apps"_s}});
    store.setClientID(u"new-user-client"_s, google);
    EXPECT_FALSE(defaults.stored(googleUserKey).isValid());
    EXPECT_EQ(store.clientID(google), u"build.apps"_s);
}

TEST(RemoteOAuthClientIDStore, AFailedWriteThrowsAndKeepsTheOldValue)
{
    TemporaryDefaults defaults;
    Store store(defaults.database(), {});
    store.setClientID(u"kept"_s, google);
    // Something else in the file, so that even the removal has bytes to write.
    defaults.store(u"other"_s, u"value"_s);
    {
        const DiskFull full;
        EXPECT_THROW(store.setClientID(u"a-much-longer-client-identifier"_s, google), orvane::PersistenceStoreError);
        EXPECT_THROW(store.setClientID(std::nullopt, google), orvane::PersistenceStoreError);
    }
    EXPECT_EQ(store.clientID(google), u"kept"_s);
}
