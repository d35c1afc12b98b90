// SPDX-License-Identifier: GPL-3.0-or-later
#include "model/AppModel.h"

#include "alert/AlertPresentationSessionMonitoring.h"
#include "alert/FullScreenAlertController.h"
#include "alert/SecureEventInputActivationGate.h"
#include "calendars/CalendarRepository.h"
#include "calendars/CompositeCalendarRepository.h"
#include "fakes/FakeAlertWindowSystem.h"
#include "fakes/FakeCalendarSource.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeDesktopCalendars.h"
#include "fakes/FakeTimerScheduler.h"
#include "model/SystemEventSource.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"
#include "scheduling/AlertScheduler.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/Patience.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"
#include "support/TemporaryDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <gtest/gtest.h>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

constexpr double t0 = 700'000'000;
using Action = FullScreenAlertAction;

/// The model wired as the application wires it; only the calendars, clock, timers and window system are fakes.
struct Harness {
    explicit Harness(const std::function<void(TemporaryDefaults&)>& before = {})
    {
        if (before) {
            before(defaults);
        }
        settings = std::make_unique<SettingsStore>(defaults.database());
        exclusions = std::make_unique<ExclusionStore>(defaults.database());
        delivery = std::make_unique<DeliveryStore>(defaults.database());
        repository = std::make_unique<CompositeCalendarRepository>(*settings, clock);
        repository->addSource(source);
        scheduler = std::make_unique<AlertScheduler>(*repository, *settings, *exclusions, *delivery, timers, clock);
        const auto openUrl = [this](const QUrl& url) {
            opened.push_back(url);
            return true;
        };
        model = std::make_unique<AppModel>(AppModelDependencies{defaults.database(), local, *repository, *settings,
                                                                *exclusions, *delivery, *scheduler, controller, clock,
                                                                systemEvents, nullptr, openUrl});
    }

    void start(std::vector<MeetingOccurrence> meetings = {})
    {
        source.meetings = std::move(meetings);
        runTask(model->start());
    }
    /// Waits until the refresh under way (the composite answers through the event loop) is in.
    void settle()
    {
        ASSERT_TRUE(QTest::qWaitFor([this] { return !scheduler->isRefreshing(); }, patience));
    }
    void advanceTo(double date)
    {
        timers.advanceTo(Date{date});
        settle();
    }
    void refresh()
    {
        model->refresh();
        settle();
    }
    int fetches() const { return int(source.selections.size()); }
    /// Answers the alert showing, or presses Escape without an action.
    void answer(const std::optional<Action>& action)
    {
        if (action) {
            windows.alertPanel()->content.onAction(*action);
        } else {
            windows.pressEscape();
        }
        settle();
    }
    std::vector<MeetingOccurrence> shown() const
    {
        const auto panel = windows.alertPanel();
        return panel ? panel->content.meetings : std::vector<MeetingOccurrence>{};
    }

    TemporaryDefaults defaults;
    FakeClock clock{Date{t0}};
    FakeTimerScheduler timers{clock};
    FakeCalendarSource source{u"local"_s, u"Desktop calendars"_s};
    FakeDesktopCalendars local;
    SystemEventSource systemEvents;
    SecureEventInputActivationGate gate{clock, timers, [] {
                                            return false;
                                        }};
    AlertPresentationAvailability monitor;
    FakeAlertWindowSystem windows;
    FullScreenAlertController controller{monitor, windows, clock, timers, gate};
    std::vector<QUrl> opened;
    std::unique_ptr<SettingsStore> settings;
    std::unique_ptr<ExclusionStore> exclusions;
    std::unique_ptr<DeliveryStore> delivery;
    std::unique_ptr<CompositeCalendarRepository> repository;
    std::unique_ptr<AlertScheduler> scheduler;
    std::unique_ptr<AppModel> model;
};

MeetingOccurrence standup(double start = t0 + 600)
{
    return fixtures::meeting(u"external:standup"_s, start);
}

