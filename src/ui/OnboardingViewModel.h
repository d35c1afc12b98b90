// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarGroup.h"
#include "ui/CalendarSelection.h"
#include "ui/WindowTexts.h"

#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <optional>
#include <vector>

namespace orvane {

/// What onboarding reads from and asks of the application: a narrow view of the application model, so that the
/// flow can be exercised without the calendar daemon and the stores behind it.
class OnboardingModel : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    virtual CalendarAuthorizationState authorizationState() const = 0;
    virtual std::vector<CalendarGroup> calendarGroups() const = 0;
    /// The stored selection by identifier; absent: every calendar.
    virtual std::optional<QSet<QString>> selectedCalendars() const = 0;
    virtual bool hasCompletedOnboarding() const = 0;
    /// The failure of the last command, if it is still shown.
    virtual std::optional<QString> lastError() const = 0;
    /// Asks for (on Linux: re-reads) access to the desktop calendars and reloads them.
    virtual void requestCalendarAccess() = 0;
    virtual void refresh() = 0;
    virtual void setSelectedCalendars(const QSet<QString>& calendarIdentifiers) = 0;
    virtual void setOnboardingCompleted() = 0;
    /// Starts the desktop's calendar application; false when there is none.
    virtual bool openCalendarApplication() = 0;

Q_SIGNALS:
    /// Any of the values above changed.
    void changed();
};

/// The first-run flow: welcome, calendar access, choosing calendars, done. Holds the step and the calendar choice
/// in progress; nothing is stored until the user finishes.
class OnboardingViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(int step READ stepIndex NOTIFY changed)
    Q_PROPERTY(QString stepTitle READ stepTitle NOTIFY changed)
    Q_PROPERTY(QString stepCounter READ stepCounter NOTIFY changed)
    Q_PROPERTY(QString accessText READ accessText NOTIFY changed)
    Q_PROPERTY(bool accessIsProblem READ accessIsProblem NOTIFY changed)
    Q_PROPERTY(bool canChooseCalendars READ canChooseCalendars NOTIFY changed)
    Q_PROPERTY(bool offersResume READ offersResume NOTIFY changed)
    Q_PROPERTY(QVariantList calendarGroups READ calendarGroupList NOTIFY changed)
    Q_PROPERTY(bool hasCalendars READ hasCalendars NOTIFY changed)
    /// The connected-accounts controls of the connect sheet; absent when this copy cannot connect accounts.
    Q_PROPERTY(QObject* accounts READ accounts CONSTANT)
    Q_PROPERTY(QString selectionCounter READ selectionCounter NOTIFY changed)
    Q_PROPERTY(int selectedCount READ selectedCount NOTIFY changed)
    Q_PROPERTY(QString completeTitle READ completeTitle NOTIFY changed)
    Q_PROPERTY(QString errorText READ errorText NOTIFY changed)

public:
    using Step = WindowTexts::OnboardingStep;

    /// `model` must outlive the view model.
    explicit OnboardingViewModel(OnboardingModel& model, QObject* parent = nullptr);

    /// Starts over at the welcome step with the stored selection; reopened after onboarding was finished, the flow
    /// is about restoring access.
    Q_INVOKABLE void restart();

    Step step() const { return m_step; }
    int stepIndex() const { return static_cast<int>(m_step); }
    QVariantMap texts() const;
    QString stepTitle() const;
    QString stepCounter() const;
    QString accessText() const;
    bool accessIsProblem() const;
    /// Access is granted, or the calendar service cannot be reached (the calendars step then offers connected
    /// accounts and finishing without calendars), so the calendars step can follow.
    bool canChooseCalendars() const;
    /// Reopened to restore access, which is granted again: the user resumes instead of choosing calendars anew.
    bool offersResume() const;
    QVariantList calendarGroupList() const;
    bool hasCalendars() const;
    qsizetype calendarCount() const;
    int selectedCount() const;
    QString selectionCounter() const;
    /// The listed calendars that are checked.
    QSet<QString> selection() const;
    QString completeTitle() const;
    QString errorText() const;

    Q_INVOKABLE void continueFromWelcome();
    Q_INVOKABLE void back();
    Q_INVOKABLE void checkAgain();
    Q_INVOKABLE void chooseCalendars();
    Q_INVOKABLE void resume();
    Q_INVOKABLE void setCalendarSelected(const QString& identifier, bool selected);
    Q_INVOKABLE void selectAll();
    Q_INVOKABLE void clearSelection();
    Q_INVOKABLE void refresh();
    /// Stores the checked calendars, marks onboarding finished and shows the last step.
    Q_INVOKABLE void finishSetup();
    /// Stores an empty selection (after the view's confirmation) and marks onboarding finished all the same.
    Q_INVOKABLE void finishWithoutCalendars();
    Q_INVOKABLE bool openCalendarApplication();
    /// The last step's "Done": the window closes.
    Q_INVOKABLE void done();

    QObject* accounts() const { return m_accounts; }
    /// Set before the window is made; not owned.
    void setAccounts(QObject* accounts) { m_accounts = accounts; }

Q_SIGNALS:
    void changed();
    void closeRequested();

private:
    void goTo(Step step);
    void finish(const QSet<QString>& selection);

    OnboardingModel& m_model;
    Step m_step = Step::welcome;
    bool m_restoringAccess = false;
    /// The choice in progress; with nothing chosen, every listed calendar, including any that appear meanwhile.
    CalendarSelection m_selection;
    /// A failure of the view's own, such as no calendar application to open.
    std::optional<QString> m_notice;
    QObject* m_accounts = nullptr;
};

} // namespace orvane
