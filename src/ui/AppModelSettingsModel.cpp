// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/AppModelSettingsModel.h"

#include "model/AppModel.h"

namespace orvane {

AppModelSettingsModel::AppModelSettingsModel(AppModel& model, QObject* parent)
    : SettingsModel(parent)
    , m_model(model)
{
    connect(&m_model, &AppModel::changed, this, &SettingsModel::changed);
}

NotifierSettings AppModelSettingsModel::settings() const
{
    return m_model.settings();
}

std::vector<CalendarGroup> AppModelSettingsModel::calendarGroups() const
{
    return m_model.calendarGroups();
}

std::vector<CalendarSourceHealthIssue> AppModelSettingsModel::calendarSourceHealthIssues() const
{
    return m_model.calendarSourceHealthIssues();
}

std::vector<CalendarReconciliationIssue> AppModelSettingsModel::calendarReconciliationIssues() const
{
    return m_model.calendarReconciliationIssues();
}

std::vector<ExclusionRecord> AppModelSettingsModel::exclusions() const
{
    return m_model.exclusions();
}

std::vector<PersistenceIssue> AppModelSettingsModel::persistenceIssues() const
{
    return m_model.persistenceIssues();
}

QString AppModelSettingsModel::storageLocation() const
{
    return m_model.storageLocation();
}

std::optional<QString> AppModelSettingsModel::lastError() const
{
    return m_model.lastError();
}

void AppModelSettingsModel::setAlertLeadTime(double seconds)
{
    m_model.setAlertLeadTime(seconds);
}

void AppModelSettingsModel::setEligibilityMode(EligibilityMode mode)
{
    m_model.setEligibilityMode(mode);
}

void AppModelSettingsModel::setShowsOnAllDisplays(bool shows)
{
    m_model.setShowsOnAllDisplays(shows);
}

void AppModelSettingsModel::setLaunchAtLogin(bool launches)
{
    m_model.setLaunchAtLogin(launches);
}

void AppModelSettingsModel::setSelectedCalendars(const std::optional<QSet<QString>>& calendarIdentifiers)
{
    m_model.setSelectedCalendars(calendarIdentifiers);
}

void AppModelSettingsModel::removeExclusions(const QSet<QUuid>& ids)
{
    m_model.removeExclusions(ids);
}

void AppModelSettingsModel::removeAllExclusions()
{
    m_model.removeAllExclusions();
}

void AppModelSettingsModel::recoverUnreadableRecord(PersistenceComponent component)
{
    m_model.recoverUnreadableRecord(component);
}

void AppModelSettingsModel::recoverCalendarIdentities()
{
    m_model.recoverCalendarIdentities();
}

void AppModelSettingsModel::refresh()
{
    m_model.refresh();
}

bool AppModelSettingsModel::showTestAlert()
{
    return m_model.showTestAlert();
}

} // namespace orvane
