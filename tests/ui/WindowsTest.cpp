// SPDX-License-Identifier: GPL-3.0-or-later
#include "SettingsFixtures.h"
#include "support/Patience.h"
#include "support/QtPrinters.h"
#include "ui/AboutViewModel.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/OnboardingViewModel.h"
#include "ui/StatusMenuViewModel.h"
#include "ui/WindowCoordinator.h"
#include "ui/WindowTexts.h"

#include <QCoreApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <functional>
#include <map>

using namespace Qt::StringLiterals;
using orvane::AboutViewModel;
using orvane::CalendarAuthorizationState;
using orvane::CalendarDescriptor;
using orvane::CalendarGroup;
using orvane::CalendarSourceKind;
using orvane::OnboardingViewModel;
using orvane::WindowCoordinator;
using Step = OnboardingViewModel::Step;
using settingsfixtures::bundle;
using settingsfixtures::FakeOnboardingModel;
using settingsfixtures::threeCalendars;

namespace {

/// The application model as onboarding sees it, with what it was asked to do.
TEST(OnboardingViewModelTest, AccessStepFollowsTheAuthorizationState)
{
    const struct {
        CalendarAuthorizationState state;
        bool problem;
        bool canChoose;
    } cases[] = {
        {CalendarAuthorizationState::notDetermined, false, false},
        {CalendarAuthorizationState::fullAccess, false, true},
        {CalendarAuthorizationState::denied, true, false},
        {CalendarAuthorizationState::restricted, true, false},
        {CalendarAuthorizationState::writeOnly, true, false},
        // The calendar service cannot be reached: the flow goes on to connect an account or finish without.
        {CalendarAuthorizationState::unknown, true, true},
    };
    QSet<QString> seen;
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.state));
        FakeOnboardingModel model;
        model.state = c.state;
        OnboardingViewModel onboarding(model);
        onboarding.continueFromWelcome();
        // Only an undecided state asks on arrival; the others wait for "Check Again".
        EXPECT_EQ(model.accessRequests, c.state == CalendarAuthorizationState::notDetermined ? 1 : 0);
        EXPECT_EQ(onboarding.accessIsProblem(), c.problem);
        EXPECT_EQ(onboarding.canChooseCalendars(), c.canChoose);
        onboarding.chooseCalendars();
        EXPECT_EQ(onboarding.step(), c.canChoose ? Step::calendars : Step::access);
        seen.insert(onboarding.accessText());
    }
    EXPECT_EQ(seen.size(), std::size(cases)) << "each state explains itself";
}

TEST(OnboardingViewModelTest, NoTextSendsALinuxUserToTheOtherPlatform)
{
    QStringList texts;
    for (const auto& map : {orvane::WindowTexts::onboardingTexts(), orvane::WindowTexts::aboutTexts()}) {
        for (const auto& value : map) {
            texts.append(value.toString());
        }
    }
    for (const auto state : orvane::allCases<CalendarAuthorizationState>()) {
        texts.append(orvane::WindowTexts::accessExplanation(state));
    }
    for (const QString& text : texts) {
        for (const auto* foreign :
             {"macOS", "Mac", "Privacy & Security", "System Settings", "Calendar.app", "Keychain", "menu bar"}) {
            EXPECT_FALSE(text.contains(QString::fromLatin1(foreign))) << text.toStdString();
        }
    }
}

TEST(OnboardingViewModelTest, StepsMoveForwardAndBack)
{
    FakeOnboardingModel model;
    OnboardingViewModel onboarding(model);
    const struct {
        void (OnboardingViewModel::*action)();
        Step expected;
        QString counter;
    } moves[] = {
        {&OnboardingViewModel::back, Step::welcome, u"Step 1 of 3"_s},
        {&OnboardingViewModel::continueFromWelcome, Step::access, u"Step 2 of 3"_s},
        {&OnboardingViewModel::resume, Step::access, u"Step 2 of 3"_s}, // first run: nothing to resume
        {&OnboardingViewModel::chooseCalendars, Step::calendars, u"Step 3 of 3"_s},
        {&OnboardingViewModel::back, Step::access, u"Step 2 of 3"_s},
        {&OnboardingViewModel::chooseCalendars, Step::calendars, u"Step 3 of 3"_s},
        {&OnboardingViewModel::finishSetup, Step::complete, QString()},
        {&OnboardingViewModel::back, Step::complete, QString()},
    };
    for (std::size_t i = 0; i < std::size(moves); ++i) {
        SCOPED_TRACE(i);
        (onboarding.*moves[i].action)();
        EXPECT_EQ(onboarding.step(), moves[i].expected);
        EXPECT_EQ(onboarding.stepCounter(), moves[i].counter);
    }
    EXPECT_EQ(onboarding.completeTitle(), u"You’re all set"_s);
}

