// SPDX-License-Identifier: GPL-3.0-or-later
#include "SettingsFixtures.h"
#include "support/QtPrinters.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/StatusMenuViewModel.h"

#include <gtest/gtest.h>

using namespace settingsfixtures;
using Section = SettingsViewModel::Section;
using Status = LaunchAtLoginService::Status;

namespace {

struct Harness {
    FakeSettingsModel model;
    ScriptedLaunchService service;
    LaunchAtLoginController launchAtLogin{service};
    SettingsViewModel settings{model, launchAtLogin};
};

QStringList column(const QVariantList& rows, const QString& key)
{
    QStringList values;
    for (const auto& row : rows) {
        values.append(row.toMap().value(key).toString());
    }
    return values;
}

TEST(SettingsViewModelTest, TheMenuIsListedFirstAndOnlyWhileNoTrayShowsIt)
{
    Harness h;
    StatusMenuViewModel menu({});
    h.settings.setStatusMenu(&menu);
    h.settings.open(Section::menu);
    EXPECT_EQ(h.settings.section(), Section::general) << "the tray has the menu";
    menu.setNeeded(true);
    EXPECT_EQ(column(h.settings.sectionList(), u"title"_s).front(), u"Menu"_s);
    h.settings.open(Section::menu);
    EXPECT_EQ(h.settings.section(), Section::menu);
    menu.setNeeded(false);
    EXPECT_EQ(h.settings.section(), Section::general) << "a tray appeared and took the menu over";
    EXPECT_FALSE(column(h.settings.sectionList(), u"title"_s).contains(u"Menu"_s));
    h.settings.setSectionIndex(static_cast<int>(Section::menu));
    EXPECT_EQ(h.settings.section(), Section::general);
}

TEST(SettingsViewModelTest, LeadTimeIsShownInMinutesAndStoredInSeconds)
{
    Harness h;
    EXPECT_EQ(SettingsViewModel::maximumLeadTimeMinutes(), 120);
    const struct {
        double stored;
        int minutes;
        QString summary;
    } shown[] = {
        {0, 0, u"Alerts appear at the start time."_s},
        {60, 1, u"Alerts appear 1 minute before the start."_s},
        {90, 2, u"Alerts appear 2 minutes before the start."_s},
        {7200, 120, u"Alerts appear 120 minutes before the start."_s},
    };
    for (const auto& row : shown) {
        h.model.stored.alertLeadTime = row.stored;
        EXPECT_EQ(h.settings.leadTimeMinutes(), row.minutes) << row.stored;
        EXPECT_EQ(h.settings.leadTimeSummary(), row.summary);
    }
    // Out of range reaches the model, whose refusal the user sees; the stored value stays.
    const struct {
        int minutes;
        double sent;
        int shownAfter;
    } set[] = {{15, 900, 15}, {0, 0, 0}, {120, 7200, 120}, {121, 7260, 120}, {-1, -60, 120}};
    for (const auto& row : set) {
        h.settings.setLeadTimeMinutes(row.minutes);
        EXPECT_EQ(h.model.leadTimes.back(), row.sent);
        EXPECT_EQ(h.settings.leadTimeMinutes(), row.shownAfter) << row.minutes;
    }
}

TEST(SettingsViewModelTest, EligibilityModeSwitchesBetweenTheTwoChoices)
{
    Harness h;
    EXPECT_EQ(h.settings.eligibilityOptions(), (QStringList{u"All timed events"_s, u"Meeting-like only"_s}));
    EXPECT_TRUE(h.settings.texts().value(u"eligibilityExplanation"_s).toString().contains(u"attendee"_s));
    const std::pair<int, EligibilityMode> steps[] = {
        {1, EligibilityMode::meetingLike},
        {2, EligibilityMode::meetingLike}, // no such choice
        {0, EligibilityMode::allTimedEvents},
        {-1, EligibilityMode::allTimedEvents},
    };
    for (const auto& [index, mode] : steps) {
        h.settings.setEligibilityModeIndex(index);
        EXPECT_EQ(h.model.stored.eligibilityMode, mode) << index;
        EXPECT_EQ(h.settings.eligibilityModeIndex(), mode == EligibilityMode::meetingLike ? 1 : 0);
    }
}

TEST(SettingsViewModelTest, LaunchAtLoginSwitchFollowsTheController)
{
    const struct {
        Status status;
        bool on;
        bool available;
        QString note;
    } states[] = {
        {Status::notRegistered, false, true, QString()},
        {Status::notFound, false, true, QString()},
        {Status::enabled, true, true, QString()},
        {Status::requiresApproval, true, true, LaunchAtLoginController::approvalNote()},
        {Status::unknown, false, false, LaunchAtLoginController::unavailableNote()},
    };
    for (const auto& row : states) {
        SCOPED_TRACE(static_cast<int>(row.status));
        Harness h;
        int changes = 0;
        QObject::connect(&h.settings, &SettingsViewModel::changed, [&] { ++changes; });
        h.service.current = row.status;
        Q_EMIT h.service.statusChanged();
        EXPECT_EQ(changes, row.status == Status::notRegistered || row.status == Status::notFound ? 0 : 1);
        EXPECT_EQ(h.settings.launchAtLoginOn(), row.on);
        EXPECT_EQ(h.settings.launchAtLoginAvailable(), row.available);
        EXPECT_EQ(h.settings.launchAtLoginNote(), row.note);

        // Switching registers with the session and records the choice; unavailable, the switch does nothing.
        h.settings.setLaunchAtLogin(!row.on);
        EXPECT_EQ(h.model.stored.launchAtLogin, row.available && !row.on);
        EXPECT_EQ(h.settings.launchAtLoginOn(), row.available ? !row.on : row.on);
        EXPECT_EQ(h.settings.launchAtLoginError(), QString());
    }

    Harness h;
    h.service.fails = true;
    h.settings.setLaunchAtLogin(true);
    EXPECT_FALSE(h.settings.launchAtLoginOn());
    EXPECT_TRUE(h.settings.launchAtLoginError().contains(u"Permission denied"_s))
        << h.settings.launchAtLoginError().toStdString();
}

TEST(SettingsViewModelTest, CalendarSwitchesStoreTheSelectionAtOnce)
{
    Harness h;
    fill(h.model);
    const QVariantList groups = h.settings.calendarGroupList();
    EXPECT_EQ(column(groups, u"title"_s), (QStringList{u"On This Computer"_s, u"alex@example.com"_s}));
    EXPECT_EQ(column(groups[0].toMap().value(u"calendars"_s).toList(), u"selected"_s),
              (QStringList{u"true"_s, u"false"_s}));

    using Stored = std::optional<QStringList>;
    const struct {
        std::function<void()> action;
        QString counter;
        Stored stored;
    } steps[] = {
        {[] {}, u"3 of 4 selected"_s, QStringList{u"home"_s, u"team events"_s, u"work"_s}},
        {[&] { h.settings.setCalendarSelected(u"work"_s, false); }, u"2 of 4 selected"_s,
         QStringList{u"home"_s, u"team events"_s}},
        {[&] { h.settings.clearSelection(); }, u"0 of 4 selected"_s, QStringList{}},
        {[&] { h.settings.setCalendarSelected(u"birthdays"_s, true); }, u"1 of 4 selected"_s,
         QStringList{u"birthdays"_s}},
        // Everything, including calendars that appear later: no selection is stored at all.
        {[&] { h.settings.selectAll(); }, u"4 of 4 selected"_s, std::nullopt},
        {[&] { h.settings.setCalendarSelected(u"home"_s, false); }, u"3 of 4 selected"_s,
         QStringList{u"birthdays"_s, u"team events"_s, u"work"_s}},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        steps[i].action();
        EXPECT_EQ(h.settings.selectionCounter(), steps[i].counter) << i;
        Stored stored;
        if (h.model.stored.selectedCalendars) {
            stored.emplace();
            for (const auto& record : *h.model.stored.selectedCalendars) {
                stored->append(record.calendarIdentifier);
            }
        }
        EXPECT_EQ(stored, steps[i].stored) << i;
    }
    h.settings.refresh();
    EXPECT_EQ(h.model.refreshes, 1);
}

TEST(SettingsViewModelTest, SourceProblemsSayWhatTheUserCanDo)
{
    Harness h;
    fill(h.model);
    h.model.healthIssues.push_back({CalendarSourceHealthIssue::Local{}, u"Desktop calendars"_s,
                                    u"The calendar could not be read."_s, false,
                                    CalendarSourceHealthIssue::Calendar{u"old"_s, u"Old account"_s}});
    h.model.reconciliationIssues.push_back(
        {.title = u"Calendar data needs review"_s, .message = u"Alerts were on for Work, which is gone."_s});
    const QVariantList issues = h.settings.sourceHealthIssueList();
    EXPECT_EQ(column(issues, u"name"_s),
              (QStringList{u"alex@contoso.com (Outlook)"_s, u"Calendar “Old account” of Desktop calendars"_s}));
    EXPECT_EQ(column(issues, u"reconnect"_s), (QStringList{u"true"_s, u"false"_s}));
    const QStringList actions = column(issues, u"action"_s);
    EXPECT_TRUE(actions[0].contains(u"Connected accounts"_s)) << actions[0].toStdString();
    EXPECT_TRUE(actions[1].contains(u"Refresh"_s)) << actions[1].toStdString();
    EXPECT_EQ(column(h.settings.reconciliationIssueList(), u"title"_s), QStringList{u"Calendar data needs review"_s});
    h.settings.rematchCalendars();
    EXPECT_EQ(h.model.rematches, 1);
}

TEST(SettingsViewModelTest, ExclusionsAreListedByTitleAndRemovedOneOrAll)
{
    Harness h;
    fill(h.model);
    h.model.excluded.push_back(
        exclusion("", "", ExclusionScope::occurrence, at("2026-12-01T08:00:00Z"), at("2026-11-21T08:00:00Z")));
    h.model.excluded.back().eventTitle.reset();
    const QVariantList rows = h.settings.exclusionList();
    const QStringList expected[] = {
        {u"All hands"_s, u"Team events"_s, u"Only this occurrence"_s, u"Tue, Nov 24, 2026, 5:00 PM"_s},
        {u"Dentist"_s, u"Home"_s, u"Only this occurrence"_s, u"Fri, Nov 27, 2026, 3:30 PM"_s},
        {u"Untitled event"_s, u"Unknown calendar"_s, u"Only this occurrence"_s, u"Tue, Dec 1, 2026, 8:00 AM"_s},
        {u"Weekly planning"_s, u"Work"_s, u"Entire series"_s, u"Excluded on Nov 3, 2026"_s},
    };
    ASSERT_EQ(rows.size(), qsizetype(std::size(expected)));
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const QVariantMap row = rows[i].toMap();
        EXPECT_EQ((QStringList{row[u"title"_s].toString(), row[u"calendar"_s].toString(), row[u"scope"_s].toString(),
                               row[u"date"_s].toString()}),
                  expected[i]);
    }

