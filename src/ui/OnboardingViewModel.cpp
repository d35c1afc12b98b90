// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/OnboardingViewModel.h"

using namespace Qt::StringLiterals;

namespace orvane {

OnboardingViewModel::OnboardingViewModel(OnboardingModel& model, QObject* parent)
    : QObject(parent)
    , m_model(model)
{
    connect(&m_model, &OnboardingModel::changed, this, &OnboardingViewModel::changed);
    restart();
}

void OnboardingViewModel::restart()
{
    m_step = Step::welcome;
    m_restoringAccess = m_model.hasCompletedOnboarding();
    m_selection = CalendarSelection(m_model.selectedCalendars());
    m_notice.reset();
    Q_EMIT changed();
}

QVariantMap OnboardingViewModel::texts() const
{
    return WindowTexts::onboardingTexts();
}

QString OnboardingViewModel::stepTitle() const
{
    return WindowTexts::stepTitle(m_step);
}

QString OnboardingViewModel::stepCounter() const
{
    return WindowTexts::stepCounter(m_step);
}

QString OnboardingViewModel::accessText() const
{
    return WindowTexts::accessExplanation(m_model.authorizationState());
}

bool OnboardingViewModel::accessIsProblem() const
{
    return WindowTexts::isAccessProblem(m_model.authorizationState());
}

bool OnboardingViewModel::canChooseCalendars() const
{
    // Without the desktop calendar service the flow goes on too: the calendars step offers to connect an account
    // directly or to finish without calendars, rather than leaving the user at a dead end.
    const auto state = m_model.authorizationState();
    return (state == CalendarAuthorizationState::fullAccess || state == CalendarAuthorizationState::unknown) &&
           !offersResume();
}

bool OnboardingViewModel::offersResume() const
{
    return m_restoringAccess && m_model.authorizationState() == CalendarAuthorizationState::fullAccess;
}

QVariantList OnboardingViewModel::calendarGroupList() const
{
    return m_selection.groupList(m_model.calendarGroups());
}

qsizetype OnboardingViewModel::calendarCount() const
{
    return CalendarSelection::calendarCount(m_model.calendarGroups());
}

bool OnboardingViewModel::hasCalendars() const
{
    return calendarCount() > 0;
}

QSet<QString> OnboardingViewModel::selection() const
{
    return m_selection.listed(m_model.calendarGroups());
}

int OnboardingViewModel::selectedCount() const
{
    return static_cast<int>(selection().size());
}

QString OnboardingViewModel::selectionCounter() const
{
    return m_selection.counter(m_model.calendarGroups());
}

QString OnboardingViewModel::completeTitle() const
{
    return WindowTexts::completeTitle(m_restoringAccess);
}

QString OnboardingViewModel::errorText() const
{
    return m_notice ? *m_notice : m_model.lastError().value_or(QString());
}

void OnboardingViewModel::goTo(Step step)
{
    m_step = step;
    m_notice.reset();
    Q_EMIT changed();
}

void OnboardingViewModel::continueFromWelcome()
{
    goTo(Step::access);
    // The access step asks at once when nobody has decided yet, so the explanation is read beside the request.
    if (m_model.authorizationState() == CalendarAuthorizationState::notDetermined) {
        m_model.requestCalendarAccess();
    }
}

void OnboardingViewModel::back()
{
    switch (m_step) {
    case Step::access:
        goTo(Step::welcome);
        break;
    case Step::calendars:
        goTo(Step::access);
        break;
    case Step::welcome:
    case Step::complete:
        break;
    }
}

void OnboardingViewModel::checkAgain()
{
    m_model.requestCalendarAccess();
}

void OnboardingViewModel::chooseCalendars()
{
    if (m_step == Step::access && canChooseCalendars()) {
        goTo(Step::calendars);
    }
}

void OnboardingViewModel::resume()
{
    if (m_step == Step::access && offersResume()) {
        goTo(Step::complete);
    }
}

void OnboardingViewModel::setCalendarSelected(const QString& identifier, bool selected)
{
    m_selection.set(m_model.calendarGroups(), identifier, selected);
    Q_EMIT changed();
}

void OnboardingViewModel::selectAll()
{
    m_selection.selectAll();
    Q_EMIT changed();
}

void OnboardingViewModel::clearSelection()
{
    m_selection.clear();
    Q_EMIT changed();
}

void OnboardingViewModel::refresh()
{
    m_model.refresh();
}

void OnboardingViewModel::finish(const QSet<QString>& selection)
{
    m_model.setSelectedCalendars(selection);
    m_model.setOnboardingCompleted();
    goTo(Step::complete);
}

void OnboardingViewModel::finishSetup()
{
    if (m_step == Step::calendars) {
        finish(selection());
    }
}

void OnboardingViewModel::finishWithoutCalendars()
{
    if (m_step == Step::calendars) {
        finish({});
    }
}

bool OnboardingViewModel::openCalendarApplication()
{
    const bool opened = m_model.openCalendarApplication();
    if (!opened) {
        m_notice = WindowTexts::onboardingTexts().value(u"openCalendarFailed"_s).toString();
        Q_EMIT changed();
    }
    return opened;
}

void OnboardingViewModel::done()
{
    Q_EMIT closeRequested();
}

} // namespace orvane