TEST(OnboardingViewModelTest, ReopenedToRestoreAccessResumesInsteadOfChoosingAgain)
{
    FakeOnboardingModel model;
    model.completed = true;
    model.state = CalendarAuthorizationState::denied;
    OnboardingViewModel onboarding(model);
    onboarding.continueFromWelcome();
    EXPECT_FALSE(onboarding.offersResume());
    onboarding.checkAgain();
    EXPECT_EQ(model.accessRequests, 1);
    model.state = CalendarAuthorizationState::fullAccess;
    Q_EMIT model.changed();
    EXPECT_TRUE(onboarding.offersResume());
    EXPECT_FALSE(onboarding.canChooseCalendars());
    onboarding.resume();
    EXPECT_EQ(onboarding.step(), Step::complete);
    EXPECT_EQ(onboarding.completeTitle(), u"Calendar access restored"_s);
    EXPECT_FALSE(model.saved.has_value());
}

TEST(OnboardingViewModelTest, SelectionCounterFollowsTheSwitches)
{
    FakeOnboardingModel model;
    model.groups = threeCalendars();
    // A stored calendar that is no longer listed does not count.
    model.stored = QSet<QString>{u"work"_s, u"gone"_s};
    OnboardingViewModel onboarding(model);
    const std::pair<std::function<void()>, QString> steps[] = {
        {[] {}, u"1 of 3 selected"_s},
        {[&] { onboarding.setCalendarSelected(u"home"_s, true); }, u"2 of 3 selected"_s},
        {[&] { onboarding.setCalendarSelected(u"work"_s, false); }, u"1 of 3 selected"_s},
        {[&] { onboarding.clearSelection(); }, u"0 of 3 selected"_s},
        {[&] { onboarding.selectAll(); }, u"3 of 3 selected"_s},
        {[&] { onboarding.setCalendarSelected(u"birthdays"_s, false); }, u"2 of 3 selected"_s},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        steps[i].first();
        EXPECT_EQ(onboarding.selectionCounter(), steps[i].second) << i;
    }
    EXPECT_EQ(onboarding.selection(), (QSet<QString>{u"home"_s, u"work"_s}));

    const QVariantList groups = onboarding.calendarGroupList();
    ASSERT_EQ(groups.size(), 2);
    EXPECT_EQ(groups[0].toMap().value(u"title"_s).toString(), u"On This Computer"_s);
    EXPECT_EQ(groups[1].toMap().value(u"title"_s).toString(), u"me@example.com"_s);
    const QVariantMap birthdays = groups[0].toMap().value(u"calendars"_s).toList().at(1).toMap();
    EXPECT_FALSE(birthdays.value(u"selected"_s).toBool());
}

TEST(OnboardingViewModelTest, WithNothingStoredEveryCalendarIsCheckedEvenOnesThatAppearLater)
{
    FakeOnboardingModel model;
    OnboardingViewModel onboarding(model);
    EXPECT_FALSE(onboarding.hasCalendars());
    EXPECT_EQ(onboarding.selectionCounter(), u"0 of 0 selected"_s);
    onboarding.refresh();
    EXPECT_EQ(model.refreshes, 1);
    model.groups = threeCalendars();
    Q_EMIT model.changed();
    EXPECT_TRUE(onboarding.hasCalendars());
    EXPECT_EQ(onboarding.selectionCounter(), u"3 of 3 selected"_s);

    // No calendar application to open is reported until the user moves on.
    EXPECT_FALSE(onboarding.openCalendarApplication());
    EXPECT_FALSE(onboarding.errorText().isEmpty());
    onboarding.continueFromWelcome();
    EXPECT_TRUE(onboarding.errorText().isEmpty());
}