    h.settings.removeExclusion(u"not an id"_s);
    EXPECT_EQ(h.model.excluded.size(), 4U);
    h.settings.removeExclusion(rows[1].toMap()[u"id"_s].toString());
    EXPECT_EQ(column(h.settings.exclusionList(), u"title"_s),
              (QStringList{u"All hands"_s, u"Untitled event"_s, u"Weekly planning"_s}));
    h.settings.removeAllExclusions();
    EXPECT_TRUE(h.settings.exclusionList().isEmpty());
}

TEST(SettingsViewModelTest, UnreadableRecordsAreReviewedThenTheWindowReturnsToGeneral)
{
    Harness h;
    const auto titles = [&] {
        return column(h.settings.sectionList(), u"title"_s);
    };
    const QStringList withoutReview{u"General"_s, u"Calendars"_s, u"Connected accounts"_s, u"Exclusions"_s};
    EXPECT_EQ(titles(), withoutReview);
    h.settings.setSectionIndex(static_cast<int>(Section::storedData));
    EXPECT_EQ(h.settings.section(), Section::general) << "nothing to review";
    h.settings.open(Section::exclusions);
    EXPECT_EQ(h.settings.section(), Section::exclusions);

    h.model.change([&] {
        h.model.unreadable = {{PersistenceComponent::exclusions, {PersistenceReadFailure::InvalidStoredType{}}},
                              {PersistenceComponent::delivery, {PersistenceReadFailure::UnsupportedSchemaVersion{3}}}};
        h.model.error = QString::fromUtf16(persistencePausedMessage);
    });
    EXPECT_EQ(h.settings.section(), Section::storedData) << "the review comes forward as soon as it is needed";
    EXPECT_EQ(titles(), withoutReview + QStringList{u"Stored data"_s});
    EXPECT_EQ(h.settings.errorText(), QString::fromUtf16(persistencePausedMessage));
    const QVariantList rows = h.settings.storedDataIssueList();
    EXPECT_EQ(column(rows, u"title"_s), (QStringList{u"Meeting exclusions"_s, u"Reminder history and snoozes"_s}));
    EXPECT_EQ(column(rows, u"message"_s),
              (QStringList{PersistenceReadFailure{PersistenceReadFailure::InvalidStoredType{}}.message(),
                           PersistenceReadFailure{PersistenceReadFailure::UnsupportedSchemaVersion{3}}.message()}));
    EXPECT_EQ(rows[0].toMap()[u"confirmation"_s].toString(), resetConfirmation(PersistenceComponent::exclusions));
    EXPECT_TRUE(rows[1].toMap()[u"confirmation"_s].toString().startsWith(
        u"Resetting removes snoozes and reminder history, so reminders may repeat."_s));

    // A settings file that cannot be read at all is one item, named by where it is.
    const auto records = h.model.unreadable;
    h.model.change([&] {
        h.model.unreadable.clear();
        for (const auto component : orvane::allCases<PersistenceComponent>()) {
            h.model.unreadable.push_back({component, {PersistenceReadFailure::UnreadableDatabase{}}});
        }
    });
    const QVariantList file = h.settings.storedDataIssueList();
    ASSERT_EQ(file.size(), 1);
    EXPECT_TRUE(file[0].toMap()[u"message"_s].toString().contains(h.model.storageLocation()));
    h.model.change([&] { h.model.unreadable = records; });

    // The user may look elsewhere meanwhile, but opening the window again shows the review.
    h.settings.setSectionIndex(static_cast<int>(Section::calendars));
    EXPECT_EQ(h.settings.section(), Section::calendars);
    h.settings.open(Section::general);
    EXPECT_EQ(h.settings.section(), Section::storedData);

    h.settings.resetStoredData(99);
    h.settings.resetStoredData(static_cast<int>(PersistenceComponent::delivery));
    EXPECT_EQ(h.settings.section(), Section::storedData);
    h.model.error.reset();
    h.settings.resetStoredData(static_cast<int>(PersistenceComponent::exclusions));
    EXPECT_EQ(h.model.resets, (std::vector{PersistenceComponent::delivery, PersistenceComponent::exclusions}));
    EXPECT_EQ(h.settings.section(), Section::general);
    EXPECT_EQ(titles(), withoutReview);
    EXPECT_EQ(h.settings.errorText(), QString());
}

} // namespace
