// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CalendarIdentityReconciler.h"

#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStore.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/TemporaryDefaults.h"

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orvane;
using Kind = CalendarReconciliationIssue::Kind;

namespace {

const CalendarFingerprint work{CalendarSourceKind::calDAV, u"Nextcloud"_s, u"Work"_s};

CalendarDescriptor calendar(const QString& identifier, const QString& title = u"Work"_s,
                            const QString& sourceIdentifier = u"src-1"_s)
{
    return {.identifier = identifier,
            .title = title,
            .sourceIdentifier = sourceIdentifier,
            .sourceTitle = u"Nextcloud"_s,
            .sourceKind = CalendarSourceKind::calDAV};
}

/// Each calendar in a group of its own: grouping does not matter to reconciliation.
CalendarSnapshot listing(const std::vector<CalendarDescriptor>& calendars, bool complete = true)
{
    CalendarSnapshot snapshot{{}, complete};
    for (const auto& each : calendars) {
        snapshot.groups.push_back({each.sourceIdentifier, each.sourceTitle, each.sourceKind, {each}});
    }
    return snapshot;
}

MeetingIdentity on(const QString& calendarIdentifier, const QString& series = u"external:standup"_s)
{
    return fixtures::identity(series, 700'000'000, calendarIdentifier);
}

/// The three real stores over one settings file, reopened at will as the next launch would read them.
struct Harness {
    TemporaryDefaults defaults;
    CalendarSnapshot snapshot;
    int issueAnnouncements = 0;
    std::unique_ptr<SettingsStore> settings;
    std::unique_ptr<ExclusionStore> exclusions;
    std::unique_ptr<DeliveryStore> delivery;
    std::unique_ptr<CalendarIdentityReconciler> reconciler;

    Harness() { reopen(); }

