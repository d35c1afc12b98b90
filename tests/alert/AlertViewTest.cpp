// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertView.h"

#include "alert/AlertViewModel.h"
#include "fakes/FakeClock.h"
#include "support/MeetingFixtures.h"
#include "support/QtPrinters.h"

#include <QDir>
#include <QFont>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

constexpr double start = 700'000'000;

MeetingOccurrence withLink(MeetingOccurrence meeting)
{
    meeting.meetingURL = QUrl(u"https://meet.example.com/"_s + meeting.identity.seriesIdentifier);
    return meeting;
}

std::vector<MeetingOccurrence> oneMeeting()
{
    MeetingOccurrence review = withLink(fixtures::meeting(u"Design review"_s, start));
    review.location = u"Room 4.12, Harbour building"_s;
    return {review};
}

std::vector<MeetingOccurrence> threeMeetings()
{
    MeetingOccurrence standup = withLink(fixtures::meeting(u"Platform stand-up"_s, start, 15));
    standup.isRecurring = true;
    MeetingOccurrence interview = fixtures::meeting(u"Interview: senior engineer"_s, start);
    interview.location = u"Meeting room Birch"_s;
    MeetingOccurrence budget = withLink(fixtures::meeting(u"Budget sign-off with finance"_s, start + 120, 45));
    return {standup, interview, budget};
}

std::vector<MeetingIdentity> identitiesOf(const std::vector<MeetingOccurrence>& meetings)
{
    std::vector<MeetingIdentity> identities;
    for (const MeetingOccurrence& meeting : meetings) {
        identities.push_back(meeting.identity);
    }
    return identities;
}

/// The item or object named `name` below `from`, searching the visual tree (popups, view delegates) and the object
/// tree (menus declared inside buttons).
QObject* findNamed(QObject* from, const QString& name)
{
    if (from->objectName() == name) {
        return from;
    }
    if (auto* item = qobject_cast<QQuickItem*>(from)) {
        for (QQuickItem* child : item->childItems()) {
            if (QObject* found = findNamed(child, name)) {
                return found;
            }
        }
    }
    for (QObject* child : from->children()) {
        if (QObject* found = findNamed(child, name)) {
            return found;
        }
    }
    return nullptr;
}

class AlertViewTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // The offscreen platform has no GPU; the software scene graph renders the same scene for grabs.
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    }

    void show(std::vector<MeetingOccurrence> meetings, QSize size = {1440, 900})
    {
        window.reset();
        m_meetings = meetings;
        model = std::make_unique<AlertViewModel>(std::move(meetings), clock,
                                                 [this](FullScreenAlertAction action) { actions.push_back(action); });
        window = std::make_unique<QQuickWindow>();
        window->resize(size);
        QQuickItem* root = view.create(model.get(), window->contentItem());
        ASSERT_NE(root, nullptr) << view.errorString().toStdString();
        window->show();
        window->requestActivate();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
        ASSERT_TRUE(QTest::qWaitFor([this] { return findNamed(window->contentItem(), u"card_0"_s) != nullptr; }));
    }

    QQuickItem* item(const QString& name) const
    {
        return qobject_cast<QQuickItem*>(findNamed(window->contentItem(), name));
    }

    void click(const QString& name)
    {
        QQuickItem* target = item(name);
        ASSERT_NE(target, nullptr) << name.toStdString();
        ASSERT_TRUE(target->isVisible()) << name.toStdString();
        const QPointF centre = target->mapToScene(QPointF(target->width() / 2, target->height() / 2));
        QTest::mouseClick(window.get(), Qt::LeftButton, {}, centre.toPoint());
    }

    void saveScreenshot(const QString& fileName) const
    {
        const QDir directory(QStringLiteral(ORVANE_ALERT_ARTIFACTS_DIR));
        ASSERT_TRUE(directory.mkpath(u"."_s));
        const QImage image = window->grabWindow();
        ASSERT_FALSE(image.isNull());
        ASSERT_TRUE(image.save(directory.filePath(fileName)));
    }

    FakeClock clock{Date{start - 65}};
    QQmlEngine engine;
    AlertView view{engine};
    std::vector<FullScreenAlertAction> actions;
    std::vector<MeetingOccurrence> m_meetings;
    std::unique_ptr<AlertViewModel> model;
    std::unique_ptr<QQuickWindow> window;
};

