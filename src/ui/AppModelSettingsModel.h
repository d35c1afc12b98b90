// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/SettingsViewModel.h"

namespace orvane {

class AppModel;

/// The settings window's view of the application model.
/// Declares no signals of its own, so it needs no meta-object beyond its interface's.
class AppModelSettingsModel final : public SettingsModel {
public:
    explicit AppModelSettingsModel(AppModel& model, QObject* parent = nullptr);

    NotifierSettings settings() const override;
    std::vector<CalendarGroup> calendarGroups() const override;
    std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const override;
    std::vector<CalendarReconciliationIssue> calendarReconciliationIssues() const override;
    std::vector<ExclusionRecord> exclusions() const override;
    std::vector<PersistenceIssue> persistenceIssues() const override;
    QString storageLocation() const override;
    std::optional<QString> lastError() const override;
    void setAlertLeadTime(double seconds) override;
    void setEligibilityMode(EligibilityMode mode) override;
    void setShowsOnAllDisplays(bool shows) override;
    void setLaunchAtLogin(bool launches) override;
    void setSelectedCalendars(const std::optional<QSet<QString>>& calendarIdentifiers) override;
    void removeExclusions(const QSet<QUuid>& ids) override;
    void removeAllExclusions() override;
    void recoverUnreadableRecord(PersistenceComponent component) override;
    void recoverCalendarIdentities() override;
    void refresh() override;
    bool showTestAlert() override;

private:
    AppModel& m_model;
};

} // namespace orvane
