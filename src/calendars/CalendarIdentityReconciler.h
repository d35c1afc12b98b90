// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarReconciliationIssue.h"
#include "domain/CalendarGroup.h"
#include "scheduling/CalendarIdentityReconciling.h"

#include <functional>
#include <vector>

namespace orvane {

class DeliveryStoring;
class ExclusionStoring;
class SettingsStoring;

/// The calendars every source listed at one moment.
struct CalendarSnapshot {
    std::vector<CalendarGroup> groups;
    /// Every calendar source answered this time; otherwise a missing calendar may only belong to a failed source.
    bool complete = false;
};

/// Keeps the calendar selection, the exclusions, the reminder history and the snoozes pointing at the user's
/// calendars when calendar identifiers change (an account removed and added again, a calendar service that
/// renumbers its calendars), and reports the stored choices it cannot re-attach.
///
/// A calendar is recognised by its fingerprint {source kind, source title, calendar title}. After each successful
/// fetch, every stored calendar reference is looked up among the current calendars:
/// - its identifier still exists: its fingerprint is brought up to date (filled in for selections of the first
///   settings version), and identities take the source identifier, fingerprint and uniqueness that freshly fetched
///   occurrences of that calendar carry, because deliveries and snoozes are found by whole-identity equality;
/// - its identifier is gone: it moves to the one current calendar with an equal, complete fingerprint; with no such
///   calendar, or several, it stays as it is, and a selection or exclusions naming it is reported as an issue.
///
/// Beyond that rule:
/// - An identity recorded while its fingerprint was not unique never moves, even if one look-alike is left: the
///   survivor may be the other calendar, and the exclusion matcher refuses such a fingerprint for the same reason.
///   It is reported as ambiguous. A selection record has no uniqueness flag and counts as unique.
/// - The values identities take come from the fetched occurrences of the calendar when there are any, otherwise
///   from the snapshot (a fingerprint is unique when no other calendar in it has the same one), so that what is
///   stored is exactly what the next fetch will compare it with.
/// - A selection that ends up naming one calendar twice keeps the first entry.
/// - All changes are written in one atomic batch, so selection, exclusions and history move together or not at all;
///   nothing is written when nothing changes.
/// - An incomplete snapshot changes nothing, the issues included: a source that failed must not make its calendars
///   look deleted. While any record is unreadable nothing is looked at and the store's RecoveryRequired error is
///   thrown (the scheduler pauses before it gets here). A store error propagates and leaves the issues as they were.
class CalendarIdentityReconciler final : public CalendarIdentityReconciling {
public:
    /// Returns the calendars every source listed most recently.
    using SnapshotProvider = std::function<CalendarSnapshot()>;

    /// The stores must outlive the reconciler; all of them must live in one defaults database for the atomic batch.
    CalendarIdentityReconciler(SettingsStoring& settings, ExclusionStoring& exclusions, DeliveryStoring& delivery,
                               SnapshotProvider currentCalendars);

    /// Re-matches the stored records with the current calendars. Throws PersistenceStoreError.
    void reconcile(std::span<const MeetingOccurrence> fetched) override;

    /// The stored choices that the last complete pass could not re-attach, settings first, in stored order; one per
    /// stored record (settings or exclusions) and calendar identifier.
    const std::vector<CalendarReconciliationIssue>& issues() const { return m_issues; }
    /// Called after issues() changed (never when a pass found the same issues again).
    void setIssuesChanged(std::function<void()> callback) { m_issuesChanged = std::move(callback); }

private:
    SettingsStoring& m_settings;
    ExclusionStoring& m_exclusions;
    DeliveryStoring& m_delivery;
    SnapshotProvider m_currentCalendars;
    std::vector<CalendarReconciliationIssue> m_issues;
    std::function<void()> m_issuesChanged;
};

} // namespace orvane