TEST(OnboardingViewModelTest, FinishingStoresTheChoiceAndMarksOnboardingDone)
{
    const std::pair<void (OnboardingViewModel::*)(), QSet<QString>> cases[] = {
        {&OnboardingViewModel::finishSetup, {u"home"_s, u"work"_s}},
        {&OnboardingViewModel::finishWithoutCalendars, {}},
    };
    for (const auto& [finish, saved] : cases) {
        SCOPED_TRACE(saved.size());
        FakeOnboardingModel model;
        model.groups = threeCalendars();
        OnboardingViewModel onboarding(model);
        onboarding.setCalendarSelected(u"birthdays"_s, false);
        (onboarding.*finish)();
        EXPECT_FALSE(model.completed) << "finishing is only possible from the calendars step";
        onboarding.continueFromWelcome();
        onboarding.chooseCalendars();
        (onboarding.*finish)();
        EXPECT_TRUE(model.completed);
        EXPECT_EQ(model.saved, std::optional(saved));
        EXPECT_EQ(onboarding.step(), Step::complete);
        int closes = 0;
        QObject::connect(&onboarding, &OnboardingViewModel::closeRequested, [&] { ++closes; });
        onboarding.done();
        EXPECT_EQ(closes, 1);
    }
}

TEST(AboutViewModelTest, VersionLine)
{
    const std::pair<std::map<QString, QString>, QString> cases[] = {
        {{{u"CFBundleShortVersionString"_s, u"0.1.0"_s}, {u"CFBundleVersion"_s, u"1"_s}}, u"Version 0.1.0 (1)"_s},
        {{{u"CFBundleShortVersionString"_s, u"0.1.0"_s}}, u"Version 0.1.0 (Unknown)"_s},
        {{{u"CFBundleShortVersionString"_s, u""_s}, {u"CFBundleVersion"_s, u"7"_s}}, u"Version Unknown (7)"_s},
        {{}, u"Version Unknown (Unknown)"_s},
    };
    for (const auto& [values, expected] : cases) {
        EXPECT_EQ(AboutViewModel(bundle(values), {}).versionLine(), expected);
    }
}

TEST(AboutViewModelTest, OnlyConfiguredWebLinksAreShownAndOpened)
{
    const std::pair<std::map<QString, QString>, QStringList> cases[] = {
        {{{u"OrvaneWebsiteURL"_s, u"https://orvane.example/"_s},
          {u"OrvanePrivacyURL"_s, u"https://orvane.example/privacy"_s},
          {u"OrvaneTermsURL"_s, u"https://orvane.example/terms"_s},
          {u"OrvaneSupportURL"_s, u"https://orvane.example/support"_s},
          {u"OrvaneUpdateURL"_s, u"https://orvane.example/updates"_s}},
         {u"Website"_s, u"Privacy"_s, u"Terms"_s, u"Support"_s, u"Updates"_s}},
        {{{u"OrvaneSupportURL"_s, u"https://orvane.example/support"_s},
          {u"OrvaneWebsiteURL"_s, u"orvane.example"_s},
          {u"OrvanePrivacyURL"_s, u"file:///etc/passwd"_s},
          {u"OrvaneTermsURL"_s, u"https://"_s}},
         {u"Support"_s}},
    };
    for (const auto& [values, expected] : cases) {
        QStringList titles;
        const AboutViewModel about(bundle(values), {});
        for (const auto& link : about.links()) {
            titles.append(link.title);
        }
        EXPECT_EQ(titles, expected);
    }

    std::vector<QUrl> opened;
    AboutViewModel about(bundle({{u"OrvaneTermsURL"_s, u"https://orvane.example/terms"_s}}), [&](const QUrl& url) {
        opened.push_back(url);
        return true;
    });
    EXPECT_TRUE(about.openLink(0));
    EXPECT_FALSE(about.openLink(1));
    EXPECT_FALSE(about.openLink(-1));
    EXPECT_EQ(opened, std::vector{QUrl(u"https://orvane.example/terms"_s)});
}

