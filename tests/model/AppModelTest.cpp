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
#include "fakes/FakeTimerScheduler.h"
#include "model/SystemEventSource.h"
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"
#include "scheduling/AlertScheduler.h"
#include "support/DiskFull.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"
#include "support/RunTask.h"
#include "support/TemporaryDefaults.h"

#include <QTest>

#include <gtest/gtest.h>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

constexpr double t0 = 700'000'000;

/// The desktop calendar database, as far as its authorization goes.
class FakeLocalCalendars final : public CalendarRepository {
public:
    CalendarAuthorizationState authorizationState() const override { return state; }
    QCoro::Task<CalendarAuthorizationState> requestFullAccess() override
    {
        state = CalendarAuthorizationState::fullAccess;
        co_return state;
    }

    CalendarAuthorizationState state = CalendarAuthorizationState::fullAccess;
    QCoro::Task<std::vector<CalendarGroup>> calendarGroups() override { co_return {}; }
    QCoro::Task<std::vector<MeetingOccurrence>> occurrences(FetchInterval, QSet<QString>) override { co_return {}; }
};

/// The model wired as the application wires it, over stores in a settings file of their own; only the calendars,
/// the clock, the timers and the window system are fakes.
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
        model = std::make_unique<AppModel>(AppModelDependencies{.defaults = defaults.database(),
                                                                .localCalendars = local,
                                                                .repository = *repository,
                                                                .settingsStore = *settings,
                                                                .exclusionStore = *exclusions,
                                                                .deliveryStore = *delivery,
                                                                .scheduler = *scheduler,
                                                                .alertController = controller,
                                                                .clock = clock,
                                                                .systemEvents = systemEvents,
                                                                .reconciler = nullptr,
                                                                .openUrl = [this](const QUrl& url) {
                                                                    opened.push_back(url);
                                                                    return true;
                                                                }});
    }

    void start() { runTask(model->start()); }
    /// Waits until the calendar fetch of the refresh under way (the composite answers through the event loop) is in.
    void settle()
    {
        ASSERT_TRUE(QTest::qWaitFor([this] { return !scheduler->isRefreshing(); }, 5000));
    }
    void advanceTo(double date)
    {
        timers.advanceTo(Date{date});
        settle();
    }
    int fetches() const { return int(source.selections.size()); }
    void answer(const FullScreenAlertAction& action) { windows.alertPanel()->content.onAction(action); }
    std::vector<MeetingOccurrence> shown() const
    {
        const auto panel = windows.alertPanel();
        return panel ? panel->content.meetings : std::vector<MeetingOccurrence>{};
    }

    TemporaryDefaults defaults;
    FakeClock clock{Date{t0}};
    FakeTimerScheduler timers{clock};
    FakeCalendarSource source{u"local"_s, u"Desktop calendars"_s};
    FakeLocalCalendars local;
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

MeetingOccurrence withLink(MeetingOccurrence meeting)
{
    meeting.meetingURL = QUrl(u"https://zoom.us/j/123456789"_s);
    meeting.isRecurring = true;
    return meeting;
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
}

struct ActionCase {
    const char* name;
    /// Answers the alert showing `standup` and `review`; empty: presses Escape.
    std::function<std::optional<FullScreenAlertAction>(const MeetingOccurrence&, const MeetingOccurrence&)> answer;
    std::function<void(Harness&, const MeetingOccurrence& standup)> check;
};

