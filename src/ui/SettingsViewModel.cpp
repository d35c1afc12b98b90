// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/SettingsViewModel.h"

#include "domain/RawValue.h"
#include "ui/CalendarSelection.h"
#include "ui/LaunchAtLoginController.h"
#include "ui/SettingsTexts.h"
#include "ui/StatusMenuViewModel.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

constexpr int secondsPerMinute = 60;

QString exclusionTitle(const ExclusionRecord& record)
{
    return record.eventTitle.value_or(QString()).isEmpty() ? u"Untitled event"_s : *record.eventTitle;
}

/// The date a row shows: when the excluded occurrence takes place, or when a whole series was excluded.
QString exclusionDate(const ExclusionRecord& record)
{
    const QLocale locale;
    if (record.scope == ExclusionScope::occurrence) {
        return locale.toString(record.identity.scheduledStart.toDateTime().toLocalTime(),
                               u"ddd, MMM d, yyyy, h:mm AP"_s);
    }
    return u"Excluded on %1"_s.arg(locale.toString(record.createdAt.toDateTime().toLocalTime(), u"MMM d, yyyy"_s));
}

Date sortDate(const ExclusionRecord& record)
{
    return record.scope == ExclusionScope::occurrence ? record.identity.scheduledStart : record.createdAt;
}

} // namespace

SettingsViewModel::SettingsViewModel(SettingsModel& model, LaunchAtLoginController& launchAtLogin, QObject* parent)
    : QObject(parent)
    , m_model(model)
    , m_launchAtLogin(launchAtLogin)
{
    connect(&m_model, &SettingsModel::changed, this, &SettingsViewModel::modelChanged);
    connect(&m_launchAtLogin, &LaunchAtLoginController::changed, this, &SettingsViewModel::changed);
    m_hadPersistenceIssues = hasPersistenceIssues();
    open(Section::general);
}

bool SettingsViewModel::hasPersistenceIssues() const
{
    return !m_model.persistenceIssues().empty();
}

void SettingsViewModel::modelChanged()
{
    const bool hasIssues = hasPersistenceIssues();
    if (hasIssues && !m_hadPersistenceIssues) {
        m_section = Section::storedData;
    } else if (!hasIssues && m_section == Section::storedData) {
        // The last record was reset and alerts resume: the review has nothing left to show.
        m_section = Section::general;
    }
    m_hadPersistenceIssues = hasIssues;
    Q_EMIT changed();
}

QVariantMap SettingsViewModel::texts() const
{
    return SettingsTexts::texts();
}

QString SettingsViewModel::errorText() const
{
    return m_model.lastError().value_or(QString());
}

bool SettingsViewModel::isListed(Section section) const
{
    switch (section) {
    case Section::storedData:
        return hasPersistenceIssues();
    case Section::menu:
        return m_statusMenu != nullptr && m_statusMenu->isNeeded();
    case Section::general:
    case Section::calendars:
    case Section::accounts:
    case Section::exclusions:
        return true;
    }
    return false;
}

QVariantList SettingsViewModel::sectionList() const
{
    QVariantList sections;
    // The menu first: on a desktop without a tray it is what the user opens Orvane for.
    for (const auto section : {Section::menu, Section::general, Section::calendars, Section::accounts,
                               Section::exclusions, Section::storedData}) {
        if (isListed(section)) {
            sections.append(QVariantMap{{u"section"_s, static_cast<int>(section)},
                                        {u"title"_s, SettingsTexts::sectionTitle(section)}});
        }
    }
    return sections;
}

void SettingsViewModel::setSectionIndex(int index)
{
    if (index < 0 || index > static_cast<int>(Section::menu)) {
        return;
    }
    const auto section = static_cast<Section>(index);
    if (isListed(section) && section != m_section) {
        m_section = section;
        Q_EMIT changed();
    }
}

void SettingsViewModel::open(Section section)
{
    m_section = hasPersistenceIssues() ? Section::storedData : isListed(section) ? section : Section::general;
    Q_EMIT changed();
}

QObject* SettingsViewModel::statusMenu() const
{
    return m_statusMenu;
}