/// Collects what Qt warns about while a scene loads and first renders.
class WarningCollector {
public:
    WarningCollector() { s_warnings.clear(), m_previous = qInstallMessageHandler(&collect); }
    ~WarningCollector() { qInstallMessageHandler(m_previous); }
    static inline QStringList s_warnings;

private:
    static void collect(QtMsgType type, const QMessageLogContext&, const QString& message)
    {
        // The offscreen platform cannot raise a window and says so each time.
        if (type != QtDebugMsg && type != QtInfoMsg && !message.contains(u"does not support raise()"_s)) {
            s_warnings.append(message);
        }
    }
    QtMessageHandler m_previous;
};

/// The item named `objectName` anywhere in the window: among QObject children and, for what loaders, repeaters and
/// popups create, among the visual children too.
QQuickItem* findItem(QQuickWindow& window, const QString& objectName)
{
    std::vector<QObject*> pending{&window, window.contentItem()};
    QSet<QObject*> seen;
    while (!pending.empty()) {
        QObject* const object = pending.back();
        pending.pop_back();
        if (object == nullptr || seen.contains(object)) {
            continue;
        }
        seen.insert(object);
        auto* const item = qobject_cast<QQuickItem*>(object);
        if (item != nullptr && object->objectName() == objectName) {
            return item;
        }
        for (QObject* child : object->children()) {
            pending.push_back(child);
        }
        if (item != nullptr) {
            for (QQuickItem* child : item->childItems()) {
                pending.push_back(child);
            }
        }
    }
    return nullptr;
}

QString textOf(QQuickWindow& window, const char* objectName)
{
    auto* item = findItem(window, QString::fromLatin1(objectName));
    return item == nullptr ? u"<missing>"_s : item->property("text").toString();
}

/// The coordinator with every model it shows.
struct Windows {
    FakeOnboardingModel model;
    settingsfixtures::FakeSettingsModel settings;
    settingsfixtures::FakeConnectedAccountsModel accounts;
    settingsfixtures::ScriptedLaunchService launchService;
    orvane::LaunchAtLoginController launchAtLogin{launchService};
    /// The status menu settings offers while no tray does, and what was chosen in it.
    std::vector<orvane::StatusMenuAction> chosen;
    orvane::StatusMenuViewModel statusMenu{
        [this](orvane::StatusMenuAction action, const std::optional<orvane::MeetingOccurrence>&) {
            chosen.push_back(action);
        }};
    WindowCoordinator coordinator{{.onboarding = model,
                                   .settings = settings,
                                   .launchAtLogin = launchAtLogin,
                                   .bundleValue = bundle({{u"CFBundleShortVersionString"_s, u"0.1.0"_s},
                                                          {u"CFBundleVersion"_s, u"1"_s},
                                                          {u"OrvaneWebsiteURL"_s, u"https://orvane.example/"_s}}),
                                   .openUrl = {},
                                   .accounts = &accounts,
                                   .activateWithToken = [this](QWindow& window, const QString& token) {
                                       activations.emplace_back(&window, token);
                                   }}};
    std::vector<std::pair<QWindow*, QString>> activations;
    Windows()
    {
        statusMenu.setEntries(settingsfixtures::sampleMenu());
        coordinator.setStatusMenu(&statusMenu);
    }
};