TEST(AppModel, StartsOnceAndEachSystemEventRefreshesOnce)
{
    Harness harness;
    harness.start();
    harness.start();
    EXPECT_EQ(harness.fetches(), 1);
    EXPECT_TRUE(harness.model->hasUsableCalendarSource());

    using Signal = void (SystemEventSource::*)();
    for (const Signal signal : {&SystemEventSource::clockChanged, &SystemEventSource::timeZoneChanged,
                                &SystemEventSource::didWake, &SystemEventSource::sessionDidBecomeActive}) {
        const int before = harness.fetches();
        (harness.systemEvents.*signal)();
        harness.settle();
        EXPECT_EQ(harness.fetches(), before + 1);
    }

    // Resuming sets the clock and fires the timers that fell due in sleep, before or after logind says the machine
    // woke: one refresh for all of it.
    const int before = harness.fetches();
    harness.systemEvents.willSleep();
    harness.clock.advance(2 * 86'400);
    harness.timers.advanceTo(harness.clock.now());
    harness.systemEvents.clockChanged();
    harness.source.holding = true;
    harness.systemEvents.didWake();
    harness.systemEvents.clockChanged();
    harness.source.holding = false;
    harness.source.release();
    harness.settle();
    EXPECT_EQ(harness.fetches(), before + 1);
}

TEST(AppModel, DueMeetingsAreShownConfirmedAndTheAnswerRecorded)
{
    enum class Answer { escape, snooze, exclude, join };
    for (const auto answer : {Answer::escape, Answer::snooze, Answer::exclude, Answer::join}) {
        SCOPED_TRACE(int(answer));
        Harness harness;
        auto linked = standup();
        linked.meetingURL = QUrl(u"https://zoom.us/j/123456789"_s);
        linked.isRecurring = true;
        harness.start({linked, fixtures::meeting(u"external:review"_s, t0 + 600, 60)});
        ASSERT_EQ(harness.model->upcoming().size(), 2U);
        harness.advanceTo(t0 + 600);

        const auto shown = harness.shown();
        ASSERT_EQ(shown.size(), 2U);
        EXPECT_TRUE(harness.delivery->hasDelivered(shown[0].identity, Date{t0 + 600}));
        EXPECT_TRUE(harness.delivery->hasDelivered(shown[1].identity, Date{t0 + 600}));
        const std::optional<Action> actions[] = {
            std::nullopt,
            Action{Action::Snooze{{shown[0].identity, shown[1].identity}, FullScreenAlertSnooze::fiveMinutes}},
            Action{Action::Exclude{shown[0], ExclusionScope::series}},
            Action{Action::Join{shown[0]}},
        };
        harness.answer(actions[int(answer)]);
        EXPECT_FALSE(harness.controller.isPresenting());
        EXPECT_TRUE(harness.scheduler->activeBatches().empty());
        EXPECT_EQ(harness.model->lastError(), std::nullopt);

        const auto snoozes = harness.delivery->snoozes();
        ASSERT_EQ(snoozes.size(), answer == Answer::snooze ? 2U : 0U);
        for (const auto& snooze : snoozes) {
            EXPECT_EQ(snooze.snoozedUntil, Date{t0 + 600 + 300});
        }
        const auto records = harness.exclusions->records();
        ASSERT_EQ(records.size(), answer == Answer::exclude ? 1U : 0U);
        if (!records.empty()) {
            EXPECT_EQ(records[0].identity, shown[0].identity);
            EXPECT_EQ(records[0].scope, ExclusionScope::series);
            EXPECT_EQ(records[0].eventTitle, shown[0].title);
        }
        EXPECT_EQ(harness.opened, answer == Answer::join ? std::vector{*linked.meetingURL} : std::vector<QUrl>{});
    }
}

TEST(AppModel, SnoozeUntilStartDismissesStartedMeetingsAndWaitsForTheOthers)
{
    Harness harness;
    harness.settings->save({.alertLeadTime = 300});
    harness.start({standup(), fixtures::meeting(u"external:review"_s, t0 + 1000)});
    harness.advanceTo(t0 + 300);
    ASSERT_EQ(harness.shown().size(), 1U);
    harness.advanceTo(t0 + 700); // unanswered when the review fell due: the alert shows both
    const auto shown = harness.shown();
    ASSERT_EQ(shown.size(), 2U);

    harness.answer(Action{Action::Snooze{{shown[0].identity, shown[1].identity}, FullScreenAlertSnooze::untilStart}});
    ASSERT_EQ(harness.delivery->snoozes().size(), 1U);
    EXPECT_EQ(harness.delivery->snoozes()[0].identity, shown[1].identity);
    EXPECT_EQ(harness.delivery->snoozes()[0].snoozedUntil, Date{t0 + 1000});
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, UnavailableDisplayShowsNothingAndConfirmsNothing)
{
    Harness harness;
    harness.monitor.setSessionActive(false);
    EXPECT_FALSE(harness.model->showTestAlert());
    EXPECT_FALSE(harness.model->isShowingTestAlert());
    harness.start({standup()});
    harness.advanceTo(t0 + 600);
    EXPECT_TRUE(harness.windows.panels.empty());
    EXPECT_FALSE(harness.delivery->hasDelivered(harness.model->upcoming().front().identity, Date{t0 + 600}));
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
}

TEST(AppModel, AlertClosesWhenItsMeetingsAreSettledElsewhereButTheSampleStays)
{
    Harness harness;
    harness.start({standup()});
    harness.advanceTo(t0 + 600);
    const auto shown = harness.shown();
    ASSERT_EQ(shown.size(), 1U);
    harness.scheduler->dismiss(std::vector{shown[0].identity});
    EXPECT_FALSE(harness.controller.isPresenting());

    ASSERT_TRUE(harness.model->showTestAlert());
    harness.refresh();
    EXPECT_TRUE(harness.controller.isPresenting()) << "the sample has no active batch behind it";
}

TEST(AppModel, TestAlertShowsOnceAndItsAnswersTouchNoStore)
{
    const auto sample = AppModel::testAlertMeeting(Date{t0});
    const std::optional<FullScreenAlertAction> answers[] = {
        std::nullopt,
        Action{Action::Join{sample}},
        Action{Action::Snooze{{}, FullScreenAlertSnooze::fiveMinutes}},
        Action{Action::Exclude{sample, ExclusionScope::series}},
    };
    for (const auto& answer : answers) {
        Harness harness;
        harness.start();
        const QByteArray stored = harness.defaults.fileBytes();
        ASSERT_TRUE(harness.model->showTestAlert());
        EXPECT_TRUE(harness.model->showTestAlert());
        EXPECT_EQ(harness.windows.panels.size(), 1U) << "a second request shows nothing new";
        EXPECT_TRUE(harness.model->isShowingTestAlert());
        const auto shown = harness.shown();
        ASSERT_EQ(shown.size(), 1U);
        EXPECT_EQ(shown[0].title, AppModel::testAlertTitle);
        EXPECT_EQ(shown[0].startDate, Date{t0 + 120});

        harness.answer(answer);
        EXPECT_FALSE(harness.model->isShowingTestAlert());
        EXPECT_FALSE(harness.controller.isPresenting());
        EXPECT_EQ(harness.defaults.fileBytes(), stored);
        EXPECT_EQ(harness.model->lastError(), std::nullopt);
        EXPECT_EQ(harness.opened.size(), answer && std::holds_alternative<Action::Join>(answer->value) ? 1U : 0U);
    }
}

TEST(AppModel, ExcludingFromTheMenuStoresTheExclusionAndRefreshes)
{
    Harness harness;
    harness.start({standup()});
    const auto meeting = harness.model->upcoming().at(0);
    harness.model->exclude(meeting, ExclusionScope::occurrence);
    harness.settle();
    const auto records = harness.exclusions->records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].identity, meeting.identity);
    EXPECT_EQ(records[0].calendarTitle, meeting.calendar.title);
    EXPECT_TRUE(harness.model->upcoming().empty());
}