void SettingsViewModel::setStatusMenu(StatusMenuViewModel* menu)
{
    m_statusMenu = menu;
    if (m_statusMenu == nullptr) {
        return;
    }
    connect(m_statusMenu, &StatusMenuViewModel::neededChanged, this, [this] {
        // A tray took the menu over: the page would offer what the tray now does.
        if (m_section == Section::menu && !isListed(Section::menu)) {
            m_section = Section::general;
        }
        Q_EMIT changed();
    });
}

int SettingsViewModel::leadTimeMinutes() const
{
    return static_cast<int>(std::lround(m_model.settings().alertLeadTime / secondsPerMinute));
}

int SettingsViewModel::maximumLeadTimeMinutes()
{
    return static_cast<int>(NotifierSettings::maximumAlertLeadTime) / secondsPerMinute;
}

QString SettingsViewModel::leadTimeSummary() const
{
    return SettingsTexts::leadTimeSummary(leadTimeMinutes());
}

QStringList SettingsViewModel::eligibilityOptions() const
{
    QStringList titles;
    for (const auto mode : allCases<EligibilityMode>()) {
        titles.append(SettingsTexts::eligibilityTitle(mode));
    }
    return titles;
}

EligibilityMode SettingsViewModel::eligibilityMode() const
{
    return m_model.settings().eligibilityMode;
}

int SettingsViewModel::eligibilityModeIndex() const
{
    const auto modes = allCases<EligibilityMode>();
    return static_cast<int>(std::find(modes.begin(), modes.end(), eligibilityMode()) - modes.begin());
}

bool SettingsViewModel::launchAtLoginOn() const
{
    return m_launchAtLogin.isOn();
}

bool SettingsViewModel::launchAtLoginAvailable() const
{
    return m_launchAtLogin.state() != LaunchAtLoginController::State::unavailable;
}

QString SettingsViewModel::launchAtLoginNote() const
{
    return m_launchAtLogin.note().value_or(QString());
}

QString SettingsViewModel::launchAtLoginError() const
{
    return m_launchAtLogin.errorMessage().value_or(QString());
}

bool SettingsViewModel::showsOnAllDisplays() const
{
    return m_model.settings().showsOnAllDisplays;
}

QVariantList SettingsViewModel::calendarGroupList() const
{
    return CalendarSelection(CalendarSelection::fromRecords(m_model.settings().selectedCalendars))
        .groupList(m_model.calendarGroups());
}

bool SettingsViewModel::hasCalendars() const
{
    return CalendarSelection::calendarCount(m_model.calendarGroups()) > 0;
}

QString SettingsViewModel::selectionCounter() const
{
    return CalendarSelection(CalendarSelection::fromRecords(m_model.settings().selectedCalendars))
        .counter(m_model.calendarGroups());
}

QVariantList SettingsViewModel::sourceHealthIssueList() const
{
    QVariantList issues;
    for (const auto& issue : m_model.calendarSourceHealthIssues()) {
        issues.append(QVariantMap{{u"name"_s, issue.title()},
                                  {u"message"_s, issue.message},
                                  {u"action"_s, SettingsTexts::sourceHealthAction(issue.requiresReauthentication)},
                                  {u"reconnect"_s, issue.requiresReauthentication}});
    }
    return issues;
}

QVariantList SettingsViewModel::reconciliationIssueList() const
{
    QVariantList issues;
    for (const auto& issue : m_model.calendarReconciliationIssues()) {
        issues.append(QVariantMap{{u"title"_s, issue.title}, {u"message"_s, issue.message}});
    }
    return issues;
}

QVariantList SettingsViewModel::exclusionList() const
{
    auto records = m_model.exclusions();
    std::stable_sort(records.begin(), records.end(), [](const ExclusionRecord& a, const ExclusionRecord& b) {
        if (const int byTitle =
                QString::localeAwareCompare(exclusionTitle(a).toCaseFolded(), exclusionTitle(b).toCaseFolded());
            byTitle != 0) {
            return byTitle < 0;
        }
        if (a.scope != b.scope) {
            return a.scope == ExclusionScope::series;
        }
        return sortDate(a) < sortDate(b);
    });
    QVariantList rows;
    for (const auto& record : records) {
        rows.append(QVariantMap{
            {u"id"_s, record.id.toString(QUuid::WithoutBraces)},
            {u"title"_s, exclusionTitle(record)},
            {u"calendar"_s,
             record.calendarTitle.value_or(QString()).isEmpty() ? u"Unknown calendar"_s : *record.calendarTitle},
            {u"scope"_s, SettingsTexts::exclusionScopeTitle(record.scope)},
            {u"date"_s, exclusionDate(record)},
        });
    }
    return rows;
}

