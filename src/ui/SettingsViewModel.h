// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarReconciliationIssue.h"
#include "calendars/CalendarSourceHealthIssue.h"
#include "domain/CalendarGroup.h"
#include "domain/EligibilityMode.h"
#include "domain/ExclusionRecord.h"
#include "domain/NotifierSettings.h"
#include "persistence/PersistenceComponent.h"
#include "ui/WindowCoordinating.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>

#include <optional>
#include <vector>

namespace orvane {

class LaunchAtLoginController;
class StatusMenuViewModel;

/// What the settings window reads from and asks of the application: a narrow view of the application model, so
/// that the window can be exercised without the calendar daemon and the stores behind it.
class SettingsModel : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    virtual NotifierSettings settings() const = 0;
    virtual std::vector<CalendarGroup> calendarGroups() const = 0;
    virtual std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const = 0;
    virtual std::vector<CalendarReconciliationIssue> calendarReconciliationIssues() const = 0;
    virtual std::vector<ExclusionRecord> exclusions() const = 0;
    virtual std::vector<PersistenceIssue> persistenceIssues() const = 0;
    /// Where the stored records are kept (the settings file).
    virtual QString storageLocation() const = 0;
    /// The failure of the last command, if it is still shown.
    virtual std::optional<QString> lastError() const = 0;

    /// Seconds before the start; the model refuses anything outside 0 to NotifierSettings::maximumAlertLeadTime.
    virtual void setAlertLeadTime(double seconds) = 0;
    virtual void setEligibilityMode(EligibilityMode mode) = 0;
    virtual void setShowsOnAllDisplays(bool shows) = 0;
    /// Records the choice only; the launch-at-login controller registers with the session.
    virtual void setLaunchAtLogin(bool launches) = 0;
    /// Absent: every calendar.
    virtual void setSelectedCalendars(const std::optional<QSet<QString>>& calendarIdentifiers) = 0;
    virtual void removeExclusions(const QSet<QUuid>& ids) = 0;
    virtual void removeAllExclusions() = 0;
    virtual void recoverUnreadableRecord(PersistenceComponent component) = 0;
    virtual void recoverCalendarIdentities() = 0;
    virtual void refresh() = 0;
    /// Shows the sample alert; false when it could not be shown.
    virtual bool showTestAlert() = 0;

Q_SIGNALS:
    /// Any of the values above changed.
    void changed();
};

/// The settings window's state: general preferences, calendars with their problems, exclusions and the review of
/// unreadable stored data. Every change goes straight to the model, so the window always shows what is stored.
class SettingsViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QString errorText READ errorText NOTIFY changed)
    Q_PROPERTY(QVariantList sections READ sectionList NOTIFY changed)
    Q_PROPERTY(int section READ sectionIndex WRITE setSectionIndex NOTIFY changed)

    Q_PROPERTY(int leadTimeMinutes READ leadTimeMinutes NOTIFY changed)
    Q_PROPERTY(int maximumLeadTimeMinutes READ maximumLeadTimeMinutes CONSTANT)
    Q_PROPERTY(QString leadTimeSummary READ leadTimeSummary NOTIFY changed)
    Q_PROPERTY(QStringList eligibilityOptions READ eligibilityOptions CONSTANT)
    Q_PROPERTY(int eligibilityMode READ eligibilityModeIndex NOTIFY changed)
    Q_PROPERTY(bool launchAtLoginOn READ launchAtLoginOn NOTIFY changed)
    Q_PROPERTY(bool launchAtLoginAvailable READ launchAtLoginAvailable NOTIFY changed)
    Q_PROPERTY(QString launchAtLoginNote READ launchAtLoginNote NOTIFY changed)
    Q_PROPERTY(QString launchAtLoginError READ launchAtLoginError NOTIFY changed)
    Q_PROPERTY(bool showsOnAllDisplays READ showsOnAllDisplays NOTIFY changed)

    Q_PROPERTY(QVariantList calendarGroups READ calendarGroupList NOTIFY changed)
    Q_PROPERTY(bool hasCalendars READ hasCalendars NOTIFY changed)
    Q_PROPERTY(QString selectionCounter READ selectionCounter NOTIFY changed)
    Q_PROPERTY(QVariantList sourceHealthIssues READ sourceHealthIssueList NOTIFY changed)
    Q_PROPERTY(QVariantList reconciliationIssues READ reconciliationIssueList NOTIFY changed)

    Q_PROPERTY(QObject* accounts READ accounts CONSTANT)
    Q_PROPERTY(QObject* statusMenu READ statusMenu CONSTANT)

    Q_PROPERTY(QVariantList exclusions READ exclusionList NOTIFY changed)
    Q_PROPERTY(QVariantList storedDataIssues READ storedDataIssueList NOTIFY changed)

