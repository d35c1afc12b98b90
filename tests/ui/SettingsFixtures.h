// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// The settings window's model as a value the tests set, a login-item service they script, and the sample data
// both the offscreen tests and the screenshots show.

#include "ui/AboutViewModel.h"
#include "ui/ConnectedAccountsViewModel.h"
#include "ui/LaunchAtLoginService.h"
#include "ui/OnboardingViewModel.h"
#include "ui/SettingsViewModel.h"
#include "ui/StatusMenuContent.h"

#include "support/MeetingFixtures.h"

#include <QDateTime>

#include <map>
#include <set>

namespace settingsfixtures {

using namespace orvane;
using namespace Qt::StringLiterals;

/// The application model as settings sees it; every command is recorded, and the stored values change as the
/// application model would change them.
class FakeSettingsModel final : public SettingsModel {
public:
    NotifierSettings stored;
    std::vector<CalendarGroup> groups;
    std::vector<CalendarSourceHealthIssue> healthIssues;
    std::vector<CalendarReconciliationIssue> reconciliationIssues;
    std::vector<ExclusionRecord> excluded;
    std::vector<PersistenceIssue> unreadable;
    std::optional<QString> error;
    std::vector<double> leadTimes;
    std::vector<PersistenceComponent> resets;
    int refreshes = 0;
    int rematches = 0;
    int testAlerts = 0;

    NotifierSettings settings() const override { return stored; }
    std::vector<CalendarGroup> calendarGroups() const override { return groups; }
    std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const override { return healthIssues; }
    std::vector<CalendarReconciliationIssue> calendarReconciliationIssues() const override
    {
        return reconciliationIssues;
    }
    std::vector<ExclusionRecord> exclusions() const override { return excluded; }
    std::vector<PersistenceIssue> persistenceIssues() const override { return unreadable; }
    QString storageLocation() const override { return u"/home/user/.config/velmont.com/Orvane.conf"_s; }
    std::optional<QString> lastError() const override { return error; }

    void setAlertLeadTime(double seconds) override
    {
        leadTimes.push_back(seconds);
        if (seconds >= 0 && seconds <= NotifierSettings::maximumAlertLeadTime) {
            stored.alertLeadTime = seconds;
        }
        Q_EMIT changed();
    }
    void setEligibilityMode(EligibilityMode mode) override
    {
        change([&] { stored.eligibilityMode = mode; });
    }
    void setShowsOnAllDisplays(bool shows) override
    {
        change([&] { stored.showsOnAllDisplays = shows; });
    }
    void setLaunchAtLogin(bool launches) override
    {
        change([&] { stored.launchAtLogin = launches; });
    }
    void setSelectedCalendars(const std::optional<QSet<QString>>& identifiers) override
    {
        change([&] {
            stored.selectedCalendars.reset();
            if (identifiers) {
                QStringList sorted(identifiers->begin(), identifiers->end());
                sorted.sort();
                stored.selectedCalendars.emplace();
                for (const auto& identifier : sorted) {
                    stored.selectedCalendars->push_back({identifier, std::nullopt});
                }
            }
        });
    }
    void removeExclusions(const QSet<QUuid>& ids) override
    {
        change(
            [&] { std::erase_if(excluded, [&](const ExclusionRecord& record) { return ids.contains(record.id); }); });
    }
    void removeAllExclusions() override
    {
        change([&] { excluded.clear(); });
    }
    void recoverUnreadableRecord(PersistenceComponent component) override
    {
        resets.push_back(component);
        change([&] {
            std::erase_if(unreadable, [&](const PersistenceIssue& issue) { return issue.component == component; });
        });
    }
    void recoverCalendarIdentities() override { ++rematches; }
    void refresh() override { ++refreshes; }
    bool showTestAlert() override { return ++testAlerts == 1; }

    template <class Change>
    void change(Change apply)
    {
        apply();
        Q_EMIT changed();
    }
};

/// A login-item service whose status the test sets; requests succeed or throw at once.
class ScriptedLaunchService final : public LaunchAtLoginService {
public:
    Status current = Status::notRegistered;
    bool fails = false;