TEST(AppModel, DueMeetingsAreShownConfirmedAndTheAnswerRecorded)
{
    const auto ids = [](const MeetingOccurrence& a, const MeetingOccurrence& b) {
        return std::vector{a.identity, b.identity};
    };
    const ActionCase cases[] = {
        {"escape", [](auto&, auto&) { return std::nullopt; },
         [](Harness& harness, auto&) {
             EXPECT_TRUE(harness.delivery->snoozes().empty());
         }},
        {"snooze five minutes",
         [&](auto& a, auto& b) {
             return FullScreenAlertAction{FullScreenAlertAction::Snooze{ids(a, b), FullScreenAlertSnooze::fiveMinutes}};
         },
         [](Harness& harness, auto&) {
             ASSERT_EQ(harness.delivery->snoozes().size(), 2U);
             EXPECT_EQ(harness.delivery->snoozes()[0].snoozedUntil, Date{t0 + 600 + 300});
         }},
        {"exclude series",
         [](auto& a, auto&) {
             return FullScreenAlertAction{FullScreenAlertAction::Exclude{a, ExclusionScope::series}};
         },
         [](Harness& harness, const MeetingOccurrence& standup) {
             ASSERT_EQ(harness.exclusions->records().size(), 1U);
             EXPECT_EQ(harness.exclusions->records()[0].identity, standup.identity);
             EXPECT_EQ(harness.exclusions->records()[0].scope, ExclusionScope::series);
             EXPECT_EQ(harness.exclusions->records()[0].eventTitle, standup.title);
         }},
        {"join", [](auto& a, auto&) { return FullScreenAlertAction{FullScreenAlertAction::Join{a}}; },
         [](Harness& harness, const MeetingOccurrence& standup) {
             EXPECT_EQ(harness.opened, std::vector{*standup.meetingURL});
         }},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        Harness harness;
        harness.source.meetings = {withLink(fixtures::meeting(u"external:standup"_s, t0 + 600)),
                                   fixtures::meeting(u"external:review"_s, t0 + 600, 60)};
        harness.start();
        ASSERT_EQ(harness.model->upcoming().size(), 2U);
        harness.advanceTo(t0 + 600);

        const auto shown = harness.shown();
        ASSERT_EQ(shown.size(), 2U);
        EXPECT_TRUE(harness.delivery->hasDelivered(shown[0].identity, Date{t0 + 600}));
        EXPECT_TRUE(harness.delivery->hasDelivered(shown[1].identity, Date{t0 + 600}));
        if (const auto action = testCase.answer(shown[0], shown[1])) {
            harness.answer(*action);
        } else {
            harness.windows.pressEscape();
        }
        harness.settle();
        EXPECT_FALSE(harness.controller.isPresenting());
        EXPECT_TRUE(harness.scheduler->activeBatches().empty()) << "every meeting of the alert was answered";
        EXPECT_EQ(harness.model->lastError(), std::nullopt);
        testCase.check(harness, shown[0]);
    }
}

TEST(AppModel, SnoozeUntilStartDismissesStartedMeetingsAndWaitsForTheOthers)
{
    Harness harness;
    NotifierSettings settings;
    settings.alertLeadTime = 300;
    harness.settings->save(settings);
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600),
                               fixtures::meeting(u"external:review"_s, t0 + 1000)};
    harness.start();
    harness.advanceTo(t0 + 300);
    ASSERT_EQ(harness.shown().size(), 1U);
    // Nobody answered before the review fell due: the alert now shows both, started or not.
    harness.advanceTo(t0 + 700);
    const auto shown = harness.shown();
    ASSERT_EQ(shown.size(), 2U);

    harness.answer(
        {FullScreenAlertAction::Snooze{{shown[0].identity, shown[1].identity}, FullScreenAlertSnooze::untilStart}});
    harness.settle();
    ASSERT_EQ(harness.delivery->snoozes().size(), 1U);
    EXPECT_EQ(harness.delivery->snoozes()[0].identity, shown[1].identity);
    EXPECT_EQ(harness.delivery->snoozes()[0].snoozedUntil, Date{t0 + 1000});
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, AlertThatCannotBeShownIsNotConfirmed)
{
    Harness harness;
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600)};
    harness.start();
    harness.monitor.setSessionActive(false);
    harness.advanceTo(t0 + 600);
    EXPECT_TRUE(harness.windows.panels.empty());
    EXPECT_FALSE(harness.delivery->hasDelivered(harness.model->upcoming().front().identity, Date{t0 + 600}));
    EXPECT_TRUE(harness.scheduler->activeBatches().empty());
}

TEST(AppModel, AlertClosesWhenItsMeetingsAreSettledElsewhereButTheSampleStays)
{
    Harness harness;
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600)};
    harness.start();
    harness.advanceTo(t0 + 600);
    const auto shown = harness.shown();
    ASSERT_EQ(shown.size(), 1U);
    harness.scheduler->dismiss(std::vector{shown[0].identity});
    EXPECT_FALSE(harness.controller.isPresenting());

    ASSERT_TRUE(harness.model->showTestAlert());
    harness.model->refresh();
    harness.settle();
    EXPECT_TRUE(harness.controller.isPresenting()) << "the sample has no active batch behind it";
}

TEST(AppModel, TestAlertShowsOnceAndItsAnswersTouchNoStore)
{
    const std::vector<std::optional<FullScreenAlertAction>> answers = {
        std::nullopt,
        FullScreenAlertAction{FullScreenAlertAction::Join{AppModel::testAlertMeeting(Date{t0})}},
        FullScreenAlertAction{FullScreenAlertAction::Snooze{{}, FullScreenAlertSnooze::fiveMinutes}},
        FullScreenAlertAction{
            FullScreenAlertAction::Exclude{AppModel::testAlertMeeting(Date{t0}), ExclusionScope::series}},
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

        if (answer) {
            harness.answer(*answer);
        } else {
            harness.windows.pressEscape();
        }
        harness.settle();
        EXPECT_FALSE(harness.model->isShowingTestAlert());
        EXPECT_FALSE(harness.controller.isPresenting());
        EXPECT_EQ(harness.defaults.fileBytes(), stored);
        EXPECT_EQ(harness.model->lastError(), std::nullopt);
        EXPECT_EQ(harness.opened.size(),
                  answer && std::holds_alternative<FullScreenAlertAction::Join>(answer->value) ? 1U : 0U);
    }
}