public:
    using Section = WindowCoordinating::SettingsSection;

    /// `model` and `launchAtLogin` must outlive the view model.
    SettingsViewModel(SettingsModel& model, LaunchAtLoginController& launchAtLogin, QObject* parent = nullptr);

    QVariantMap texts() const;
    QString errorText() const;

    /// The sections the sidebar lists, each with `section` (its number) and `title`: the menu first and only while
    /// the status menu is needed, the stored-data review only while a record is unreadable.
    QVariantList sectionList() const;
    Section section() const { return m_section; }
    int sectionIndex() const { return static_cast<int>(m_section); }
    void setSectionIndex(int index);
    /// Shows `section`; while a record is unreadable the window opens on its review, which is what blocks alerts. A
    /// section that is not listed opens General instead.
    void open(Section section);

    int leadTimeMinutes() const;
    static int maximumLeadTimeMinutes();
    QString leadTimeSummary() const;
    QStringList eligibilityOptions() const;
    EligibilityMode eligibilityMode() const;
    int eligibilityModeIndex() const;
    bool launchAtLoginOn() const;
    /// The switch can be used: not when the system offers no way to start at login.
    bool launchAtLoginAvailable() const;
    QString launchAtLoginNote() const;
    QString launchAtLoginError() const;
    bool showsOnAllDisplays() const;

    QVariantList calendarGroupList() const;
    bool hasCalendars() const;
    QString selectionCounter() const;
    /// Each with `name`, `message`, `action` and `reconnect` (only a new sign-in helps).
    QVariantList sourceHealthIssueList() const;
    /// Each with `title` and `message`.
    QVariantList reconciliationIssueList() const;

    /// The connected accounts' view model, which the accounts section shows; absent when this copy cannot connect
    /// accounts.
    QObject* accounts() const { return m_accounts; }
    /// Set before the window is made; not owned.
    void setAccounts(QObject* accounts) { m_accounts = accounts; }

    /// The status menu the menu section shows while no tray does; absent, the section is never listed.
    QObject* statusMenu() const;
    /// Set before the window is made; not owned, and must outlive the view model.
    void setStatusMenu(StatusMenuViewModel* menu);

    /// Each with `id`, `title`, `calendar`, `scope` and `date`; by title, then series before occurrences, then date.
    QVariantList exclusionList() const;
    /// Each with `component` (its number), `title`, `message`, `confirmationTitle` and `confirmation`.
    QVariantList storedDataIssueList() const;

    Q_INVOKABLE void setLeadTimeMinutes(int minutes);
    Q_INVOKABLE void setEligibilityModeIndex(int index);
    Q_INVOKABLE void setLaunchAtLogin(bool on);
    Q_INVOKABLE void setShowsOnAllDisplays(bool on);
    Q_INVOKABLE bool showTestAlert();

    Q_INVOKABLE void setCalendarSelected(const QString& identifier, bool selected);
    /// Stores no selection at all, so calendars added later alert too.
    Q_INVOKABLE void selectAll();
    Q_INVOKABLE void clearSelection();
    Q_INVOKABLE void refresh();
    Q_INVOKABLE void rematchCalendars();

    Q_INVOKABLE void removeExclusion(const QString& id);
    Q_INVOKABLE void removeAllExclusions();

    /// Resets the unreadable record of the component numbered `component` (after the view's confirmation).
    Q_INVOKABLE void resetStoredData(int component);

Q_SIGNALS:
    void changed();

private:
    void modelChanged();
    bool hasPersistenceIssues() const;
    bool isListed(Section section) const;

    SettingsModel& m_model;
    LaunchAtLoginController& m_launchAtLogin;
    Section m_section = Section::general;
    bool m_hadPersistenceIssues = false;
    QObject* m_accounts = nullptr;
    StatusMenuViewModel* m_statusMenu = nullptr;
};

} // namespace orvane