    Status status() const override { return current; }
    QCoro::Task<> registerMainApp() override { return answer(Status::enabled); }
    QCoro::Task<> unregisterMainApp() override { return answer(Status::notRegistered); }

private:
    QCoro::Task<> answer(Status next)
    {
        if (fails) {
            throw LaunchAtLoginError(
                LaunchAtLoginError::WriteFailed{u"/home/me/.config/autostart/x.desktop"_s, u"Permission denied"_s});
        }
        current = next;
        co_return;
    }
};

inline Date at(const char* isoUtc)
{
    return Date::fromDateTime(QDateTime::fromString(QString::fromLatin1(isoUtc), Qt::ISODate));
}

inline CalendarGroup group(const QString& source, CalendarSourceKind kind, const QStringList& titles)
{
    CalendarGroup result{source, source, kind, {}};
    for (const auto& title : titles) {
        result.calendars.push_back(CalendarDescriptor{.identifier = title.toLower(),
                                                      .title = title,
                                                      .sourceIdentifier = source,
                                                      .sourceTitle = source,
                                                      .sourceKind = kind});
    }
    return result;
}

inline ExclusionRecord exclusion(const char* title, const char* calendar, ExclusionScope scope, Date start,
                                 Date createdAt)
{
    ExclusionRecord record;
    record.id = QUuid::createUuid();
    record.identity.seriesIdentifier = u"external:"_s + QString::fromLatin1(title);
    record.identity.occurrenceStart = start;
    record.identity.scheduledStart = start;
    record.scope = scope;
    record.createdAt = createdAt;
    record.eventTitle = QString::fromLatin1(title);
    record.calendarTitle = QString::fromLatin1(calendar);
    return record;
}

/// Two sources (this computer and a Google account), one of them failing, three exclusions, a lead time of five
/// minutes in meeting-like mode.
inline void fill(FakeSettingsModel& model)
{
    model.stored.alertLeadTime = 300;
    model.stored.eligibilityMode = EligibilityMode::meetingLike;
    model.groups = {group(u"Personal"_s, CalendarSourceKind::local, {u"Home"_s, u"Birthdays"_s}),
                    group(u"alex@example.com"_s, CalendarSourceKind::google, {u"Work"_s, u"Team events"_s})};
    model.setSelectedCalendars(QSet<QString>{u"home"_s, u"work"_s, u"team events"_s});
    model.healthIssues = {{CalendarSourceHealthIssue::Remote{RemoteCalendarProviderKind::microsoft, u"acc"_s},
                           u"alex@contoso.com (Outlook)"_s,
                           u"The provider no longer accepts this account's sign-in. Reconnect the account."_s, true}};
    model.excluded = {
        exclusion("Weekly planning", "Work", ExclusionScope::series, at("2026-11-02T09:00:00Z"),
                  at("2026-11-03T08:12:00Z")),
        exclusion("Dentist", "Home", ExclusionScope::occurrence, at("2026-11-27T15:30:00Z"),
                  at("2026-11-20T10:00:00Z")),
        exclusion("All hands", "Team events", ExclusionScope::occurrence, at("2026-11-24T17:00:00Z"),
                  at("2026-11-21T11:00:00Z")),
    };
}

/// The connected accounts as the controls see them; commands are recorded and change nothing by themselves.
class FakeConnectedAccountsModel final : public ConnectedAccountsModel {
public:
    bool supported = true;
    std::vector<RemoteCalendarAccountMetadata> accounts;
    QSet<QUuid> usable;
    std::optional<RemoteCalendarProviderKind> connecting;
    bool mutating = false;
    std::vector<CalendarSourceHealthIssue> healthIssues;
    std::map<RemoteCalendarProviderKind, QString> clientIDs;
    std::set<RemoteCalendarProviderKind> preconfigured;
    std::vector<std::pair<RemoteCalendarProviderKind, std::optional<QUuid>>> connects;
    std::vector<QUuid> disconnects;
    std::vector<std::pair<RemoteCalendarProviderKind, QString>> clientIDChanges;
    int cancels = 0;

    bool supportsRemoteAccounts() const override { return supported; }
    std::vector<RemoteCalendarAccountMetadata> remoteAccounts() const override { return accounts; }
    QSet<QUuid> usableRemoteAccountIDs() const override { return usable; }
    std::optional<RemoteCalendarProviderKind> connectingProvider() const override { return connecting; }
    bool isMutatingRemoteAccounts() const override { return mutating; }
    std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const override { return healthIssues; }
    std::optional<QString> oauthClientID(RemoteCalendarProviderKind provider) const override
    {
        const auto found = clientIDs.find(provider);
        return found == clientIDs.end() ? std::nullopt : std::optional(found->second);
    }
    bool hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const override
    {
        return preconfigured.contains(provider);
    }
    void connectAccount(RemoteCalendarProviderKind provider, std::optional<QUuid> reconnecting) override
    {
        connects.emplace_back(provider, reconnecting);
    }
    void cancelConnection() override { ++cancels; }
    void disconnectAccount(const QUuid& accountID) override { disconnects.push_back(accountID); }
    void setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID) override
    {
        clientIDChanges.emplace_back(provider, clientID);
    }
};

inline RemoteCalendarAccountMetadata remoteAccount(RemoteCalendarProviderKind provider, const char* name,
                                                   const char* address, const char* id)
{
    return {.id = QUuid::fromString(QString::fromLatin1(id)),
            .provider = provider,
            .providerAccountIdentifier = QString::fromLatin1(address),
            .displayName = QString::fromLatin1(name),
            .emailAddress = QString::fromLatin1(address),
            .oauthClientID = u"client"_s,
            .connectedAt = at("2026-11-02T09:00:00Z")};
}