TEST(AppModel, BackgroundFailuresAreReportedUntilTheirOperationSucceeds)
{
    Harness harness;
    harness.source.failing = true;
    harness.start();
    EXPECT_EQ(harness.model->lastError(), u"Unable to load calendar events: The account is unreachable."_s);
    harness.source.failing = false;
    harness.refresh();
    EXPECT_EQ(harness.model->lastError(), std::nullopt);

    // Old history to prune and a due alert to record, on a full disk: both fail, the alert shows all the same.
    const auto old = standup(t0 - 3'000'000);
    harness.delivery->prepareDeliveries(
        std::vector{DeliveryRecord{old.identity, old.startDate, DeliveryStatus::confirmed, Date{t0 - 2'600'000}}});
    harness.source.meetings = {standup(t0 + 60)};
    {
        DiskFull full;
        harness.clock.set(Date{t0 + 60});
        harness.refresh();
    }
    EXPECT_EQ(harness.shown().size(), 1U);
    ASSERT_TRUE(harness.model->lastError());
    EXPECT_TRUE(harness.model->lastError()->startsWith(AppModel::recordingFailedPrefix))
        << harness.model->lastError()->toStdString();
    EXPECT_TRUE(harness.model->recordingFailure());
    harness.refresh();
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
    EXPECT_FALSE(harness.model->recordingFailure());
    EXPECT_EQ(harness.delivery->records().size(), 1U) << "pruned, and the alert shown is recorded";
}

