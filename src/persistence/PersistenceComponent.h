// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"
#include "persistence/PersistenceReadFailure.h"

#include <QString>

namespace orvane {

/// One of the three stored records, as the stored-data review lists them.
enum class PersistenceComponent {
    settings,
    exclusions,
    delivery,
};

template <>
struct RawValues<PersistenceComponent> {
    static constexpr std::string_view name = "PersistenceComponent";
    static constexpr std::array cases = {
        std::pair{PersistenceComponent::settings, std::string_view("settings")},
        std::pair{PersistenceComponent::exclusions, std::string_view("exclusions")},
        std::pair{PersistenceComponent::delivery, std::string_view("delivery")},
    };
};

/// The title used when listing the component for review: "Settings", "Meeting exclusions", "Reminder history and
/// snoozes".
QString title(PersistenceComponent component);
/// The defaults key of its record: "Orvane.settings", "Orvane.exclusions", "Orvane.delivery".
QString recordKey(PersistenceComponent component);
/// What resetting the component's record costs the user (the first sentence of the reset confirmation).
QString resetConsequence(PersistenceComponent component);
/// The full confirmation asked before resetting the component's unreadable record.
QString resetConfirmation(PersistenceComponent component);

/// An unreadable record, for the stored-data review.
struct PersistenceIssue {
    PersistenceComponent component = PersistenceComponent::settings;
    PersistenceReadFailure failure;

    friend bool operator==(const PersistenceIssue&, const PersistenceIssue&) = default;
};

std::size_t hash(const PersistenceIssue& issue);

/// The review's item for a settings file that cannot be read at all, which stands for every record in it.
QString unreadableDatabaseTitle();
/// What is wrong with the file at `location` and what the user can do.
QString unreadableDatabaseExplanation(const QString& location);
/// The confirmation asked before the file is moved aside for a fresh one.
QString unreadableDatabaseResetConfirmation();

/// The paused state, as the application reports it.
inline constexpr const char16_t* persistencePausedMessage =
    u"Alerts are paused until unreadable stored data is reviewed in Settings.";
/// The heading of the stored-data review.
inline constexpr const char16_t* persistenceReviewHeading = u"Alerts paused to protect your choices";
/// The explanation under that heading.
inline constexpr const char16_t* persistenceReviewExplanation =
    u"One or more stored safety records cannot be read. No meetings will alert until every item below is recovered. "
    u"The original bytes remain untouched unless you explicitly reset that item.";

} // namespace orvane

ORVANE_DECLARE_STD_HASH(orvane::PersistenceIssue);