/// A Google account that works and an Outlook account whose sign-in was refused; Google's client comes with the
/// build, Outlook's was entered by the user.
inline void fill(FakeConnectedAccountsModel& model)
{
    model.accounts = {remoteAccount(RemoteCalendarProviderKind::google, "Alex Doe", "alex@example.com",
                                    "6F1C2D9E-0C57-4B52-9C1A-2B3C4D5E6F70"),
                      remoteAccount(RemoteCalendarProviderKind::microsoft, "Alex Doe", "alex@contoso.com",
                                    "0D1E2F3A-4B5C-4D6E-8F70-8192A3B4C5D6")};
    model.usable = {model.accounts[0].id};
    model.healthIssues = {{CalendarSourceHealthIssue::Remote{RemoteCalendarProviderKind::microsoft,
                                                             u"0D1E2F3A-4B5C-4D6E-8F70-8192A3B4C5D6"_s},
                           u"alex@contoso.com (Outlook)"_s,
                           u"The provider no longer accepts this account's sign-in (invalid_grant). Reconnect the "
                           u"account."_s,
                           true}};
    model.clientIDs = {{RemoteCalendarProviderKind::google, u"1234-desktop.apps.googleusercontent.com"_s},
                       {RemoteCalendarProviderKind::microsoft, u"6731de76-14a6-49ae-97bc-6eba6914391e"_s}};
    model.preconfigured = {RemoteCalendarProviderKind::google};
}

/// Onboarding's model as values the tests set.
class FakeOnboardingModel final : public orvane::OnboardingModel {
public:
    CalendarAuthorizationState state = CalendarAuthorizationState::fullAccess;
    std::vector<CalendarGroup> groups;
    std::optional<QSet<QString>> stored;
    bool completed = false;
    std::optional<QSet<QString>> saved;
    int accessRequests = 0;
    int refreshes = 0;

    CalendarAuthorizationState authorizationState() const override { return state; }
    std::vector<CalendarGroup> calendarGroups() const override { return groups; }
    std::optional<QSet<QString>> selectedCalendars() const override { return stored; }
    bool hasCompletedOnboarding() const override { return completed; }
    std::optional<QString> lastError() const override { return std::nullopt; }
    void requestCalendarAccess() override { ++accessRequests; }
    void refresh() override { ++refreshes; }
    void setSelectedCalendars(const QSet<QString>& identifiers) override { saved = identifiers; }
    void setOnboardingCompleted() override { completed = true; }
    bool openCalendarApplication() override { return false; }
};

/// "home" and "birthdays" on this computer, "work" in a Google account.
inline std::vector<CalendarGroup> threeCalendars()
{
    const auto calendar = [](const QString& identifier, CalendarSourceKind kind, const QString& source) {
        return CalendarDescriptor{.identifier = identifier,
                                  .title = identifier,
                                  .sourceIdentifier = source,
                                  .sourceTitle = source,
                                  .sourceKind = kind};
    };
    const auto local = CalendarSourceKind::local;
    return {{u"local"_s,
             u"Personal"_s,
             local,
             {calendar(u"home"_s, local, u"Personal"_s), calendar(u"birthdays"_s, local, u"Personal"_s)}},
            {u"g"_s,
             u"me@example.com"_s,
             CalendarSourceKind::google,
             {calendar(u"work"_s, CalendarSourceKind::google, u"me@example.com"_s)}}};
}

/// Build values as the about window reads them.
inline AboutViewModel::BundleValue bundle(std::map<QString, QString> values)
{
    return [values = std::move(values)](const QString& key) -> std::optional<QString> {
        const auto found = values.find(key);
        return found == values.end() ? std::nullopt : std::optional(found->second);
    };
}

/// The status menu of a set-up Orvane with two meetings coming: one to join today, a weekly one tomorrow.
inline std::vector<StatusMenuEntry> sampleMenu()
{
    MeetingOccurrence standup =
        fixtures::meeting(u"Team standup"_s, at("2024-03-05T14:05:00Z").secondsSinceReferenceDate);
    standup.meetingURL = QUrl(u"https://meet.google.com/abc-defg-hij"_s);
    MeetingOccurrence review =
        fixtures::meeting(u"Weekly review"_s, at("2024-03-06T10:30:00Z").secondsSinceReferenceDate);
    review.isRecurring = true;
    return StatusMenuContent::build({.onboardingCompleted = true,
                                     .hasUsableCalendarSource = true,
                                     .authorizationState = CalendarAuthorizationState::fullAccess,
                                     .upcoming = {standup, review},
                                     .hasUpdateURL = true,
                                     .now = at("2024-03-05T09:00:00Z"),
                                     .timeZone = QTimeZone::utc(),
                                     .locale = QLocale(QLocale::English, QLocale::UnitedStates)});
}

} // namespace settingsfixtures