TEST(AppModel, OnboardingFlagReadsTextOrBooleanAndWritesText)
{
    const std::pair<QVariant, bool> stored[] = {
        {QVariant(), false}, {QVariant(true), true}, {QVariant(u"true"_s), true}, {QVariant(u"false"_s), false}};
    for (const auto& [value, completed] : stored) {
        Harness harness([&](TemporaryDefaults& defaults) {
            if (value.isValid()) {
                defaults.store(AppModel::onboardingCompletedKey, value);
            }
        });
        EXPECT_EQ(harness.model->hasCompletedOnboarding(), completed) << value.toString().toStdString();
    }
    Harness harness;
    int changes = 0;
    QObject::connect(harness.model.get(), &AppModel::changed, [&] { ++changes; });
    harness.model->setOnboardingCompleted(true);
    harness.model->setOnboardingCompleted(true);
    EXPECT_TRUE(harness.model->hasCompletedOnboarding());
    EXPECT_EQ(harness.defaults.stored(AppModel::onboardingCompletedKey), QVariant(u"true"_s));
    EXPECT_EQ(changes, 1);
}

TEST(AppModel, SafetyEndIsTheLatestEnd)
{
    const AlertBatch batch{Date{t0},
                           {{fixtures::meeting(u"a"_s, t0, 90), Date{t0}, AlertReason::initial},
                            {fixtures::meeting(u"b"_s, t0, 30), Date{t0}, AlertReason::initial}}};
    EXPECT_EQ(AppModel::safetyEnd(batch), Date{t0 + 90 * 60});
}

TEST(AppModel, SettingsCommandsStoreAndRefreshOnlyWhenTheScheduleDependsOnThem)
{
    const std::optional<QString> refused = AppModel::leadTimeOutOfRangeMessage;
    const auto leadTime = [](double seconds) {
        return [seconds](AppModel& model) {
            model.setAlertLeadTime(seconds);
        };
    };
    const auto leadTimeIs = [](double seconds) {
        return [seconds](const NotifierSettings& settings) {
            return settings.alertLeadTime == seconds;
        };
    };
    const std::tuple<const char*, std::function<void(AppModel&)>, std::function<bool(const NotifierSettings&)>,
                     std::optional<QString>, bool>
        cases[] = {
            {"longest lead time", leadTime(7200), leadTimeIs(7200), std::nullopt, true},
            {"no lead time", leadTime(0), leadTimeIs(0), std::nullopt, false},
            {"negative", leadTime(-1), leadTimeIs(0), refused, false},
            {"beyond two hours", leadTime(7200.5), leadTimeIs(0), refused, false},
            {"not a number", leadTime(std::nan("")), leadTimeIs(0), refused, false},
            {"eligibility", [](AppModel& model) { model.setEligibilityMode(EligibilityMode::meetingLike); },
             [](auto& settings) { return settings.eligibilityMode == EligibilityMode::meetingLike; }, std::nullopt,
             true},
            {"all displays", [](AppModel& model) { model.setShowsOnAllDisplays(true); },
             [](auto& settings) { return settings.showsOnAllDisplays; }, std::nullopt, false},
            {"launch at login", [](AppModel& model) { model.setLaunchAtLogin(true); },
             [](auto& settings) { return settings.launchAtLogin; }, std::nullopt, false},
        };
    for (const auto& [name, command, stored, error, refreshes] : cases) {
        SCOPED_TRACE(name);
        Harness harness;
        harness.start();
        const int fetches = harness.fetches();
        command(*harness.model);
        harness.settle();
        EXPECT_EQ(harness.model->lastError(), error);
        EXPECT_TRUE(stored(harness.settings->settings()));
        EXPECT_EQ(harness.fetches(), fetches + (refreshes ? 1 : 0));
        EXPECT_EQ(harness.controller.showsOnAllDisplays(), harness.settings->settings().showsOnAllDisplays);
        if (error) {
            harness.model->setAlertLeadTime(60);
            EXPECT_EQ(harness.model->lastError(), std::nullopt) << "a valid command takes the refusal back";
        }
    }
}

CalendarGroup workGroup()
{
    const auto calendar = fixtures::meeting(u"x"_s, t0).calendar;
    auto home = calendar;
    home.identifier = u"cal-home"_s;
    home.title = u"Home"_s;
    return {calendar.sourceIdentifier, calendar.sourceTitle, calendar.sourceKind, {calendar, home}};
}

