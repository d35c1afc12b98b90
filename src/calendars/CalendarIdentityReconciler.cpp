// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/CalendarIdentityReconciler.h"

#include "domain/Hashing.h"
#include "persistence/DeliveryStoring.h"
#include "persistence/ExclusionStoring.h"
#include "persistence/PersistenceStoreError.h"
#include "persistence/SettingsStoring.h"

#include <unordered_map>
#include <unordered_set>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

using Kind = CalendarReconciliationIssue::Kind;

CalendarFingerprint fingerprintOf(const CalendarDescriptor& calendar)
{
    return {calendar.sourceKind, calendar.sourceTitle, calendar.title};
}

/// One calendar of the snapshot, with the calendar values that identities of its meetings must carry.
struct CurrentCalendar {
    QString identifier;
    CalendarFingerprint fingerprint;
    QString identitySourceIdentifier;
    std::optional<CalendarFingerprint> identityFingerprint;
    bool identityFingerprintIsUnique = false;

    /// `identity` as a fresh occurrence of this calendar would carry it.
    MeetingIdentity stamped(MeetingIdentity identity) const
    {
        identity.calendarIdentifier = identifier;
        identity.sourceIdentifier = identitySourceIdentifier;
        identity.calendarFingerprint = identityFingerprint;
        identity.calendarFingerprintIsUnique = identityFingerprintIsUnique;
        return identity;
    }
};

/// Where a stored calendar reference points now: a current calendar, or why there is none.
struct Resolution {
    const CurrentCalendar* calendar = nullptr;
    Kind problem = Kind::missingCalendar;
};

/// The calendars of a snapshot, found by identifier and by fingerprint.
class CurrentCalendars {
public:
    CurrentCalendars(const std::vector<CalendarGroup>& groups, std::span<const MeetingOccurrence> fetched)
    {
        for (const auto& group : groups) {
            for (const auto& calendar : group.calendars) {
                // An empty identifier cannot be stored or looked up, and a calendar listed twice (one account seen
                // through two sources) is still one calendar, not two look-alikes.
                if (calendar.identifier.isEmpty() || m_byIdentifier.contains(calendar.identifier)) {
                    continue;
                }
                const auto fingerprint = fingerprintOf(calendar);
                m_byIdentifier.emplace(calendar.identifier, m_calendars.size());
                m_byFingerprint[fingerprint].push_back(m_calendars.size());
                m_calendars.push_back({calendar.identifier, fingerprint, calendar.sourceIdentifier, fingerprint});
            }
        }
        for (auto& calendar : m_calendars) {
            calendar.identityFingerprintIsUnique = m_byFingerprint[calendar.fingerprint].size() == 1;
        }
        // Deliveries and snoozes are found by equality with fresh identities, so what a source actually put in
        // them wins over what the snapshot suggests (a source may judge uniqueness among its own calendars only).
        std::unordered_set<QString> taken;
        for (const auto& occurrence : fetched) {
            const auto& identity = occurrence.identity;
            const auto found = m_byIdentifier.find(identity.calendarIdentifier);
            if (found == m_byIdentifier.end() || !taken.insert(identity.calendarIdentifier).second) {
                continue;
            }
            auto& calendar = m_calendars[found->second];
            calendar.identitySourceIdentifier = identity.sourceIdentifier;
            calendar.identityFingerprint = identity.calendarFingerprint;
            calendar.identityFingerprintIsUnique = identity.calendarFingerprintIsUnique;
        }
    }

    /// The calendar a stored reference names now. `fingerprintWasUnique` is false when the reference was recorded
    /// while another calendar looked the same.
    Resolution resolve(const QString& identifier, const std::optional<CalendarFingerprint>& fingerprint,
                       bool fingerprintWasUnique) const
    {
        if (const auto found = m_byIdentifier.find(identifier); found != m_byIdentifier.end()) {
            return {&m_calendars[found->second]};
        }
        if (!fingerprint || !fingerprint->isComplete()) {
            return {nullptr, Kind::missingCalendar};
        }
        const auto matches = m_byFingerprint.find(*fingerprint);
        if (matches == m_byFingerprint.end()) {
            return {nullptr, Kind::missingCalendar};
        }
        if (matches->second.size() > 1 || !fingerprintWasUnique) {
            return {nullptr, Kind::ambiguousCalendar};
        }
        return {&m_calendars[matches->second.front()]};
    }

private:
    std::vector<CurrentCalendar> m_calendars;
    std::unordered_map<QString, std::size_t> m_byIdentifier;
    std::unordered_map<CalendarFingerprint, std::vector<std::size_t>> m_byFingerprint;
};

/// "the calendar “Work” of Nextcloud", or "a calendar" when the records never said what it looked like.
QString calendarName(const std::optional<CalendarFingerprint>& fingerprint)
{
    if (!fingerprint || fingerprint->calendarTitle.trimmed().isEmpty()) {
        return u"a calendar"_s;
    }
    // Concatenated rather than QString::arg: a title may itself contain "%1".
    QString name = u"the calendar “"_s + fingerprint->calendarTitle.trimmed() + u"”"_s;
    if (!fingerprint->sourceTitle.trimmed().isEmpty()) {
        name += u" of "_s + fingerprint->sourceTitle.trimmed();
    }
    return name;
}

QString exclusionCount(int count)
{
    return count == 1 ? u"One exclusion belongs"_s : QString::number(count) + u" exclusions belong"_s;
}

