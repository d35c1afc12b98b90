// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/SettingsTexts.h"

#include "persistence/PersistenceComponent.h"

using namespace Qt::StringLiterals;

namespace orvane::SettingsTexts {

QString windowTitle()
{
    return u"Orvane Settings"_s;
}

QString sectionTitle(WindowCoordinating::SettingsSection section)
{
    using Section = WindowCoordinating::SettingsSection;
    switch (section) {
    case Section::general:
        return u"General"_s;
    case Section::calendars:
        return u"Calendars"_s;
    case Section::accounts:
        return u"Connected accounts"_s;
    case Section::exclusions:
        return u"Exclusions"_s;
    case Section::storedData:
        return u"Stored data"_s;
    case Section::menu:
        return u"Menu"_s;
    }
    return {};
}

QString leadTimeSummary(int minutes)
{
    if (minutes <= 0) {
        return u"Alerts appear at the start time."_s;
    }
    return minutes == 1 ? u"Alerts appear 1 minute before the start."_s
                        : u"Alerts appear %1 minutes before the start."_s.arg(minutes);
}

QString eligibilityTitle(EligibilityMode mode)
{
    switch (mode) {
    case EligibilityMode::allTimedEvents:
        return u"All timed events"_s;
    case EligibilityMode::meetingLike:
        return u"Meeting-like only"_s;
    }
    return {};
}

QString exclusionScopeTitle(ExclusionScope scope)
{
    // The words of the alert's exclusion menu, so that the list names what the user picked there.
    switch (scope) {
    case ExclusionScope::occurrence:
        return u"Only this occurrence"_s;
    case ExclusionScope::series:
        return u"Entire series"_s;
    }
    return {};
}

QString sourceHealthAction(bool requiresReauthentication)
{
    return requiresReauthentication ? u"Sign in again: reconnect this account under Connected accounts."_s
                                    : u"Orvane tries again at the next refresh. Select Refresh to try now."_s;
}

QString resetTitle(const QString& componentTitle)
{
    return u"Reset %1?"_s.arg(componentTitle);
}

QVariantMap texts()
{
    return {
        {u"windowTitle"_s, windowTitle()},
        {u"cancelButton"_s, u"Cancel"_s},
        {u"generalTitle"_s, sectionTitle(WindowCoordinating::SettingsSection::general)},
        {u"calendarsTitle"_s, sectionTitle(WindowCoordinating::SettingsSection::calendars)},
        {u"exclusionsTitle"_s, sectionTitle(WindowCoordinating::SettingsSection::exclusions)},
        // General.
        {u"leadTimeTitle"_s, u"Alert lead time"_s},
        {u"leadTimeUnit"_s, u"minutes before the start"_s},
        {u"eligibilityTitle"_s, u"Eligible events"_s},
        {u"eligibilityExplanation"_s,
         u"Meeting-like events have at least one other attendee or a recognized Zoom, Meet, Teams, or Webex link."_s},
        {u"launchAtLoginTitle"_s, u"Launch at login"_s},
        {u"launchAtLoginHint"_s, u"Starts Orvane when you log in, so that no meeting is missed after a restart."_s},
        {u"allDisplaysTitle"_s, u"Show on all displays"_s},
        // The second sentence is the design's own help text for the setting.
        {u"allDisplaysHint"_s,
         u"The alert covers every connected display instead of only the active one. The display containing the "
         u"active app is captured before the notifier takes focus."_s},
        {u"testAlertButton"_s, u"Test Alert"_s},
        {u"testAlertHint"_s, u"Shows a sample meeting the way a real alert appears. Nothing is stored."_s},
        // Calendars.
        {u"calendarsSubtitle"_s, u"Only timed events in checked calendars can trigger a full-screen alert."_s},
        {u"calendarSwitchHint"_s, u"Controls whether this calendar can trigger meeting alerts"_s},
        {u"selectAllButton"_s, u"Select All"_s},
        {u"clearButton"_s, u"Clear"_s},
        {u"refreshButton"_s, u"Refresh"_s},
        {u"noCalendarsTitle"_s, u"No calendars found"_s},
        {u"noCalendarsText"_s,
         u"Add an account or local calendar in your calendar application, then select Refresh."_s},
        {u"healthTitle"_s, u"Sources with problems"_s},
        {u"openAccountsButton"_s, u"Open Connected Accounts"_s},
        {u"reconciliationTitle"_s, u"Stored choices to review"_s},
        {u"reconciliationText"_s,
         u"Orvane matches stored choices to your calendars after every refresh. If a calendar was renamed or moved, "
         u"fix it in your calendar application, then match again."_s},
        {u"rematchButton"_s, u"Re-match Calendars"_s},
        // Connected accounts.
        {u"accountsTitle"_s, sectionTitle(WindowCoordinating::SettingsSection::accounts)},
        {u"accountsPlaceholder"_s, u"Direct Google Calendar and Outlook connections are not available in this copy of Orvane."_s},
        // Exclusions.
        {u"exclusionsSubtitle"_s,
         u"Excluded meetings never raise a full-screen alert. Remove an exclusion to be alerted about that meeting "
         u"again."_s},
        {u"removeButton"_s, u"Remove"_s},
        {u"removeAllButton"_s, u"Remove All…"_s},
        {u"removeAllTitle"_s, u"Remove all exclusions?"_s},
        {u"removeAllMessage"_s,
         u"Every excluded meeting and series can raise a full-screen alert again, starting with the next refresh. "
         u"This cannot be undone."_s},
        {u"removeAllConfirmButton"_s, u"Remove All"_s},
        {u"noExclusionsTitle"_s, u"No exclusions"_s},
        {u"noExclusionsText"_s, u"Meetings you exclude from an alert or from the tray menu appear here."_s},
        // The status menu, on a desktop without a tray.
        {u"menuTitle"_s, sectionTitle(WindowCoordinating::SettingsSection::menu)},
        {u"menuExplanation"_s, u"This desktop shows no tray icon, so Orvane’s menu is here."_s},
        // Stored-data review.
        {u"storedDataHeading"_s, QString::fromUtf16(persistenceReviewHeading)},
        {u"storedDataExplanation"_s, QString::fromUtf16(persistenceReviewExplanation)},
        {u"resetButton"_s, u"Reset…"_s},
        {u"resetConfirmButton"_s, u"Reset"_s},
    };
}

} // namespace orvane::SettingsTexts