TEST(AppModel, GrantedAccessLoadsCalendarsAndSelectionIsStoredOnlyWhenEveryCalendarIsListed)
{
    const auto only = [](const CalendarDescriptor& calendar) {
        return std::optional(std::vector<CalendarSelectionRecord>{
            {calendar.identifier, CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title}}});
    };
    const auto group = workGroup();
    const auto& work = group.calendars[0];
    const auto& home = group.calendars[1];
    const std::tuple<const char*, std::optional<QSet<QString>>, std::optional<std::vector<CalendarSelectionRecord>>>
        cases[] = {
            {"present", QSet{work.identifier}, only(work)},
            {"none", QSet<QString>{}, std::vector<CalendarSelectionRecord>{}},
            {"every calendar", std::nullopt, std::nullopt},
            {"vanished", QSet{work.identifier, u"cal-gone"_s}, only(home)},
        };
    for (const auto& [name, requested, expected] : cases) {
        SCOPED_TRACE(name);
        Harness harness;
        harness.local.state = CalendarAuthorizationState::notDetermined;
        harness.start();
        EXPECT_FALSE(harness.model->hasUsableCalendarSource());
        harness.source.groups = {group}; // the fake gives its groups away on the first read
        int fetches = harness.fetches();
        runTask(harness.model->requestCalendarAccess());
        harness.settle();
        EXPECT_EQ(harness.model->authorizationState(), CalendarAuthorizationState::fullAccess);
        ASSERT_EQ(harness.model->calendarGroups(), std::vector{group});
        EXPECT_EQ(harness.fetches(), fetches + 1);
        harness.model->setSelectedCalendars(QSet{home.identifier});
        harness.settle();
        const QByteArray stored = harness.defaults.fileBytes();
        fetches = harness.fetches();

        harness.model->setSelectedCalendars(requested);
        harness.settle();
        const bool refused = requested && requested->contains(u"cal-gone"_s);
        if (refused) {
            EXPECT_EQ(harness.model->lastError(),
                      u"The calendar list changed. Refresh your selection and try again."_s);
            EXPECT_EQ(harness.defaults.fileBytes(), stored);
        } else {
            EXPECT_EQ(harness.model->lastError(), std::nullopt);
            EXPECT_EQ(harness.source.selections.back(), requested) << "the next fetch reads the new selection";
        }
        EXPECT_EQ(harness.fetches(), fetches + (refused ? 0 : 1));
        EXPECT_EQ(harness.settings->settings().selectedCalendars, expected);
    }
}

