// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/WindowTexts.h"

using namespace Qt::StringLiterals;

namespace orvane::WindowTexts {

QString onboardingWindowTitle()
{
    return u"Welcome to Orvane"_s;
}

QString aboutWindowTitle()
{
    return u"About Orvane"_s;
}

QString productName()
{
    return u"Orvane"_s;
}

QString stepTitle(OnboardingStep step)
{
    switch (step) {
    case OnboardingStep::welcome:
        return u"Welcome"_s;
    case OnboardingStep::access:
        return u"Calendar access"_s;
    case OnboardingStep::calendars:
        return u"Choose calendars"_s;
    case OnboardingStep::complete:
        return u"Setup complete"_s;
    }
    return {};
}

QString stepCounter(OnboardingStep step)
{
    if (step == OnboardingStep::complete) {
        return {};
    }
    return u"Step %1 of 3"_s.arg(static_cast<int>(step) + 1);
}

QString accessExplanation(CalendarAuthorizationState state)
{
    switch (state) {
    case CalendarAuthorizationState::notDetermined:
        // "Allow Orvane to read events from the accounts and calendars already synchronized with Calendar.app. macOS
        // will ask for Calendar Full Access next."
        return u"Allow Orvane to read events from the accounts and calendars already synchronized with your desktop "
               u"calendar (Evolution Data Server). Orvane checks for access next."_s;
    case CalendarAuthorizationState::fullAccess:
        return u"Calendar access is ready. Continue to choose which calendars can trigger alerts."_s;
    case CalendarAuthorizationState::denied:
        // "Calendar access was denied. Enable Full Access for Orvane in Privacy & Security, then check again."
        return u"Calendar access was denied. Allow Orvane to read your calendars in your desktop's settings, then "
               u"check again."_s;
    case CalendarAuthorizationState::restricted:
        // "Calendar access is restricted by this Mac. Full Access is required before meetings can be monitored."
        return u"Calendar access is restricted on this computer. Full Access is required before meetings can be "
               u"monitored."_s;
    case CalendarAuthorizationState::writeOnly:
        // "The current permission can add events but cannot read them. Enable Full Access in Privacy & Security."
        return u"The current permission can add events but cannot read them. Enable Full Access in your desktop's "
               u"settings."_s;
    case CalendarAuthorizationState::unknown:
        // "macOS returned an unfamiliar Calendar permission state. Check Privacy & Security, then try again." On
        // Linux there is no permission to be in an unfamiliar state: this is the calendar service not answering.
        return u"The desktop calendar service (Evolution Data Server) could not be reached. Install or start it, then "
               u"check again, or continue and connect Google Calendar or Outlook directly."_s;
    }
    return {};
}

bool isAccessProblem(CalendarAuthorizationState state)
{
    return state != CalendarAuthorizationState::notDetermined && state != CalendarAuthorizationState::fullAccess;
}

QString selectionCounter(qsizetype selected, qsizetype total)
{
    return u"%1 of %2 selected"_s.arg(selected).arg(total);
}

QString calendarGroupTitle(CalendarSourceKind kind, const QString& sourceTitle)
{
    // "On My Mac"; Evolution Data Server and GNOME Calendar call the local source "On This Computer".
    if (kind == CalendarSourceKind::local || sourceTitle.isEmpty()) {
        return u"On This Computer"_s;
    }
    return sourceTitle;
}

QString completeTitle(bool restoringAccess)
{
    return restoringAccess ? u"Calendar access restored"_s : u"You’re all set"_s;
}

QString versionLine(const std::optional<QString>& shortVersion, const std::optional<QString>& buildNumber)
{
    const auto part = [](const std::optional<QString>& value) {
        return value && !value->isEmpty() ? *value : u"Unknown"_s;
    };
    return u"Version %1 (%2)"_s.arg(part(shortVersion), part(buildNumber));
}

QVariantMap onboardingTexts()
{
    return {
        {u"windowTitle"_s, onboardingWindowTitle()},
        {u"productName"_s, productName()},
        {u"introduction"_s,
         u"Orvane takes over your active display just before an eligible event begins, then gets out of the way when "
         u"you dismiss, join, or snooze it."_s},
        {u"sourcesTitle"_s, u"Flexible calendar sources"_s},
        // "Use calendars already in Calendar.app, then optionally connect Google Calendar or Outlook directly from
        // Settings."
        {u"sourcesText"_s,
         u"Use calendars already in your desktop calendar (Evolution Data Server), then optionally connect Google "
         u"Calendar or Outlook directly from Settings."_s},
        {u"privacyTitle"_s, u"Private by design"_s},
        // "… and keep refresh tokens in macOS Keychain."
        {u"privacyText"_s,
         u"There is no analytics service. Direct connections are read-only, use the provider's browser sign-in, and "
         u"keep refresh tokens in GNOME Keyring or KWallet."_s},
        {u"readOnlyTitle"_s, u"Full Access, read-only behavior"_s},
        // "macOS offers no read-only EventKit permission for retrieving event details. The app requests Full Access
        // but never creates, edits, or deletes events."
        {u"readOnlyText"_s,
         u"Your desktop offers no read-only calendar permission: apps in your session may change calendars. Orvane "
         u"only reads them and never creates, edits, or deletes events."_s},
        {u"continueButton"_s, u"Continue"_s},
        {u"noteReads"_s,
         u"Reads calendar names, meeting times, attendee status, location, notes, and conferencing links."_s},
        // "Does not modify Calendar.app or transmit those local event details."
        {u"noteModifies"_s, u"Does not modify your desktop calendar or transmit those local event details."_s},
        // "You can revoke access in System Settings at any time." Outside a sandbox the desktop has no per-app
        // calendar permission to revoke; what the user can always do is turn calendars off.
        {u"noteRevoke"_s, u"You can turn calendars off in Orvane's settings at any time."_s},
        {u"backButton"_s, u"Back"_s},
        {u"checkAgainButton"_s, u"Check Again"_s},
        {u"chooseCalendarsButton"_s, u"Choose Calendars"_s},
        {u"resumeButton"_s, u"Resume"_s},
        {u"calendarsTitle"_s, u"Choose calendars to monitor"_s},
        {u"calendarsSubtitle"_s,
         u"Only timed events in checked calendars can trigger a full-screen alert. You can change this later in "
         u"Settings."_s},
        {u"calendarSwitchHint"_s, u"Controls whether this calendar can trigger meeting alerts"_s},
        {u"selectAllButton"_s, u"Select All"_s},
        {u"clearButton"_s, u"Clear"_s},
        {u"noCalendarsTitle"_s, u"No calendars found"_s},
        // "Add an account or local calendar in Calendar.app, connect Google or Outlook directly, then refresh. …"
        {u"noCalendarsText"_s,
         u"Add an account or local calendar in your calendar application, connect Google or Outlook directly, then "
         u"refresh. You can also finish now and enable calendars later."_s},
        {u"connectButton"_s, u"Connect Google or Outlook…"_s},
        {u"connectSheetTitle"_s, u"Connect a direct calendar account"_s},
        // "… Provider refresh tokens are stored in macOS Keychain."
        {u"connectSheetNote"_s,
         u"Google and Outlook connections are read-only. Provider refresh tokens are stored in the system "
         u"keyring."_s},
        // "Open Calendar.app": opens the desktop's calendar application.
        {u"openCalendarButton"_s, u"Open Calendar"_s},
        {u"openCalendarFailed"_s, u"No calendar application was found. Install GNOME Calendar or Evolution."_s},
        {u"refreshButton"_s, u"Refresh"_s},
        {u"finishWithoutButton"_s, u"Finish Without Calendars…"_s},
        {u"finishSetupButton"_s, u"Finish Setup"_s},
        {u"finishWithoutTitle"_s, u"Finish without monitored calendars?"_s},
        {u"finishWithoutMessage"_s,
         u"No meetings will trigger an alert until you enable at least one calendar in Settings."_s},
        {u"cancelButton"_s, u"Cancel"_s},
        {u"finishWithoutConfirmButton"_s, u"Finish Without Calendars"_s},
        // "… runs in the menu bar"; on Linux the status item lives in the system tray.
        {u"completeNote"_s,
         u"Orvane keeps running in the system tray. Open its menu there to see upcoming meetings or change "
         u"settings."_s},
        {u"doneButton"_s, u"Done"_s},
    };
}

std::vector<std::pair<QString, QString>> aboutLinks()
{
    return {
        {u"Website"_s, u"OrvaneWebsiteURL"_s}, {u"Privacy"_s, u"OrvanePrivacyURL"_s}, {u"Terms"_s, u"OrvaneTermsURL"_s},
        {u"Support"_s, u"OrvaneSupportURL"_s}, {u"Updates"_s, u"OrvaneUpdateURL"_s},
    };
}

QVariantMap aboutTexts()
{
    return {
        {u"windowTitle"_s, aboutWindowTitle()},
        {u"productName"_s, productName()},
        // "A private meeting reminder for Calendar.app, Google Calendar, and Outlook."
        {u"tagline"_s, u"A private meeting reminder for your desktop calendar, Google Calendar, and Outlook."_s},
        {u"principles"_s, u"No analytics · Read-only sync · No event editing"_s},
    };
}

} // namespace orvane::WindowTexts