TEST_F(AlertViewTest, oneMeetingStandsAloneWithItsJoinButton)
{
    show(oneMeeting());
    EXPECT_EQ(item(u"headline"_s)->property("text").toString(), u"Your meeting is almost here"_s);
    EXPECT_LE(item(u"card_0"_s)->width(), 540);
    EXPECT_GT(item(u"card_0"_s)->width(), 400);
    EXPECT_EQ(item(u"countdown_0"_s)->property("text").toString(), u"Starts in 1:05"_s);
    EXPECT_TRUE(model->isActive()) << "the countdown ticks while the alert is shown";
    saveScreenshot(u"alert-one-meeting.png"_s);

    QTest::keyClick(window.get(), Qt::Key_Return);
    ASSERT_EQ(actions.size(), 1U);
    EXPECT_EQ(actions[0], (FullScreenAlertAction{FullScreenAlertAction::Join{m_meetings[0]}}));
    EXPECT_FALSE(model->isActive()) << "an answered alert stops ticking";
    click(u"dismissButton"_s);
    EXPECT_EQ(actions.size(), 1U) << "an alert answers once";
}

TEST_F(AlertViewTest, severalMeetingsShareAGrid)
{
    show(threeMeetings());
    EXPECT_EQ(item(u"headline"_s)->property("text").toString(), u"Your meetings are almost here"_s);
    EXPECT_LE(item(u"cardArea"_s)->width(), 1120);
    QQuickItem* first = item(u"card_0"_s);
    QQuickItem* second = item(u"card_1"_s);
    ASSERT_NE(second, nullptr);
    EXPECT_GT(second->mapToScene({}).x(), first->mapToScene({}).x() + first->width()) << "two cards side by side";
    EXPECT_DOUBLE_EQ(second->mapToScene({}).y(), first->mapToScene({}).y()) << "cards of a row align at the top";
    EXPECT_FALSE(item(u"joinButton_1"_s)->isVisible()) << "a meeting without a link offers no join";
    EXPECT_TRUE(item(u"excludeMenuButton_0"_s)->isVisible());
    EXPECT_FALSE(item(u"excludeButton_0"_s)->isVisible()) << "a recurring meeting excludes through its menu";
    saveScreenshot(u"alert-three-meetings.png"_s);

    click(u"snoozeFiveMinutes"_s);
    ASSERT_EQ(actions.size(), 1U);
    EXPECT_EQ(actions[0], (FullScreenAlertAction{FullScreenAlertAction::Snooze{identitiesOf(m_meetings),
                                                                               FullScreenAlertSnooze::fiveMinutes}}));
}

TEST_F(AlertViewTest, whileTheScreenIsSharedCardsKeepTheirMeetingsToThemselves)
{
    show(oneMeeting());
    const QString title = item(u"title_0"_s)->property("text").toString();
    model->meetingModel()->setConcealed(true);
    EXPECT_FALSE(item(u"title_0"_s)->isVisible());
    saveScreenshot(u"alert-screen-shared.png"_s);
    const QImage shared = window->grabWindow();
    EXPECT_TRUE(item(u"countdown_0"_s)->isVisible());
    EXPECT_TRUE(item(u"joinButton_0"_s)->isVisible());
    const auto card = [&](int role) { return model->meetingModel()->data(model->meetingModel()->index(0), role); };
    for (int role : {AlertMeetingListModel::TitleRole, AlertMeetingListModel::TimeRangeRole,
                     AlertMeetingListModel::LocationRole}) {
        EXPECT_EQ(card(role).toString(), QString()) << role;
    }
    EXPECT_FALSE(card(AlertMeetingListModel::ExcludeAccessibleNameRole).toString().contains(title));

    // The share ends while the alert shows: the details come back.
    model->meetingModel()->setConcealed(false);
    EXPECT_TRUE(QTest::qWaitFor([&] { return item(u"title_0"_s)->isVisible(); }));
    EXPECT_NE(window->grabWindow(), shared);
}