TEST(AppModel, RemovedExclusionsAlertAgain)
{
    Harness harness;
    const auto review = fixtures::meeting(u"external:review"_s, t0 + 900);
    const auto first = fixtures::exclusion(standup().identity);
    const auto second = fixtures::exclusion(review.identity);
    harness.exclusions->add(first);
    harness.exclusions->add(second);
    harness.start({standup(), review});
    EXPECT_TRUE(harness.model->upcoming().empty());
    EXPECT_EQ(harness.model->exclusions(), (std::vector{first, second}));

    harness.model->removeExclusions({first.id});
    harness.settle();
    EXPECT_EQ(harness.model->exclusions(), std::vector{second});
    EXPECT_EQ(harness.model->upcoming().size(), 1U);

    harness.model->removeAllExclusions();
    harness.settle();
    EXPECT_TRUE(harness.model->exclusions().empty());
    EXPECT_EQ(harness.model->upcoming().size(), 2U);
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, UnreadableRecordsPauseUntilRecoveredOneByOneAndCalendarRecoveryWaitsForAll)
{
    Harness harness([](TemporaryDefaults& defaults) {
        SettingsStore(defaults.database()).save({.alertLeadTime = 300});
        defaults.store(ExclusionStore::defaultKey, u"not a blob"_s);
        defaults.store(DeliveryStore::defaultKey, u"not a blob"_s);
    });
    harness.start({standup()});
    EXPECT_EQ(harness.model->lastError(), QString::fromUtf16(persistencePausedMessage));
    EXPECT_TRUE(harness.model->upcoming().empty());
    ASSERT_EQ(harness.model->persistenceIssues().size(), 2U);
    EXPECT_EQ(harness.model->persistenceIssues()[0].component, PersistenceComponent::exclusions);
    const QVariant settings = harness.defaults.stored(SettingsStore::defaultKey);
    const auto settingsKept = [&] {
        return harness.defaults.stored(SettingsStore::defaultKey) == settings;
    };

    harness.model->recoverCalendarIdentities();
    EXPECT_EQ(harness.model->lastError(),
              u"Stored meeting exclusions must be reviewed before calendar recovery can continue."_s);
    harness.model->recoverUnreadableRecord(PersistenceComponent::settings);
    EXPECT_TRUE(settingsKept()) << "a readable record is never reset";
    {
        const DiskFull full;
        harness.model->recoverUnreadableRecord(PersistenceComponent::exclusions);
    }
    EXPECT_EQ(harness.model->lastError(),
              AppModel::calendarRecoveryFailedPrefix +
                  PersistenceStoreError(PersistenceStoreError::WriteFailed{}).description());
    EXPECT_TRUE(harness.exclusions->readState().isUnreadable());

    harness.model->recoverUnreadableRecord(PersistenceComponent::exclusions);
    harness.settle();
    EXPECT_FALSE(harness.exclusions->readState().isUnreadable());
    EXPECT_TRUE(settingsKept());
    EXPECT_EQ(harness.defaults.stored(DeliveryStore::defaultKey), QVariant(u"not a blob"_s));
    EXPECT_EQ(harness.model->lastError(), QString::fromUtf16(persistencePausedMessage));
    harness.model->recoverCalendarIdentities();
    EXPECT_EQ(harness.model->lastError(),
              u"Stored reminder history and snoozes must be reviewed before calendar recovery can continue."_s);

    harness.model->recoverUnreadableRecord(PersistenceComponent::delivery);
    harness.settle();
    EXPECT_TRUE(settingsKept());
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
    EXPECT_TRUE(harness.model->persistenceIssues().empty());
    EXPECT_EQ(harness.model->upcoming().size(), 1U);
    const int fetches = harness.fetches();
    harness.model->recoverCalendarIdentities();
    harness.settle();
    EXPECT_EQ(harness.fetches(), fetches + 1);
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, AnUnreadableSettingsFilePausesAlertsUntilItIsReadableAgainOrMovedAside)
{
    // A folder where the file should be: Qt cannot open it. (The tests run as root, who can read a mode-000 file.)
    const auto unreadableFile = [](TemporaryDefaults& defaults) {
        SettingsStore(defaults.database()).save({.alertLeadTime = 300});
        QFile::rename(defaults.path(), defaults.path() + u".fine"_s);
        QDir().mkdir(defaults.path());
    };
    for (const bool fixedByTheUser : {true, false}) {
        SCOPED_TRACE(fixedByTheUser);
        Harness harness(unreadableFile);
        harness.start({standup(t0 + 300)});
        EXPECT_EQ(harness.model->lastError(), QString::fromUtf16(persistencePausedMessage));
        ASSERT_EQ(harness.model->persistenceIssues().size(), 3U) << "every record in the file is unreadable";
        EXPECT_TRUE(harness.windows.panels.empty());
        EXPECT_TRUE(harness.model->hasCompletedOnboarding()) << "an unreadable file does not restart onboarding";

        if (fixedByTheUser) {
            // It is read again at once, and its lead time alerts for the meeting now.
            QDir().rmdir(harness.defaults.path());
            QFile::rename(harness.defaults.path() + u".fine"_s, harness.defaults.path());
            ASSERT_TRUE(QTest::qWaitFor([&] { return harness.model->persistenceIssues().empty(); }, patience));
            harness.settle();
            EXPECT_EQ(harness.shown().size(), 1U);
            EXPECT_EQ(harness.model->lastError(), std::nullopt);
        } else {
            // Reset: the file is moved aside whole, kept, and a fresh one starts.
            harness.model->recoverUnreadableRecord(PersistenceComponent::exclusions);
            harness.settle();
            EXPECT_TRUE(harness.model->persistenceIssues().empty());
            ASSERT_TRUE(harness.model->lastError());
            const QString aside =
                harness.model->lastError()->mid(AppModel::databaseMovedAsidePrefix.size()).section(u';', 0, 0);
            EXPECT_TRUE(QFileInfo(aside).isDir()) << "kept as it was: " << aside.toStdString();
            harness.settings->save({.alertLeadTime = 60});
            EXPECT_TRUE(harness.defaults.database().isReadable());
        }
    }
}

} // namespace
