// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/PersistenceComponent.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStore.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <QLockFile>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace orvane;
using Failure = PersistenceReadFailure;

namespace {

const QByteArray validSettingsPayload =
    R"({"alertLeadTime":300,"eligibilityMode":"meetingLike","launchAtLogin":false,"showsOnAllDisplays":true})";

QByteArray envelope(const QByteArray& version, const QByteArray& payload)
{
    return R"({"schemaVersion":)" + version + R"(,"payload":)" + payload + "}";
}

struct Classification {
    const char* name;
    QVariant stored;
    PersistenceReadState expected;
};

class SettingsRecordClassification : public ::testing::TestWithParam<Classification> {};

TEST_P(SettingsRecordClassification, ReadsAndNeverRewritesWhatItCannotRead)
{
    TemporaryDefaults defaults;
    if (GetParam().stored.isValid()) {
        defaults.store(u"Orvane.settings"_s, GetParam().stored);
    }
    const QVariant before = defaults.stored(u"Orvane.settings"_s);
    const SettingsStore store(defaults.database());
    EXPECT_EQ(store.readState(), GetParam().expected);
    if (store.readState().isUnreadable()) {
        EXPECT_EQ(store.settings(), NotifierSettings{});
        EXPECT_EQ(defaults.stored(u"Orvane.settings"_s), before);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, SettingsRecordClassification,
    ::testing::Values(
        Classification{"absent", QVariant(), PersistenceReadState::absent()},
        Classification{"loaded", envelope("2", validSettingsPayload), PersistenceReadState::loaded(2)},
        Classification{"string", u"{\"schemaVersion\":2}"_s,
                       PersistenceReadState::unreadable({Failure::InvalidStoredType{}})},
        Classification{"number", 2, PersistenceReadState::unreadable({Failure::InvalidStoredType{}})},
        Classification{"map", QVariantMap{{u"schemaVersion"_s, 2}},
                       PersistenceReadState::unreadable({Failure::InvalidStoredType{}})},
        Classification{"notJson", QByteArray("schemaVersion=2"),
                       PersistenceReadState::unreadable({Failure::MalformedEnvelope{}})},
        Classification{"noVersion", QByteArray(R"({"payload":{}})"),
                       PersistenceReadState::unreadable({Failure::MalformedEnvelope{}})},
        Classification{"versionAsString", envelope("\"2\"", validSettingsPayload),
                       PersistenceReadState::unreadable({Failure::MalformedEnvelope{}})},
        Classification{"array", QByteArray("[2]"), PersistenceReadState::unreadable({Failure::MalformedEnvelope{}})},
        Classification{"newerVersion", envelope("99", validSettingsPayload),
                       PersistenceReadState::unreadable({Failure::UnsupportedSchemaVersion{99}})},
        Classification{"versionZero", envelope("0", validSettingsPayload),
                       PersistenceReadState::unreadable({Failure::UnsupportedSchemaVersion{0}})},
        Classification{"negativeVersion", envelope("-1", validSettingsPayload),
                       PersistenceReadState::unreadable({Failure::UnsupportedSchemaVersion{-1}})},
        Classification{"missingMember", envelope("2", R"({"alertLeadTime":0,"eligibilityMode":"meetingLike"})"),
                       PersistenceReadState::unreadable({Failure::InvalidPayload{}})},
        Classification{"noPayload", QByteArray(R"({"schemaVersion":2})"),
                       PersistenceReadState::unreadable({Failure::InvalidPayload{}})},
        Classification{"leadTimeTooLong", envelope("2", QByteArray(validSettingsPayload).replace("300", "7200.5")),
                       PersistenceReadState::unreadable({Failure::InvalidPayload{}})}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(PersistenceTexts, FailureMessagesComponentTitlesAndResetConfirmations)
{
    EXPECT_EQ(Failure{Failure::UnsupportedSchemaVersion{99}}.message(),
              u"This record uses unsupported schema version 99. A newer compatible app may be able to read it without "
              u"resetting."_s);
    EXPECT_EQ(Failure{Failure::InvalidStoredType{}}.message(), u"The stored value has an unexpected format."_s);
    EXPECT_EQ(Failure{Failure::MalformedEnvelope{}}.message(), u"The stored record is malformed."_s);
    EXPECT_EQ(Failure{Failure::InvalidPayload{}}.message(),
              u"The record version is recognized, but its contents are invalid."_s);

    struct Expected {
        PersistenceComponent component;
        QString raw, title, key, confirmation;
    };
    const Expected table[] = {
        {PersistenceComponent::settings, u"settings"_s, u"Settings"_s, u"Orvane.settings"_s,
         u"Resetting restores default alert preferences and calendar selection. This overwrites only the unreadable "
         u"settings data and cannot be undone."_s},
        {PersistenceComponent::exclusions, u"exclusions"_s, u"Meeting exclusions"_s, u"Orvane.exclusions"_s,
         u"Resetting removes every exclusion, so previously excluded meetings may alert. This overwrites only the "
         u"unreadable meeting exclusions data and cannot be undone."_s},
        {PersistenceComponent::delivery, u"delivery"_s, u"Reminder history and snoozes"_s, u"Orvane.delivery"_s,
         u"Resetting removes snoozes and reminder history, so reminders may repeat. This overwrites only the "
         u"unreadable reminder history and snoozes data and cannot be undone."_s},
    };
    ASSERT_EQ(allCases<PersistenceComponent>().size(), std::size(table));
    for (std::size_t i = 0; i < std::size(table); ++i) {
        EXPECT_EQ(allCases<PersistenceComponent>()[i], table[i].component);
        EXPECT_EQ(rawValue(table[i].component), table[i].raw);
        EXPECT_EQ(title(table[i].component), table[i].title);
        EXPECT_EQ(recordKey(table[i].component), table[i].key);
        EXPECT_EQ(resetConfirmation(table[i].component), table[i].confirmation);
    }
}

TEST(VersionedRecord, FirstWriteOfAnAbsentRecordIsAtTheCurrentVersion)
{
    TemporaryDefaults defaults;
    SettingsStore store(defaults.database());
    NotifierSettings settings;
    settings.alertLeadTime = 120;
    store.save(settings);
    EXPECT_EQ(store.readState(), PersistenceReadState::loaded(2));
    EXPECT_EQ(defaults.stored(u"Orvane.settings"_s).toByteArray(),
              R"({"schemaVersion":2,"payload":{"alertLeadTime":120,"eligibilityMode":"allTimedEvents",)"
              R"("launchAtLogin":false,"showsOnAllDisplays":false}})");
    EXPECT_EQ(SettingsStore(defaults.database()).settings(), settings);
}

TEST(VersionedRecord, WritesAndResetsAreGuardedByTheReadState)
{
    TemporaryDefaults defaults;
    const QByteArray unreadable = envelope("99", validSettingsPayload);
    defaults.store(u"Orvane.settings"_s, unreadable);
    SettingsStore store(defaults.database());

    try {
        store.save(NotifierSettings{});
        FAIL() << "saved over an unreadable record";
    } catch (const PersistenceStoreError& error) {
        EXPECT_EQ(error, PersistenceStoreError(
                             PersistenceStoreError::RecoveryRequired{{Failure::UnsupportedSchemaVersion{99}}}));
    }
    EXPECT_EQ(defaults.stored(u"Orvane.settings"_s).toByteArray(), unreadable);

    store.resetAfterReadFailure();
    EXPECT_EQ(store.readState(), PersistenceReadState::loaded(2));
    EXPECT_EQ(
        json::decode<VersionedDefaults::Envelope<NotifierSettings>>(defaults.stored(u"Orvane.settings"_s).toByteArray())
            .payload,
        NotifierSettings{});

    EXPECT_THROW(store.resetAfterReadFailure(), PersistenceStoreError);
    TemporaryDefaults empty;
    ExclusionStore absent(empty.database());
    try {
        absent.resetAfterReadFailure();
        FAIL();
    } catch (const PersistenceStoreError& error) {
        EXPECT_EQ(error, PersistenceStoreError(PersistenceStoreError::RecoveryNotRequired{}));
    }
}

TEST(VersionedRecord, OlderVersionsAreRewrittenAtTheCurrentOneOnLoad)
{
    const QByteArray identity = json::serialize(toJson(fixtures::identity(u"external:x"_s)));
    const QByteArray deliveryV1 = R"({"records":[{"identity":)" + identity +
                                  R"(,"triggerDate":700000000,"deliveredAt":700000001}],"snoozes":[]})";

    TemporaryDefaults defaults;
    defaults.store(u"Orvane.settings"_s,
                   envelope("1",
                            R"({"alertLeadTime":60,"enabledCalendarIdentifiers":["b","a","b"],)"
                            R"("eligibilityMode":"allTimedEvents","launchAtLogin":false,"showsOnAllDisplays":false})"));
    defaults.store(u"Orvane.exclusions"_s, envelope("1", "[]"));
    defaults.store(u"Orvane.delivery"_s, envelope("1", deliveryV1));

    const SettingsStore settings(defaults.database());
    const ExclusionStore exclusions(defaults.database());
    const DeliveryStore delivery(defaults.database());
    EXPECT_EQ(settings.readState(), PersistenceReadState::loaded(2));
    EXPECT_EQ(exclusions.readState(), PersistenceReadState::loaded(2));
    EXPECT_EQ(delivery.readState(), PersistenceReadState::loaded(3));

    const QByteArray rewritten = defaults.stored(u"Orvane.settings"_s).toByteArray();
    EXPECT_TRUE(rewritten.startsWith(R"({"schemaVersion":2,"payload":{"alertLeadTime":60,"selectedCalendars":[)"
                                     R"({"calendarIdentifier":"a"},{"calendarIdentifier":"b"}],)"))
        << rewritten.constData();
    EXPECT_TRUE(defaults.stored(u"Orvane.delivery"_s).toByteArray().contains(R"("status":"confirmed")"));
    EXPECT_EQ(delivery.records().at(0).status, DeliveryStatus::confirmed);
}

TEST(VersionedRecord, UpgradeThatCannotReachDiskKeepsTheOldRecordInUse)
{
    TemporaryDefaults defaults;
    const QByteArray old = envelope("2", R"({"records":[],"snoozes":[]})");
    defaults.store(u"Orvane.delivery"_s, old);
    defaults.store(u"Orvane.exclusions"_s, envelope("1", "[]"));
    PersistenceReadState deliveryState, exclusionState;
    {
        const DiskFull full;
        deliveryState = DeliveryStore(defaults.database()).readState();
        exclusionState = ExclusionStore(defaults.database()).readState();
    }
    EXPECT_EQ(deliveryState, PersistenceReadState::loaded(2));
    EXPECT_EQ(exclusionState, PersistenceReadState::loaded(1));
    EXPECT_EQ(defaults.stored(u"Orvane.delivery"_s).toByteArray(), old);
}

TEST(VersionedRecord, WriteThatCannotReachDiskChangesNothingAndLaterWritesWork)
{
    TemporaryDefaults defaults;
    ExclusionStore store(defaults.database());
    const auto first = fixtures::exclusion(fixtures::identity(u"external:a"_s));
    store.add(first);
    const QByteArray before = defaults.fileBytes();

    std::optional<PersistenceStoreError> error;
    {
        const DiskFull full;
        try {
            store.add(fixtures::exclusion(fixtures::identity(u"external:b"_s)));
        } catch (const PersistenceStoreError& thrown) {
            error = thrown;
        }
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, PersistenceStoreError(PersistenceStoreError::WriteFailed{}));
    EXPECT_FALSE(error->description().isEmpty());
    EXPECT_EQ(store.records(), std::vector{first});
    EXPECT_EQ(defaults.fileBytes(), before);
    // Nothing of the failed write lingers in Qt's cache to be written with the next change.
    EXPECT_EQ(ExclusionStore(defaults.database()).records(), std::vector{first});

    store.removeAll();
    EXPECT_TRUE(ExclusionStore(defaults.database()).records().empty());
}

TEST(IdentityMigrations, BadListsChangeNothing)
{
    const auto original = fixtures::identity(u"external:a"_s);
    auto moved = original;
    moved.calendarIdentifier = u"cal-new"_s;
    auto elsewhere = original;
    elsewhere.calendarIdentifier = u"cal-other"_s;
    auto otherSeries = moved;
    otherSeries.seriesIdentifier = u"external:b"_s;
    auto emptyCalendar = original;
    emptyCalendar.calendarIdentifier.clear();

    struct Case {
        const char* name;
        std::vector<CalendarIdentityMigration> migrations;
        std::optional<PersistenceStoreError::Case> error;
    };
    const Case cases[] = {
        {"valid", {{original, moved}}, std::nullopt},
        {"exactRepeat", {{original, moved}, {original, moved}}, std::nullopt},
        {"conflict", {{original, moved}, {original, elsewhere}}, PersistenceStoreError::ConflictingIdentityMigration{}},
        {"unchanged", {{original, original}}, PersistenceStoreError::InvalidIdentityMigration{}},
        {"seriesChanged", {{original, otherSeries}}, PersistenceStoreError::InvalidIdentityMigration{}},
        {"noCalendar", {{original, emptyCalendar}}, PersistenceStoreError::InvalidIdentityMigration{}},
        {"invalidAfterValid", {{original, moved}, {moved, moved}}, PersistenceStoreError::InvalidIdentityMigration{}},
    };
    for (const auto& [name, migrations, expectedError] : cases) {
        TemporaryDefaults defaults;
        ExclusionStore exclusions(defaults.database());
        DeliveryStore delivery(defaults.database());
        exclusions.add(fixtures::exclusion(original));
        delivery.prepareDeliveries(std::vector{DeliveryRecord{original, Date{1}, DeliveryStatus::pending, Date{1}}});
        const QByteArray before = defaults.fileBytes();
        for (const auto apply :
             {+[](ExclusionStore&store, DeliveryStore&, std::span<const CalendarIdentityMigration> m) {
                  store.applyCalendarIdentityMigrations(m);
              },
              +[](ExclusionStore&, DeliveryStore&store, std::span<const CalendarIdentityMigration> m) {
                  store.applyCalendarIdentityMigrations(m);
              }}) {
            if (expectedError) {
                try {
                    apply(exclusions, delivery, migrations);
                    ADD_FAILURE() << name;
                } catch (const PersistenceStoreError& error) {
                    EXPECT_EQ(error.value(), *expectedError) << name;
                }
                EXPECT_EQ(defaults.fileBytes(), before) << name;
            } else {
                apply(exclusions, delivery, migrations);
            }
        }
        const auto expected = expectedError ? original : moved;
        EXPECT_EQ(exclusions.records().at(0).identity, expected) << name;
        EXPECT_EQ(delivery.records().at(0).identity, expected) << name;
    }
}

} // namespace

namespace {

TEST(SettingsDefaultsDatabase, OrphanedLockIsRemovedButALiveOneIsKept)
{
    TemporaryDefaults defaults;
    const QString lockPath = defaults.path() + u".lock"_s;
    {
        QFile orphan(lockPath);
        ASSERT_TRUE(orphan.open(QIODevice::WriteOnly));
    }
    defaults.database().removeOrphanedLock();
    EXPECT_FALSE(QFile::exists(lockPath));

    QLockFile live(lockPath);
    ASSERT_TRUE(live.tryLock());
    defaults.database().removeOrphanedLock();
    EXPECT_TRUE(QFile::exists(lockPath));
}

} // namespace