TEST(WindowCoordinatorTest, WindowsLoadShowTheirTitlesAndAreReused)
{
    Windows all;
    FakeOnboardingModel& model = all.model;
    WindowCoordinator& windows = all.coordinator;
    model.groups = threeCalendars();
    WarningCollector collector;

    windows.openOnboarding();
    ASSERT_NE(windows.onboardingWindow(), nullptr) << windows.errorString().toStdString();
    QQuickWindow& onboarding = *windows.onboardingWindow();
    EXPECT_EQ(onboarding.title(), u"Welcome to Orvane"_s);
    EXPECT_TRUE(onboarding.isVisible());
    EXPECT_EQ(textOf(onboarding, "stepCounter"), u"Step 1 of 3"_s);
    windows.onboardingViewModel()->continueFromWelcome();
    windows.onboardingViewModel()->chooseCalendars();
    EXPECT_EQ(textOf(onboarding, "selectionCounter"), u"3 of 3 selected"_s);

    // An open window keeps the user's place; a closed one starts over.
    windows.openOnboarding();
    EXPECT_EQ(windows.onboardingWindow(), &onboarding);
    EXPECT_EQ(windows.onboardingViewModel()->step(), Step::calendars);
    windows.onboardingViewModel()->finishSetup();
    windows.onboardingViewModel()->done();
    EXPECT_FALSE(onboarding.isVisible());
    windows.openOnboarding();
    EXPECT_EQ(windows.onboardingWindow(), &onboarding);
    EXPECT_EQ(windows.onboardingViewModel()->step(), Step::welcome);

    windows.openAbout();
    ASSERT_NE(windows.aboutWindow(), nullptr) << windows.errorString().toStdString();
    QQuickWindow& about = *windows.aboutWindow();
    EXPECT_EQ(about.title(), u"About Orvane"_s);
    EXPECT_EQ(textOf(about, "versionLine"), u"Version 0.1.0 (1)"_s);
    windows.openAbout();
    EXPECT_EQ(windows.aboutWindow(), &about);

    EXPECT_EQ(WarningCollector::s_warnings, QStringList());
}

TEST(WindowCoordinatorTest, OnboardingWithoutCalendarsOffersTheConnectSheet)
{
    Windows all;
    WarningCollector collector;
    all.coordinator.openOnboarding();
    ASSERT_NE(all.coordinator.onboardingWindow(), nullptr) << all.coordinator.errorString().toStdString();
    all.coordinator.onboardingViewModel()->continueFromWelcome();
    all.coordinator.onboardingViewModel()->chooseCalendars();
    QQuickWindow& window = *all.coordinator.onboardingWindow();
    auto* connectButton = window.findChild<QQuickItem*>(u"connectButton"_s);
    ASSERT_NE(connectButton, nullptr);
    EXPECT_TRUE(connectButton->isVisible());
    auto* sheet = window.findChild<QObject*>(u"connectSheet"_s);
    ASSERT_NE(sheet, nullptr);
    QMetaObject::invokeMethod(sheet, "open");
    ASSERT_TRUE(QTest::qWaitFor([&] { return findItem(window, u"connect_google"_s) != nullptr; }, patience));
    EXPECT_EQ(sheet->property("title").toString(), u"Connect a direct calendar account"_s);
    QMetaObject::invokeMethod(findItem(window, u"connect_microsoft"_s), "clicked");
    ASSERT_EQ(all.accounts.connects.size(), 1u);
    EXPECT_EQ(all.accounts.connects[0].first, orvane::RemoteCalendarProviderKind::microsoft);
    EXPECT_EQ(WarningCollector::s_warnings, QStringList());

    // A copy that cannot connect accounts does not offer it.
    all.accounts.supported = false;
    Q_EMIT all.accounts.changed();
    EXPECT_FALSE(connectButton->isVisible());
}

TEST(WindowCoordinatorTest, LaunchingAgainBringsOpenWindowsForwardAsTheyAre)
{
    using Section = orvane::WindowCoordinating::SettingsSection;
    Windows all;
    WindowCoordinator& windows = all.coordinator;
    windows.openSettings(Section::calendars);
    windows.openAbout();
    ASSERT_TRUE(windows.settingsWindow() && windows.aboutWindow());

    windows.reopen(true, u"launch-1"_s);
    EXPECT_EQ(windows.settingsViewModel()->section(), Section::calendars) << "the user's place is kept";
    EXPECT_EQ(windows.onboardingWindow(), nullptr);
    ASSERT_EQ(all.activations.size(), 1u) << "one token, one activation";
    EXPECT_EQ(all.activations[0].first, windows.settingsWindow());
    EXPECT_EQ(all.activations[0].second, u"launch-1"_s);

    // With nothing open: settings when the calendars are usable, otherwise onboarding.
    windows.settingsWindow()->close();
    windows.aboutWindow()->close();
    windows.reopen(false, QString());
    ASSERT_NE(windows.onboardingWindow(), nullptr);
    EXPECT_TRUE(windows.onboardingWindow()->isVisible());
    EXPECT_FALSE(windows.settingsWindow()->isVisible());
    windows.onboardingWindow()->close();
    windows.reopen(true, QString());
    EXPECT_TRUE(windows.settingsWindow()->isVisible());
    EXPECT_EQ(windows.settingsViewModel()->section(), Section::general);

    // Without a tray, launching again is how the user reaches the menu.
    all.statusMenu.setNeeded(true);
    windows.settingsWindow()->close();
    windows.reopen(true, QString());
    EXPECT_EQ(windows.settingsViewModel()->section(), Section::menu);
}