    void reopen()
    {
        reconciler.reset();
        settings = std::make_unique<SettingsStore>(defaults.database());
        exclusions = std::make_unique<ExclusionStore>(defaults.database());
        delivery = std::make_unique<DeliveryStore>(defaults.database());
        reconciler = std::make_unique<CalendarIdentityReconciler>(*settings, *exclusions, *delivery,
                                                                  [this] { return snapshot; });
        reconciler->setIssuesChanged([this] { ++issueAnnouncements; });
    }
    void select(std::vector<CalendarSelectionRecord> records)
    {
        NotifierSettings value;
        value.selectedCalendars = std::move(records);
        settings->save(value);
    }
    void remember(const MeetingIdentity& shown)
    {
        const DeliveryKey key{shown, Date{700'000'000}};
        delivery->prepareDeliveries(std::vector{DeliveryRecord{shown, key.triggerDate, {}, key.triggerDate}});
        delivery->confirmDeliveries(std::vector{key}, key.triggerDate);
    }
    void reconcile(std::vector<MeetingOccurrence> fetched = {}) { reconciler->reconcile(fetched); }
    const std::vector<CalendarReconciliationIssue>& issues() const { return reconciler->issues(); }
};

TEST(CalendarIdentityReconciler, RecreatedCalendarTakesEveryRecordKindAlongInOneWrite)
{
    Harness h;
    const CalendarFingerprint home{CalendarSourceKind::calDAV, u"Nextcloud"_s, u"Home"_s};
    // The user had already ticked the new calendar too: it must not end up selected twice.
    h.select({{u"cal-old"_s, work}, {u"cal-home"_s, home}, {u"cal-new"_s, std::nullopt}});
    const auto excluded = fixtures::exclusion(on(u"cal-old"_s));
    h.exclusions->add(excluded);
    h.remember(on(u"cal-old"_s));
    h.delivery->setSnoozes(std::vector{SnoozeRecord{on(u"cal-old"_s, u"external:review"_s), Date{1}, Date{0}}});
    // The account was removed and added again: new source and calendar identifiers, same names.
    h.snapshot = listing({calendar(u"cal-new"_s, u"Work"_s, u"src-2"_s), calendar(u"cal-home"_s, u"Home"_s)});

    h.reconcile();
    h.reopen();
    auto moved = [](MeetingIdentity identity) {
        identity.calendarIdentifier = u"cal-new"_s;
        identity.sourceIdentifier = u"src-2"_s;
        return identity;
    };
    EXPECT_EQ(*h.settings->settings().selectedCalendars,
              (std::vector<CalendarSelectionRecord>{{u"cal-new"_s, work}, {u"cal-home"_s, home}}));
    auto expectedExclusion = excluded;
    expectedExclusion.identity = moved(excluded.identity);
    EXPECT_EQ(h.exclusions->records(), std::vector{expectedExclusion});
    EXPECT_TRUE(h.delivery->hasDelivered(moved(on(u"cal-old"_s)), Date{700'000'000}));
    EXPECT_TRUE(h.delivery->snoozeRecord(moved(on(u"cal-old"_s, u"external:review"_s))));
    EXPECT_FALSE(h.defaults.fileBytes().contains("cal-old"));
    EXPECT_TRUE(h.issues().empty());

    // Everything is up to date now: a second pass must not even try to write.
    const QByteArray settled = h.defaults.fileBytes();
    {
        const DiskFull full;
        EXPECT_NO_THROW(h.reconcile());
    }
    EXPECT_EQ(h.defaults.fileBytes(), settled);
}

TEST(CalendarIdentityReconciler, ChoicesThatCannotBeReattachedStayAndAreReported)
{
    const CalendarFingerprint blank{CalendarSourceKind::calDAV, u"Nextcloud"_s, u" \n"_s};
    const struct {
        const char* name;
        std::optional<CalendarFingerprint> stored;
        std::vector<CalendarDescriptor> now;
        Kind kind;
    } cases[] = {
        {"recorded without a fingerprint", std::nullopt, {calendar(u"cal-new"_s)}, Kind::missingCalendar},
        {"blank title", blank, {calendar(u"cal-new"_s, u" \n"_s)}, Kind::missingCalendar},
        {"nothing looks like it", work, {calendar(u"cal-home"_s, u"Home"_s)}, Kind::missingCalendar},
        {"two look-alikes in one account", work, {calendar(u"cal-a"_s), calendar(u"cal-b"_s)}, Kind::ambiguousCalendar},
    };
    for (const auto& c : cases) {
        Harness h;
        h.select({{u"cal-old"_s, c.stored}});
        for (const auto& series : {u"external:a"_s, u"external:b"_s}) {
            auto excluded = on(u"cal-old"_s, series);
            excluded.calendarFingerprint = c.stored;
            h.exclusions->add(fixtures::exclusion(excluded));
            h.remember(excluded);
        }
        h.snapshot = listing(c.now);
        const QByteArray before = h.defaults.fileBytes();

        h.reconcile();
        EXPECT_EQ(h.defaults.fileBytes(), before) << c.name;
        ASSERT_EQ(h.issues().size(), 2U) << c.name;
        const auto& selection = h.issues()[0];
        const auto& exclusions = h.issues()[1];
        EXPECT_EQ(selection.component, PersistenceComponent::settings) << c.name;
        EXPECT_EQ(exclusions.component, PersistenceComponent::exclusions) << c.name;
        for (const auto& issue : h.issues()) {
            EXPECT_EQ(issue.kind, c.kind) << c.name;
            EXPECT_EQ(issue.calendarIdentifier, u"cal-old"_s) << c.name;
            EXPECT_EQ(issue.fingerprint, c.stored) << c.name;
            EXPECT_EQ(issue.title, u"Calendar data needs review"_s) << c.name;
        }
        EXPECT_EQ(selection.recordCount, 1) << c.name;
        EXPECT_EQ(exclusions.recordCount, 2) << c.name;
    }
}

TEST(CalendarIdentityReconciler, FirstVersionSelectionGetsItsFingerprints)
{
    Harness h;
    h.defaults.store(u"Orvane.settings"_s,
                     QByteArray(R"({"schemaVersion":1,"payload":{"alertLeadTime":300,"enabledCalendarIdentifiers":)"
                                R"(["cal-work","cal-gone"],"eligibilityMode":"allTimedEvents","launchAtLogin":false,)"
                                R"("showsOnAllDisplays":false}})"));
    h.reopen();
    h.snapshot = listing({calendar(u"cal-work"_s)});
    h.reconcile();
    h.reopen();
    EXPECT_EQ(*h.settings->settings().selectedCalendars,
              (std::vector<CalendarSelectionRecord>{{u"cal-gone"_s, std::nullopt}, {u"cal-work"_s, work}}));
    EXPECT_EQ(h.settings->settings().alertLeadTime, 300);
}

TEST(CalendarIdentityReconciler, LookAlikeCalendarMakesStoredIdentitiesNonUniqueAndStopsTheirMigration)
{
    Harness h;
    h.exclusions->add(fixtures::exclusion(on(u"cal-work"_s)));
    h.remember(on(u"cal-work"_s));
    h.snapshot = listing({calendar(u"cal-work"_s), calendar(u"cal-work-2"_s)});
    auto fresh = fixtures::meeting(u"external:standup"_s, 700'000'000, 30, u"cal-work"_s);
    fresh.identity.calendarFingerprintIsUnique = false;

    h.reconcile({fresh});
    EXPECT_EQ(h.exclusions->records().at(0).identity, fresh.identity);
    EXPECT_TRUE(h.delivery->hasDelivered(fresh.identity, Date{700'000'000}));

    // The original is deleted: the survivor may be the other calendar, so nothing moves.
    h.snapshot = listing({calendar(u"cal-work-2"_s)});
    h.reconcile();
    EXPECT_EQ(h.exclusions->records().at(0).identity, fresh.identity);
    ASSERT_EQ(h.issues().size(), 1U);
    EXPECT_EQ(h.issues()[0].kind, Kind::ambiguousCalendar);
    EXPECT_EQ(h.issues()[0].message,
              u"One exclusion belongs to the calendar “Work” of Nextcloud, which is no longer found under its old "
              u"identity, and more than one calendar now looks like it, so meetings you excluded may alert again. "
              u"Remove these exclusions in Settings, and exclude the meetings again if they alert."_s);
}

TEST(CalendarIdentityReconciler, IdentitiesTakeTheValuesFreshOccurrencesCarry)
{
    // The same account is also seen through a second source; the local one judges uniqueness among its own.
    Harness h;
    auto stored = on(u"cal-work"_s);
    stored.sourceIdentifier.clear();
    h.remember(stored);
    h.snapshot = listing({calendar(u"cal-work"_s), calendar(u"remote-work"_s, u"Work"_s, u"remote"_s)});
    const auto fresh = fixtures::meeting(u"external:standup"_s, 700'000'000, 30, u"cal-work"_s);
    h.reconcile({fresh});
    EXPECT_TRUE(h.delivery->hasDelivered(fresh.identity, Date{700'000'000}));
}

TEST(CalendarIdentityReconciler, IncompleteSnapshotChangesNothing)
{
    Harness h;
    h.exclusions->add(fixtures::exclusion(on(u"cal-old"_s)));
    h.snapshot = listing({});
    h.reconcile();
    ASSERT_EQ(h.issues().size(), 1U);
    const QByteArray before = h.defaults.fileBytes();

    for (const auto& partial : {listing({}, false), listing({calendar(u"cal-new"_s)}, false)}) {
        h.snapshot = partial;
        h.reconcile();
        EXPECT_EQ(h.defaults.fileBytes(), before);
        EXPECT_EQ(h.issues().size(), 1U);
    }
    EXPECT_EQ(h.issueAnnouncements, 1);
}

TEST(CalendarIdentityReconciler, StoreFailureChangesNothingAndPropagates)
{
    const std::pair<const char*, QString> unreadable[] = {{"settings", u"Orvane.settings"_s},
                                                          {"exclusions", u"Orvane.exclusions"_s},
                                                          {"delivery", u"Orvane.delivery"_s},
                                                          {"disk full", {}}};
    for (const auto& [name, key] : unreadable) {
        Harness h;
        h.select({{u"cal-old"_s, work}});
        h.exclusions->add(fixtures::exclusion(on(u"cal-old"_s)));
        h.exclusions->add(fixtures::exclusion(on(u"cal-gone"_s, u"external:x"_s)));
        h.remember(on(u"cal-old"_s));
        if (!key.isEmpty()) {
            h.defaults.store(key, QByteArray("garbage"));
            h.reopen();
        }
        h.snapshot = listing({calendar(u"cal-new"_s)});
        const QByteArray before = h.defaults.fileBytes();
        const auto settingsBefore = h.settings->settings();
        const auto exclusionsBefore = h.exclusions->records();
        const auto deliveriesBefore = h.delivery->records();
        try {
            // A full disk only where the write itself is meant to fail: elsewhere it would hide a write attempt.
            std::optional<DiskFull> full;
            if (key.isEmpty()) {
                full.emplace();
            }
            h.reconcile();
            ADD_FAILURE() << name << ": no error";
        } catch (const PersistenceStoreError& error) {
            EXPECT_EQ(std::holds_alternative<PersistenceStoreError::RecoveryRequired>(error.value()), !key.isEmpty())
                << name;
        }
        EXPECT_EQ(h.defaults.fileBytes(), before) << name;
        EXPECT_EQ(h.settings->settings(), settingsBefore) << name;
        EXPECT_EQ(h.exclusions->records(), exclusionsBefore) << name;
        EXPECT_EQ(h.delivery->records(), deliveriesBefore) << name;
        EXPECT_TRUE(h.issues().empty()) << name;
        EXPECT_EQ(h.issueAnnouncements, 0) << name;
    }
}

TEST(CalendarIdentityReconciler, IssuesAreAnnouncedOnlyWhenTheyChange)
{
    Harness h;
    h.exclusions->add(fixtures::exclusion(on(u"cal-old"_s)));
    h.snapshot = listing({});
    const struct {
        std::function<void()> change;
        int announcements;
        std::size_t issues;
    } steps[] = {
        {[] {}, 1, 1},
        {[] {}, 1, 1},
        {[&] { h.exclusions->add(fixtures::exclusion(on(u"cal-old"_s, u"external:b"_s))); }, 2, 1},
        {[&] { h.snapshot = listing({calendar(u"cal-new"_s)}); }, 3, 0},
        {[] {}, 3, 0},
    };
    for (std::size_t step = 0; step < std::size(steps); ++step) {
        steps[step].change();
        h.reconcile();
        EXPECT_EQ(h.issueAnnouncements, steps[step].announcements) << step;
        EXPECT_EQ(h.issues().size(), steps[step].issues) << step;
    }
}

} // namespace