QString messageFor(const CalendarReconciliationIssue& issue)
{
    const QString name = calendarName(issue.fingerprint);
    const QString whatHappened =
        issue.kind == Kind::missingCalendar
            ? u"which is no longer among your calendars"_s
            : u"which is no longer found under its old identity, and more than one calendar now looks like it"_s;
    switch (issue.component) {
    case PersistenceComponent::settings:
        return u"Alerts were on for "_s + name + u", "_s + whatHappened +
               u", so its meetings will not alert. Choose the calendars again in Settings."_s;
    case PersistenceComponent::exclusions:
        return exclusionCount(issue.recordCount) + u" to "_s + name + u", "_s + whatHappened +
               u", so meetings you excluded may alert again. Remove these exclusions in Settings, and exclude the "
               u"meetings again if they alert."_s;
    case PersistenceComponent::delivery:
        break;
    }
    // Reminder history expires by itself and is never reported.
    return {};
}

/// The issues of one pass, one per stored record (component) and calendar identifier, in the order they were met.
class IssueList {
public:
    void add(PersistenceComponent component, const QString& calendarIdentifier,
             const std::optional<CalendarFingerprint>& fingerprint, Kind kind)
    {
        const auto [position, inserted] =
            m_positions.emplace(std::pair{component, calendarIdentifier}, m_issues.size());
        if (inserted) {
            m_issues.push_back({.kind = kind,
                                .component = component,
                                .calendarIdentifier = calendarIdentifier,
                                .fingerprint = fingerprint});
        }
        ++m_issues[position->second].recordCount;
    }

    std::vector<CalendarReconciliationIssue> finished() &&
    {
        for (auto& issue : m_issues) {
            issue.title = u"Calendar data needs review"_s;
            issue.message = messageFor(issue);
        }
        return std::move(m_issues);
    }

private:
    struct KeyHash {
        std::size_t operator()(const std::pair<PersistenceComponent, QString>& key) const
        {
            return hashFields(key.first, key.second);
        }
    };

    std::vector<CalendarReconciliationIssue> m_issues;
    std::unordered_map<std::pair<PersistenceComponent, QString>, std::size_t, KeyHash> m_positions;
};

} // namespace

CalendarIdentityReconciler::CalendarIdentityReconciler(SettingsStoring& settings, ExclusionStoring& exclusions,
                                                       DeliveryStoring& delivery, SnapshotProvider currentCalendars)
    : m_settings(settings)
    , m_exclusions(exclusions)
    , m_delivery(delivery)
    , m_currentCalendars(std::move(currentCalendars))
{
}

void CalendarIdentityReconciler::reconcile(std::span<const MeetingOccurrence> fetched)
{
    // An unreadable record holds references this pass cannot see, and the others must not move without them.
    for (const auto* state : {&m_settings.readState(), &m_exclusions.readState(), &m_delivery.readState()}) {
        if (const auto failure = state->failure()) {
            throw PersistenceStoreError(PersistenceStoreError::RecoveryRequired{*failure});
        }
    }
    const CalendarSnapshot snapshot = m_currentCalendars();
    if (!snapshot.complete) {
        return;
    }
    const CurrentCalendars current(snapshot.groups, fetched);
    IssueList issues;
    AtomicStoreBatch batch;

    const NotifierSettings& settings = m_settings.settings();
    if (settings.selectedCalendars) {
        std::vector<CalendarSelectionRecord> selection;
        std::unordered_set<QString> selected;
        for (const auto& record : *settings.selectedCalendars) {
            CalendarSelectionRecord updated = record;
            // A selection carries no uniqueness flag: the user picked that one calendar by name.
            const auto resolution = current.resolve(record.calendarIdentifier, record.fingerprint, true);
            if (resolution.calendar != nullptr) {
                updated = {resolution.calendar->identifier, resolution.calendar->fingerprint};
            } else {
                issues.add(PersistenceComponent::settings, record.calendarIdentifier, record.fingerprint,
                           resolution.problem);
            }
            if (selected.insert(updated.calendarIdentifier).second) {
                selection.push_back(std::move(updated));
            }
        }
        if (selection != *settings.selectedCalendars) {
            batch.settings = settings;
            batch.settings->selectedCalendars = std::move(selection);
        }
    }

    std::unordered_set<MeetingIdentity> visited;
    const auto visit = [&](const MeetingIdentity& identity, bool reported) {
        const auto resolution = current.resolve(identity.calendarIdentifier, identity.calendarFingerprint,
                                                identity.calendarFingerprintIsUnique);
        if (resolution.calendar == nullptr) {
            if (reported) {
                issues.add(PersistenceComponent::exclusions, identity.calendarIdentifier, identity.calendarFingerprint,
                           resolution.problem);
            }
            return;
        }
        if (!visited.insert(identity).second) {
            return;
        }
        // An identity that is already up to date makes an invalid (identical) migration: it is not one.
        CalendarIdentityMigration migration{identity, resolution.calendar->stamped(identity)};
        if (migration.isValid()) {
            batch.identityMigrations.push_back(std::move(migration));
        }
    };
    for (const auto& record : m_exclusions.records()) {
        visit(record.identity, true);
    }
    // Reminder history and snoozes expire within days, so losing them is not worth the user's attention.
    for (const auto& record : m_delivery.records()) {
        visit(record.identity, false);
    }
    for (const auto& snooze : m_delivery.snoozes()) {
        visit(snooze.identity, false);
    }

    if (batch.settings || !batch.identityMigrations.empty()) {
        m_exclusions.applyAtomicBatch(batch, m_settings, m_delivery);
    }

    auto found = std::move(issues).finished();
    if (found != m_issues) {
        m_issues = std::move(found);
        if (m_issuesChanged) {
            m_issuesChanged();
        }
    }
}

} // namespace orvane