TEST(WindowCoordinatorTest, EverySettingsSectionLoadsWithoutWarnings)
{
    using Section = orvane::WindowCoordinating::SettingsSection;
    Windows all;
    WindowCoordinator& windows = all.coordinator;
    WarningCollector collector;
    // Empty first (no calendars, no exclusions), then filled, then with a record to review.
    const std::function<void()> states[] = {
        [] {},
        [&] {
            settingsfixtures::fill(all.settings);
            settingsfixtures::fill(all.accounts);
        },
        [&] {
            all.settings.error = QString::fromUtf16(orvane::persistencePausedMessage);
            all.settings.unreadable = {
                {orvane::PersistenceComponent::settings, {orvane::PersistenceReadFailure::InvalidPayload{}}}};
        },
    };
    all.statusMenu.setNeeded(true);
    for (std::size_t state = 0; state < std::size(states); ++state) {
        states[state]();
        Q_EMIT all.settings.changed();
        Q_EMIT all.accounts.changed();
        for (const auto section : {Section::general, Section::calendars, Section::accounts, Section::exclusions,
                                   Section::storedData, Section::menu}) {
            SCOPED_TRACE(testing::Message() << "state " << state << ", section " << static_cast<int>(section));
            all.settings.unreadable.empty() ? windows.openSettings(section)
                                            : windows.settingsViewModel()->setSectionIndex(static_cast<int>(section));
            ASSERT_NE(windows.settingsWindow(), nullptr) << windows.errorString().toStdString();
            QQuickWindow& window = *windows.settingsWindow();
            EXPECT_EQ(window.title(), u"Orvane Settings"_s);
            const bool reviewing = !all.settings.unreadable.empty();
            const auto* pages = window.findChild<QQuickItem*>(u"pages"_s);
            ASSERT_NE(pages, nullptr);
            EXPECT_EQ(pages->property("currentIndex").toInt(),
                      static_cast<int>(section == Section::storedData && !reviewing ? Section::general : section));
            QCoreApplication::processEvents();
        }
    }
    auto& window = *windows.settingsWindow();
    EXPECT_EQ(textOf(window, "errorText"), QString::fromUtf16(orvane::persistencePausedMessage));
    EXPECT_EQ(textOf(window, "storedDataHeading"), u"Alerts paused to protect your choices"_s);
    EXPECT_EQ(textOf(window, "accountState1"),
              u"The provider no longer accepts this account's sign-in (invalid_grant). Reconnect the account."_s);
    EXPECT_EQ(textOf(window, "selectionCounter"), u"3 of 4 selected"_s);
    // The menu's buttons reach the menu's handler: the standup's "Exclude this meeting", then "Quit Orvane".
    EXPECT_EQ(textOf(window, "menuText1"), u"2:05 PM  Team standup"_s);
    QMetaObject::invokeMethod(findItem(window, u"menuAction1_1"_s), "clicked");
    QMetaObject::invokeMethod(findItem(window, u"menuAction10"_s), "clicked");
    EXPECT_EQ(all.chosen, (std::vector{orvane::StatusMenuAction::excludeSeries, orvane::StatusMenuAction::quit}));
    windows.openSettings(Section::general);
    EXPECT_EQ(windows.settingsWindow(), &window) << "reused";
    EXPECT_EQ(WarningCollector::s_warnings, QStringList());
}

} // namespace