TEST_F(AlertViewTest, returnDoesNothingWhenTheFirstMeetingHasNoLink)
{
    std::vector<MeetingOccurrence> meetings = threeMeetings();
    std::swap(meetings[0], meetings[1]);
    show(meetings);
    EXPECT_FALSE(item(u"joinButton_0"_s)->isVisible());
    QTest::keyClick(window.get(), Qt::Key_Return);
    QTest::keyClick(window.get(), Qt::Key_Enter);
    EXPECT_TRUE(actions.empty());

    QTest::keyClick(window.get(), Qt::Key_Escape);
    ASSERT_EQ(actions.size(), 1U);
    EXPECT_EQ(actions[0], (FullScreenAlertAction{FullScreenAlertAction::Dismiss{identitiesOf(m_meetings)}}));
}

TEST_F(AlertViewTest, exclusionOfARecurringMeetingAsksForTheScope)
{
    show(threeMeetings());
    click(u"excludeMenuButton_0"_s);
    ASSERT_TRUE(QTest::qWaitFor([this] {
        QQuickItem* option = item(u"excludeOption_series"_s);
        return option != nullptr && option->isVisible() && option->width() > 0;
    }));
    click(u"excludeOption_series"_s);
    ASSERT_EQ(actions.size(), 1U);
    EXPECT_EQ(actions[0],
              (FullScreenAlertAction{FullScreenAlertAction::Exclude{m_meetings[0], ExclusionScope::series}}));
}

TEST_F(AlertViewTest, aSingleEventIsExcludedAsAnOccurrence)
{
    show(threeMeetings());
    click(u"excludeButton_1"_s);
    ASSERT_EQ(actions.size(), 1U);
    EXPECT_EQ(actions[0],
              (FullScreenAlertAction{FullScreenAlertAction::Exclude{m_meetings[1], ExclusionScope::occurrence}}));
}

TEST_F(AlertViewTest, shortScreensGetTheCompactLayout)
{
    // One engine serves presentation after presentation.
    show(threeMeetings(), {1280, 650});
    EXPECT_EQ(item(u"headline"_s)->property("font").value<QFont>().pixelSize(), 38);
    QQuickItem* grid = item(u"meetingGrid"_s);
    EXPECT_LE(item(u"cardArea"_s)->mapToScene({0, item(u"cardArea"_s)->height()}).y(), 650);
    EXPECT_TRUE(grid->property("interactive").toBool()) << "cards that do not fit scroll";
    EXPECT_LE(item(u"dismissButton"_s)->mapToScene({0, item(u"dismissButton"_s)->height()}).y(), 650 - 24);
    saveScreenshot(u"alert-compact.png"_s);

    show(oneMeeting(), {1280, 900});
    EXPECT_EQ(item(u"headline"_s)->property("font").value<QFont>().pixelSize(), 54);
}

TEST_F(AlertViewTest, theCountdownFollowsTheClock)
{
    show(threeMeetings());
    QQuickItem* countdown = item(u"countdown_0"_s);
    EXPECT_EQ(countdown->property("text").toString(), u"Starts in 1:05"_s);
    clock.advance(10);
    model->tick();
    EXPECT_EQ(countdown->property("text").toString(), u"Starts in 55 sec"_s);
    EXPECT_EQ(item(u"countdown_2"_s)->property("text").toString(), u"Starts in 2:55"_s);
    clock.advance(185);
    model->tick();
    EXPECT_EQ(countdown->property("text").toString(), u"In progress \u00B7 started 2 min ago"_s);
}

} // namespace
