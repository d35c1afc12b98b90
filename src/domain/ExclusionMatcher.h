// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/ExclusionRecord.h"

#include <QHash>

#include <span>
#include <vector>

namespace orvane {

/// Decides whether a meeting is excluded, with the records indexed by series so that a query looks only at the
/// records of its own series.
class ExclusionMatcher {
public:
    ExclusionMatcher() = default;
    /// Indexes a copy of `records`; their stored order is kept, since the first matching record decides.
    explicit ExclusionMatcher(std::span<const ExclusionRecord> records);

    /// Whether the exclusion `record` covers the occurrence with identity `occurrence`.
    ///
    /// The series must be the same. The calendar must be the same by identifier (source identifiers equal, or
    /// either empty), or else, only for series identifiers the calendar server assigned ("external:"), by a
    /// complete fingerprint that was unique on both sides. A series exclusion then matches; an occurrence
    /// exclusion only when the occurrence starts are equal.
    static bool matches(const ExclusionRecord& record, const MeetingIdentity& occurrence);

    /// The first record, in stored order, that covers `occurrence`; null when none does.
    const ExclusionRecord* firstMatch(const MeetingIdentity& occurrence) const;
    bool isExcluded(const MeetingIdentity& occurrence) const { return firstMatch(occurrence) != nullptr; }

    /// The first record of `records` that covers `occurrence`, walking the whole list (for one-off queries).
    static const ExclusionRecord* firstMatch(std::span<const ExclusionRecord> records,
                                             const MeetingIdentity& occurrence);

    const std::vector<ExclusionRecord>& records() const { return m_records; }

private:
    std::vector<ExclusionRecord> m_records;
    /// Series identifier to the positions of its records, ascending.
    QHash<QString, std::vector<std::size_t>> m_bySeries;
};

} // namespace orvane
