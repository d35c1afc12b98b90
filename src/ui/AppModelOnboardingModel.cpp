// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/AppModelOnboardingModel.h"

#include "model/AppModel.h"
#include "ui/CalendarSelection.h"

#include <utility>

namespace orvane {

AppModelOnboardingModel::AppModelOnboardingModel(AppModel& model, std::function<bool()> openCalendarApplication,
                                                 QObject* parent)
    : OnboardingModel(parent)
    , m_model(model)
    , m_openCalendarApplication(std::move(openCalendarApplication))
{
    connect(&m_model, &AppModel::changed, this, &OnboardingModel::changed);
}

CalendarAuthorizationState AppModelOnboardingModel::authorizationState() const
{
    return m_model.authorizationState();
}

std::vector<CalendarGroup> AppModelOnboardingModel::calendarGroups() const
{
    return m_model.calendarGroups();
}

std::optional<QSet<QString>> AppModelOnboardingModel::selectedCalendars() const
{
    return CalendarSelection::fromRecords(m_model.settings().selectedCalendars);
}

bool AppModelOnboardingModel::hasCompletedOnboarding() const
{
    return m_model.hasCompletedOnboarding();
}

std::optional<QString> AppModelOnboardingModel::lastError() const
{
    return m_model.lastError();
}

void AppModelOnboardingModel::requestCalendarAccess()
{
    // The request reports through the model's state and lastError(); the task finishes on its own when dropped.
    [[maybe_unused]] auto requesting = m_model.requestCalendarAccess();
}

void AppModelOnboardingModel::refresh()
{
    m_model.refresh();
}

void AppModelOnboardingModel::setSelectedCalendars(const QSet<QString>& calendarIdentifiers)
{
    m_model.setSelectedCalendars(calendarIdentifiers);
}

void AppModelOnboardingModel::setOnboardingCompleted()
{
    m_model.setOnboardingCompleted(true);
}

bool AppModelOnboardingModel::openCalendarApplication()
{
    return m_openCalendarApplication && m_openCalendarApplication();
}

} // namespace orvane
