// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStore.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;
using namespace orvane;
using fixtures::identity;

namespace {

PersistenceStoreError::Case errorOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const PersistenceStoreError& error) {
        return error.value();
    }
    ADD_FAILURE() << "no error";
    return PersistenceStoreError::EncodingFailed{};
}

TEST(SettingsStore, AbsentRecordGivesDefaults)
{
    TemporaryDefaults defaults;
    const SettingsStore store(defaults.database());
    EXPECT_EQ(store.readState(), PersistenceReadState::absent());
    EXPECT_EQ(store.settings().alertLeadTime, 0);
    EXPECT_EQ(store.settings().selectedCalendars, std::nullopt);
    EXPECT_EQ(store.settings().eligibilityMode, EligibilityMode::allTimedEvents);
    EXPECT_FALSE(store.settings().launchAtLogin);
    EXPECT_FALSE(store.settings().showsOnAllDisplays);
    EXPECT_FALSE(defaults.stored(u"Orvane.settings"_s).isValid());
}

TEST(SettingsStore, LeadTimeThatCouldNotBeReadBackIsNeverSaved)
{
    TemporaryDefaults defaults;
    SettingsStore store(defaults.database());
    for (const double leadTime :
         {7200.5, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        NotifierSettings settings;
        settings.alertLeadTime = leadTime;
        EXPECT_TRUE(std::holds_alternative<PersistenceStoreError::EncodingFailed>(errorOf([&] {
            store.save(settings);
        }))) << leadTime;
    }
    EXPECT_EQ(store.readState(), PersistenceReadState::absent());
    NotifierSettings longest;
    longest.alertLeadTime = 7200;
    store.save(longest);
    EXPECT_EQ(SettingsStore(defaults.database()).settings().alertLeadTime, 7200);
}

DeliveryRecord pending(const MeetingIdentity& meeting, double trigger)
{
    return {meeting, Date{trigger}, DeliveryStatus::pending, Date{trigger}};
}

TEST(DeliveryStore, BookkeepingOfPendingAndConfirmedAlerts)
{
    TemporaryDefaults defaults;
    DeliveryStore store(defaults.database());
    const auto a = identity(u"external:a"_s), b = identity(u"external:b"_s);

    store.prepareDeliveries(std::vector{pending(a, 100), pending(b, 100), pending(a, 100)});
    ASSERT_EQ(store.records().size(), 2U);
    EXPECT_FALSE(store.hasDelivered(a, Date{100}));

    store.confirmDeliveries(std::vector{DeliveryKey{a, Date{100}}}, Date{130});
    EXPECT_TRUE(store.hasDelivered(a, Date{100}));
    EXPECT_FALSE(store.hasDelivered(a, Date{99}));
    EXPECT_FALSE(store.hasDelivered(b, Date{100}));
    EXPECT_EQ(store.records().at(0).deliveredAt, Date{130});

    // A confirmed alert is never turned back into a pending one.
    store.prepareDeliveries(std::vector{pending(a, 100)});
    EXPECT_TRUE(store.hasDelivered(a, Date{100}));

    store.discardPendingDeliveries(std::vector{DeliveryKey{a, Date{100}}, DeliveryKey{b, Date{100}}});
    ASSERT_EQ(store.records().size(), 1U);
    EXPECT_EQ(store.records().at(0).identity, a);

    // Shown although its pending record was gone: still remembered.
    store.confirmDeliveries(std::vector{DeliveryKey{b, Date{200}}}, Date{201});
    EXPECT_TRUE(store.hasDelivered(b, Date{200}));

    const DeliveryStore reloaded(defaults.database());
    EXPECT_EQ(reloaded.records(), store.records());
    EXPECT_EQ(reloaded.readState(), PersistenceReadState::loaded(3));
}

TEST(DeliveryStore, LoadingKeepsTheFirstRecordOfEachKeyAndReadsMissingStatusAsConfirmed)
{
    const auto a = identity(u"external:a"_s);
    const QByteArray record = R"({"identity":)" + json::serialize(toJson(a)) + R"(,"triggerDate":100,"deliveredAt":)";
    TemporaryDefaults defaults;
    defaults.store(u"Orvane.delivery"_s, QByteArray(R"({"schemaVersion":3,"payload":{"records":[)") + record +
                                             R"(101},)" + record + R"(102,"status":"pending"}],"snoozes":[]}})");
    const DeliveryStore store(defaults.database());
    ASSERT_EQ(store.records().size(), 1U);
    EXPECT_EQ(store.records().at(0).status, DeliveryStatus::confirmed);
    EXPECT_EQ(store.records().at(0).deliveredAt, Date{101});
}

TEST(DeliveryStore, SnoozesAreOnePerMeeting)
{
    TemporaryDefaults defaults;
    DeliveryStore store(defaults.database());
    const auto a = identity(u"external:a"_s), b = identity(u"external:b"_s), c = identity(u"external:c"_s);
    store.setSnoozes(std::vector{SnoozeRecord{a, Date{60}, Date{0}}, SnoozeRecord{b, Date{300}, Date{0}},
                                 SnoozeRecord{a, Date{120}, Date{1}}});
    ASSERT_EQ(store.snoozes().size(), 2U);
    EXPECT_EQ(store.snoozeRecord(a)->snoozedUntil, Date{120});
    EXPECT_EQ(store.snoozeRecord(c), std::nullopt);

    store.clearSnooze(a);
    EXPECT_EQ(store.snoozeRecord(a), std::nullopt);
    store.setSnoozes(std::vector{SnoozeRecord{a, Date{60}, Date{0}}, SnoozeRecord{c, Date{60}, Date{0}}});
    store.clearSnoozes(std::vector{a, b});
    EXPECT_EQ(store.snoozes(), (std::vector{SnoozeRecord{c, Date{60}, Date{0}}}));
}

TEST(DeliveryStore, PruneKeepsEverythingAtOrAfterTheCutOffs)
{
    TemporaryDefaults defaults;
    DeliveryStore store(defaults.database());
    const auto a = identity(u"external:a"_s), b = identity(u"external:b"_s);
    store.prepareDeliveries(std::vector{pending(a, 99), pending(a, 100), pending(b, 101)});
    store.setSnoozes(std::vector{SnoozeRecord{a, Date{49.5}, Date{0}}, SnoozeRecord{b, Date{50}, Date{0}}});
    store.prune(Date{100}, Date{50});
    ASSERT_EQ(store.records().size(), 2U);
    EXPECT_EQ(store.records().at(0).triggerDate, Date{100});
    EXPECT_EQ(store.records().at(1).triggerDate, Date{101});
    EXPECT_EQ(store.snoozes(), (std::vector{SnoozeRecord{b, Date{50}, Date{0}}}));
}

TEST(DeliveryStore, RemovesTheStateOfWholeIdentitiesOnly)
{
    TemporaryDefaults defaults;
    DeliveryStore store(defaults.database());
    const auto a = identity(u"external:a"_s), aLater = identity(u"external:a"_s, 700'086'400);
    store.prepareDeliveries(std::vector{pending(a, 1), pending(aLater, 2)});
    store.setSnoozes(std::vector{SnoozeRecord{a, Date{5}, Date{0}}, SnoozeRecord{aLater, Date{5}, Date{0}}});
    store.removePersistedState({a});
    EXPECT_EQ(store.records(), std::vector{pending(aLater, 2)});
    EXPECT_EQ(store.snoozes(), (std::vector{SnoozeRecord{aLater, Date{5}, Date{0}}}));
}

TEST(DeliveryStore, MigrationThatMergesTwoIdentitiesKeepsOneRecordPerKey)
{
    TemporaryDefaults defaults;
    DeliveryStore store(defaults.database());
    const auto old = identity(u"external:a"_s, 700'000'000, u"cal-old"_s);
    const auto current = identity(u"external:a"_s, 700'000'000, u"cal-new"_s);
    store.prepareDeliveries(std::vector{pending(old, 1), pending(current, 1)});
    store.confirmDeliveries(std::vector{DeliveryKey{old, Date{1}}}, Date{2});
    store.setSnoozes(std::vector{SnoozeRecord{old, Date{5}, Date{0}}});
    store.applyCalendarIdentityMigrations(std::vector{CalendarIdentityMigration{old, current}});
    ASSERT_EQ(store.records().size(), 1U);
    EXPECT_TRUE(store.hasDelivered(current, Date{1}));
    EXPECT_EQ(store.snoozeRecord(current)->snoozedUntil, Date{5});
}

TEST(ExclusionStore, AddRemoveAndQuery)
{
    TemporaryDefaults defaults;
    ExclusionStore store(defaults.database());
    const auto series = fixtures::exclusion(identity(u"external:weekly"_s));
    const auto once = fixtures::exclusion(identity(u"local:lunch"_s), ExclusionScope::occurrence);
    store.add(series);
    store.add(once);

    const auto nextWeek = identity(u"external:weekly"_s, 700'604'800);
    const auto movedCalendar = identity(u"external:weekly"_s, 700'604'800, u"cal-renamed"_s);
    auto movedLocal = identity(u"local:lunch"_s, 700'000'000, u"cal-renamed"_s);
    EXPECT_TRUE(store.isExcluded(nextWeek));
    EXPECT_TRUE(store.isExcluded(movedCalendar));
    EXPECT_TRUE(store.isExcluded(identity(u"local:lunch"_s)));
    EXPECT_FALSE(store.isExcluded(identity(u"local:lunch"_s, 700'086'400)));
    EXPECT_FALSE(store.isExcluded(movedLocal));

    const ExclusionStore reloaded(defaults.database());
    EXPECT_EQ(reloaded.records(), (std::vector{series, once}));
    EXPECT_TRUE(reloaded.isExcluded(nextWeek));

    store.remove({series.id, QUuid::createUuid()});
    EXPECT_EQ(store.records(), std::vector{once});
    EXPECT_FALSE(store.isExcluded(nextWeek));
    store.removeAll();
    EXPECT_TRUE(ExclusionStore(defaults.database()).records().empty());
}

struct Batch {
    TemporaryDefaults defaults;
    SettingsStore settings{defaults.database()};
    ExclusionStore exclusions{defaults.database()};
    DeliveryStore delivery{defaults.database()};
    MeetingIdentity old = identity(u"external:a"_s, 700'000'000, u"cal-old"_s);
    MeetingIdentity current = identity(u"external:a"_s, 700'000'000, u"cal-new"_s);

    Batch()
    {
        exclusions.add(fixtures::exclusion(old));
        delivery.prepareDeliveries(std::vector{pending(old, 1)});
    }

    AtomicStoreBatch reconciliation() const
    {
        NotifierSettings moved;
        moved.selectedCalendars = std::vector{CalendarSelectionRecord{u"cal-new"_s, std::nullopt}};
        return {moved, {{old, current}}};
    }
};

TEST(AtomicStoreBatch, AllRecordsChangeTogether)
{
    Batch batch;
    batch.exclusions.applyAtomicBatch(batch.reconciliation(), batch.settings, batch.delivery);
    for (const auto* state : {&batch.settings.readState(), &batch.exclusions.readState()}) {
        EXPECT_FALSE(state->isUnreadable());
    }
    const SettingsStore settings(batch.defaults.database());
    const ExclusionStore exclusions(batch.defaults.database());
    const DeliveryStore delivery(batch.defaults.database());
    EXPECT_EQ(settings.settings().selectedCalendars->at(0).calendarIdentifier, u"cal-new"_s);
    EXPECT_EQ(exclusions.records().at(0).identity, batch.current);
    EXPECT_EQ(delivery.records().at(0).identity, batch.current);
}

TEST(AtomicStoreBatch, AnyRefusalOrWriteFailureChangesNothing)
{
    const std::vector<std::pair<const char*, std::function<void(Batch&)>>> failures = {
        {"disk full",
         [](Batch& batch) {
             const DiskFull full;
             batch.exclusions.applyAtomicBatch(batch.reconciliation(), batch.settings, batch.delivery);
         }},
        {"unreadable delivery record",
         [](Batch& batch) {
             batch.defaults.store(u"Orvane.delivery"_s, QByteArray("garbage"));
             DeliveryStore unreadable(batch.defaults.database());
             batch.exclusions.applyAtomicBatch(batch.reconciliation(), batch.settings, unreadable);
         }},
        {"invalid migration",
         [](Batch& batch) {
             auto bad = batch.reconciliation();
             bad.identityMigrations.push_back({batch.old, batch.old});
             batch.exclusions.applyAtomicBatch(bad, batch.settings, batch.delivery);
         }},
        {"another database",
         [](Batch& batch) {
             TemporaryDefaults other;
             SettingsStore foreign(other.database());
             batch.exclusions.applyAtomicBatch(batch.reconciliation(), foreign, batch.delivery);
         }},
    };
    for (const auto& [name, fail] : failures) {
        Batch batch;
        const QByteArray settingsBefore = batch.defaults.stored(u"Orvane.settings"_s).toByteArray();
        const QByteArray exclusionsBefore = batch.defaults.stored(u"Orvane.exclusions"_s).toByteArray();
        EXPECT_THROW(fail(batch), PersistenceStoreError) << name;
        EXPECT_EQ(batch.defaults.stored(u"Orvane.settings"_s).toByteArray(), settingsBefore) << name;
        EXPECT_EQ(batch.defaults.stored(u"Orvane.exclusions"_s).toByteArray(), exclusionsBefore) << name;
        EXPECT_EQ(batch.exclusions.records().at(0).identity, batch.old) << name;
        EXPECT_EQ(batch.settings.settings(), NotifierSettings{}) << name;
        EXPECT_EQ(batch.delivery.records().at(0).identity, batch.old) << name;
    }
}

TEST(AtomicStoreBatch, StoresWithoutBatchSupportSayso)
{
    struct InMemoryExclusions : ExclusionStoring {
        ExclusionMatcher none;
        PersistenceReadState state;
        const std::vector<ExclusionRecord>& records() const override { return none.records(); }
        const ExclusionMatcher& matcher() const override { return none; }
        const PersistenceReadState& readState() const override { return state; }
        void add(const ExclusionRecord&) override {}
        void remove(const QSet<QUuid>&) override {}
        void removeAll() override {}
        void applyCalendarIdentityMigrations(std::span<const CalendarIdentityMigration>) override {}
        void resetAfterReadFailure() override {}
    };
    Batch batch;
    InMemoryExclusions inMemory;
    EXPECT_TRUE(std::holds_alternative<PersistenceStoreError::AtomicBatchUnsupported>(
        errorOf([&] { inMemory.applyAtomicBatch(batch.reconciliation(), batch.settings, batch.delivery); })));
}

} // namespace
