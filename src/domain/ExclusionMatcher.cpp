// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/ExclusionMatcher.h"

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

bool sameCalendarByIdentifier(const MeetingIdentity& recorded, const MeetingIdentity& occurrence)
{
    return recorded.calendarIdentifier == occurrence.calendarIdentifier &&
           (recorded.sourceIdentifier == occurrence.sourceIdentifier || recorded.sourceIdentifier.isEmpty() ||
            occurrence.sourceIdentifier.isEmpty());
}

/// A calendar whose identifier changed is recognised by what it looks like, but only for events the server
/// identifies ("external:" series), and only when the look was complete and unambiguous when each side recorded
/// it: a local item identifier or a fingerprint shared by two calendars must never carry an exclusion over.
bool sameCalendarByFingerprint(const MeetingIdentity& recorded, const MeetingIdentity& occurrence)
{
    return recorded.seriesIdentifier.startsWith(u"external:"_s) && recorded.calendarFingerprint &&
           occurrence.calendarFingerprint && recorded.calendarFingerprint->isComplete() &&
           recorded.calendarFingerprintIsUnique && occurrence.calendarFingerprintIsUnique &&
           *recorded.calendarFingerprint == *occurrence.calendarFingerprint;
}

} // namespace

ExclusionMatcher::ExclusionMatcher(std::span<const ExclusionRecord> records)
    : m_records(records.begin(), records.end())
{
    for (std::size_t index = 0; index < m_records.size(); ++index) {
        m_bySeries[m_records[index].identity.seriesIdentifier].push_back(index);
    }
}

bool ExclusionMatcher::matches(const ExclusionRecord& record, const MeetingIdentity& occurrence)
{
    const auto& recorded = record.identity;
    if (recorded.seriesIdentifier != occurrence.seriesIdentifier) {
        return false;
    }
    if (!sameCalendarByIdentifier(recorded, occurrence) && !sameCalendarByFingerprint(recorded, occurrence)) {
        return false;
    }
    switch (record.scope) {
    case ExclusionScope::series:
        return true;
    case ExclusionScope::occurrence:
        return recorded.occurrenceStart == occurrence.occurrenceStart;
    }
    return false;
}

const ExclusionRecord* ExclusionMatcher::firstMatch(const MeetingIdentity& occurrence) const
{
    const auto found = m_bySeries.constFind(occurrence.seriesIdentifier);
    if (found == m_bySeries.constEnd()) {
        return nullptr;
    }
    for (const std::size_t index : *found) {
        if (matches(m_records[index], occurrence)) {
            return &m_records[index];
        }
    }
    return nullptr;
}

const ExclusionRecord* ExclusionMatcher::firstMatch(std::span<const ExclusionRecord> records,
                                                    const MeetingIdentity& occurrence)
{
    for (const auto& record : records) {
        if (matches(record, occurrence)) {
            return &record;
        }
    }
    return nullptr;
}

} // namespace orvane