TEST(AppModel, UnavailableDisplayRefusesTheTestAlert)
{
    Harness harness;
    harness.monitor.setSessionActive(false);
    EXPECT_FALSE(harness.model->showTestAlert());
    EXPECT_FALSE(harness.model->isShowingTestAlert());
}

TEST(AppModel, ExcludingFromTheMenuStoresTheExclusionAndRefreshes)
{
    Harness harness;
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600)};
    harness.start();
    const auto meeting = harness.model->upcoming().at(0);
    harness.model->exclude(meeting, ExclusionScope::occurrence);
    harness.settle();
    ASSERT_EQ(harness.exclusions->records().size(), 1U);
    EXPECT_EQ(harness.exclusions->records()[0].identity, meeting.identity);
    EXPECT_EQ(harness.exclusions->records()[0].calendarTitle, meeting.calendar.title);
    EXPECT_TRUE(harness.model->upcoming().empty());
}

TEST(AppModel, UnreadableRecordPausesWithItsText)
{
    Harness harness([](TemporaryDefaults& defaults) { defaults.store(u"Orvane.exclusions"_s, u"not a blob"_s); });
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600)};
    harness.start();
    EXPECT_EQ(harness.model->lastError(), QString::fromUtf16(persistencePausedMessage));
    EXPECT_TRUE(harness.model->upcoming().empty());
    ASSERT_EQ(harness.model->persistenceIssues().size(), 1U);
    EXPECT_EQ(harness.model->persistenceIssues()[0].component, PersistenceComponent::exclusions);

    harness.exclusions->resetAfterReadFailure();
    harness.model->refresh();
    harness.settle();
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
    EXPECT_EQ(harness.model->upcoming().size(), 1U);
}

TEST(AppModel, FailedFetchIsReportedUntilAFetchSucceeds)
{
    Harness harness;
    harness.source.failing = true;
    harness.start();
    EXPECT_EQ(harness.model->lastError(), u"Unable to load calendar events: The account is unreachable."_s);
    harness.source.failing = false;
    harness.model->refresh();
    harness.settle();
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
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

CalendarGroup workGroup()
{
    const auto calendar = fixtures::meeting(u"x"_s, t0).calendar;
    auto home = calendar;
    home.identifier = u"cal-home"_s;
    home.title = u"Home"_s;
    return {calendar.sourceIdentifier, calendar.sourceTitle, calendar.sourceKind, {calendar, home}};
}

struct SettingsCase {
    const char* name;
    std::function<void(AppModel&)> command;
    std::function<bool(const NotifierSettings&)> stored;
    std::optional<QString> error;
    bool refreshes;
};

TEST(AppModel, SettingsCommandsStoreAndRefreshOnlyWhenTheScheduleDependsOnThem)
{
    const auto refused = AppModel::leadTimeOutOfRangeMessage;
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
    const SettingsCase cases[] = {
        {"longest lead time", leadTime(7200), leadTimeIs(7200), std::nullopt, true},
        {"no lead time", leadTime(0), leadTimeIs(0), std::nullopt, false},
        {"negative", leadTime(-1), leadTimeIs(0), refused, false},
        {"beyond two hours", leadTime(7200.5), leadTimeIs(0), refused, false},
        {"not a number", leadTime(std::nan("")), leadTimeIs(0), refused, false},
        {"eligibility", [](AppModel& model) { model.setEligibilityMode(EligibilityMode::meetingLike); },
         [](auto& settings) { return settings.eligibilityMode == EligibilityMode::meetingLike; }, std::nullopt, true},
        {"all displays", [](AppModel& model) { model.setShowsOnAllDisplays(true); },
         [](auto& settings) { return settings.showsOnAllDisplays; }, std::nullopt, false},
        {"launch at login", [](AppModel& model) { model.setLaunchAtLogin(true); },
         [](auto& settings) { return settings.launchAtLogin; }, std::nullopt, false},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.name);
        Harness harness;
        harness.start();
        const int fetches = harness.fetches();
        testCase.command(*harness.model);
        harness.settle();
        EXPECT_EQ(harness.model->lastError(), testCase.error);
        EXPECT_TRUE(testCase.stored(harness.settings->settings()));
        EXPECT_EQ(harness.fetches(), fetches + (testCase.refreshes ? 1 : 0));
        EXPECT_EQ(harness.controller.showsOnAllDisplays(), harness.settings->settings().showsOnAllDisplays);
        if (testCase.error) {
            // A valid command afterwards takes the refusal back.
            harness.model->setAlertLeadTime(60);
            EXPECT_EQ(harness.model->lastError(), std::nullopt);
        }
    }
}

