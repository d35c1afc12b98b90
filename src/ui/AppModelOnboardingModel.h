// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/OnboardingViewModel.h"

#include <functional>

namespace orvane {

class AppModel;

/// Onboarding's view of the application model.
/// Declares no signals of its own, so it needs no meta-object beyond its interface's.
class AppModelOnboardingModel final : public OnboardingModel {
public:
    /// `openCalendarApplication` starts the desktop's calendar application; false when there is none.
    AppModelOnboardingModel(AppModel& model, std::function<bool()> openCalendarApplication, QObject* parent = nullptr);

    CalendarAuthorizationState authorizationState() const override;
    std::vector<CalendarGroup> calendarGroups() const override;
    std::optional<QSet<QString>> selectedCalendars() const override;
    bool hasCompletedOnboarding() const override;
    std::optional<QString> lastError() const override;
    void requestCalendarAccess() override;
    void refresh() override;
    void setSelectedCalendars(const QSet<QString>& calendarIdentifiers) override;
    void setOnboardingCompleted() override;
    bool openCalendarApplication() override;

private:
    AppModel& m_model;
    std::function<bool()> m_openCalendarApplication;
};

} // namespace orvane