QVariantList SettingsViewModel::storedDataIssueList() const
{
    QVariantList rows;
    const auto issues = m_model.persistenceIssues();
    // A file that cannot be read at all is one item, however many records it holds: one reset serves them all.
    if (!issues.empty() && issues.front().failure.isUnreadableDatabase()) {
        const QString title = unreadableDatabaseTitle();
        rows.append(QVariantMap{
            {u"component"_s, static_cast<int>(issues.front().component)},
            {u"title"_s, title},
            {u"message"_s, unreadableDatabaseExplanation(m_model.storageLocation())},
            {u"confirmationTitle"_s, SettingsTexts::resetTitle(title.toLower())},
            {u"confirmation"_s, unreadableDatabaseResetConfirmation()},
        });
        return rows;
    }
    for (const auto& issue : issues) {
        rows.append(QVariantMap{
            {u"component"_s, static_cast<int>(issue.component)},
            {u"title"_s, title(issue.component)},
            {u"message"_s, issue.failure.message()},
            {u"confirmationTitle"_s, SettingsTexts::resetTitle(title(issue.component).toLower())},
            {u"confirmation"_s, resetConfirmation(issue.component)},
        });
    }
    return rows;
}

void SettingsViewModel::setLeadTimeMinutes(int minutes)
{
    // Out of range goes to the model all the same, which refuses it with a message the user sees.
    m_model.setAlertLeadTime(double(minutes) * secondsPerMinute);
}

void SettingsViewModel::setEligibilityModeIndex(int index)
{
    const auto modes = allCases<EligibilityMode>();
    if (index >= 0 && index < static_cast<int>(modes.size())) {
        m_model.setEligibilityMode(modes[static_cast<std::size_t>(index)]);
    }
}

void SettingsViewModel::setLaunchAtLogin(bool on)
{
    if (!launchAtLoginAvailable()) {
        return;
    }
    m_model.setLaunchAtLogin(on);
    // The controller reports its outcome through its state and error message; the task finishes on its own.
    [[maybe_unused]] auto request = m_launchAtLogin.setEnabled(on);
}

void SettingsViewModel::setShowsOnAllDisplays(bool on)
{
    m_model.setShowsOnAllDisplays(on);
}

bool SettingsViewModel::showTestAlert()
{
    return m_model.showTestAlert();
}

void SettingsViewModel::setCalendarSelected(const QString& identifier, bool selected)
{
    CalendarSelection selection(CalendarSelection::fromRecords(m_model.settings().selectedCalendars));
    selection.set(m_model.calendarGroups(), identifier, selected);
    m_model.setSelectedCalendars(selection.chosen());
}

void SettingsViewModel::selectAll()
{
    m_model.setSelectedCalendars(std::nullopt);
}

void SettingsViewModel::clearSelection()
{
    m_model.setSelectedCalendars(QSet<QString>());
}

void SettingsViewModel::refresh()
{
    m_model.refresh();
}

void SettingsViewModel::rematchCalendars()
{
    m_model.recoverCalendarIdentities();
}

void SettingsViewModel::removeExclusion(const QString& id)
{
    const QUuid uuid(id);
    if (!uuid.isNull()) {
        m_model.removeExclusions({uuid});
    }
}

void SettingsViewModel::removeAllExclusions()
{
    m_model.removeAllExclusions();
}

void SettingsViewModel::resetStoredData(int component)
{
    for (const auto candidate : allCases<PersistenceComponent>()) {
        if (static_cast<int>(candidate) == component) {
            m_model.recoverUnreadableRecord(candidate);
        }
    }
}

} // namespace orvane