TEST(AppModel, CalendarSelectionIsStoredWithFingerprintsOnlyWhenEveryCalendarIsListed)
{
    const auto only = [](const CalendarDescriptor& calendar) {
        return std::optional(std::vector<CalendarSelectionRecord>{
            {calendar.identifier, CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title}}});
    };
    const auto work = workGroup().calendars[0];
    const auto home = workGroup().calendars[1];
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
        harness.start();
        // The fake source gives its groups away on the first read (the start's fetch), so they are set just before
        // the calendar list is read again.
        harness.source.groups = {workGroup()};
        runTask(harness.model->requestCalendarAccess());
        harness.settle();
        ASSERT_EQ(harness.model->calendarGroups().size(), 1U);
        harness.model->setSelectedCalendars(QSet{home.identifier});
        harness.settle();
        const QByteArray stored = harness.defaults.fileBytes();
        const int fetches = harness.fetches();

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
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600),
                               fixtures::meeting(u"external:review"_s, t0 + 900)};
    const auto standup = fixtures::exclusion(harness.source.meetings[0].identity);
    const auto review = fixtures::exclusion(harness.source.meetings[1].identity);
    harness.exclusions->add(standup);
    harness.exclusions->add(review);
    harness.start();
    EXPECT_TRUE(harness.model->upcoming().empty());
    EXPECT_EQ(harness.model->exclusions(), (std::vector{standup, review}));

    harness.model->removeExclusions({standup.id});
    harness.settle();
    EXPECT_EQ(harness.model->exclusions(), std::vector{review});
    EXPECT_EQ(harness.model->upcoming().size(), 1U);

    harness.model->removeAllExclusions();
    harness.settle();
    EXPECT_TRUE(harness.model->exclusions().empty());
    EXPECT_EQ(harness.model->upcoming().size(), 2U);
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, RecoveryResetsOnlyTheNamedRecordAndCalendarRecoveryWaitsForAll)
{
    Harness harness([](TemporaryDefaults& defaults) {
        NotifierSettings settings;
        settings.alertLeadTime = 300;
        SettingsStore(defaults.database()).save(settings);
        defaults.store(ExclusionStore::defaultKey, u"not a blob"_s);
        defaults.store(DeliveryStore::defaultKey, u"not a blob"_s);
    });
    harness.source.meetings = {fixtures::meeting(u"external:standup"_s, t0 + 600)};
    harness.start();
    const auto stored = [&](const QString& key) {
        return harness.defaults.stored(key);
    };
    const QVariant settings = stored(SettingsStore::defaultKey);

    harness.model->recoverCalendarIdentities();
    EXPECT_EQ(harness.model->lastError(),
              u"Stored meeting exclusions must be reviewed before calendar recovery can continue."_s);
    harness.model->recoverUnreadableRecord(PersistenceComponent::settings);
    EXPECT_EQ(stored(SettingsStore::defaultKey), settings) << "a readable record is never reset";
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
    EXPECT_EQ(stored(SettingsStore::defaultKey), settings);
    EXPECT_EQ(stored(DeliveryStore::defaultKey), QVariant(u"not a blob"_s));
    EXPECT_EQ(harness.model->lastError(), QString::fromUtf16(persistencePausedMessage));
    harness.model->recoverCalendarIdentities();
    EXPECT_EQ(harness.model->lastError(),
              u"Stored reminder history and snoozes must be reviewed before calendar recovery can continue."_s);

    harness.model->recoverUnreadableRecord(PersistenceComponent::delivery);
    harness.settle();
    EXPECT_EQ(stored(SettingsStore::defaultKey), settings);
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
    EXPECT_TRUE(harness.model->persistenceIssues().empty());
    EXPECT_EQ(harness.model->upcoming().size(), 1U);
    const int fetches = harness.fetches();
    harness.model->recoverCalendarIdentities();
    harness.settle();
    EXPECT_EQ(harness.fetches(), fetches + 1);
    EXPECT_EQ(harness.model->lastError(), std::nullopt);
}

TEST(AppModel, GrantedCalendarAccessLoadsTheCalendarsAndRefreshes)
{
    Harness harness;
    harness.local.state = CalendarAuthorizationState::notDetermined;
    harness.start();
    EXPECT_FALSE(harness.model->hasUsableCalendarSource());
    harness.source.groups = {workGroup()};
    const int fetches = harness.fetches();
    runTask(harness.model->requestCalendarAccess());
    harness.settle();
    EXPECT_EQ(harness.model->authorizationState(), CalendarAuthorizationState::fullAccess);
    EXPECT_EQ(harness.model->calendarGroups(), std::vector{workGroup()});
    EXPECT_EQ(harness.fetches(), fetches + 1);
}

} // namespace
