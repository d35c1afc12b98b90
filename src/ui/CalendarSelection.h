// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarGroup.h"
#include "domain/CalendarSelectionRecord.h"

#include <QSet>
#include <QString>
#include <QVariantList>

#include <optional>
#include <vector>

namespace orvane {

/// Which calendars are checked, as onboarding and settings show them: a set of identifiers, or no set at all, which
/// checks every calendar, including ones that appear later.
class CalendarSelection {
public:
    explicit CalendarSelection(std::optional<QSet<QString>> chosen = std::nullopt);

    /// The identifiers of a stored selection; absent when none was stored.
    static std::optional<QSet<QString>> fromRecords(const std::optional<std::vector<CalendarSelectionRecord>>& records);
    /// How many calendars `groups` list.
    static qsizetype calendarCount(const std::vector<CalendarGroup>& groups);

    /// The identifiers as chosen; absent: every calendar.
    const std::optional<QSet<QString>>& chosen() const { return m_chosen; }
    bool contains(const QString& identifier) const;
    /// The calendars of `groups` that are checked; a chosen calendar that is no longer listed does not count.
    QSet<QString> listed(const std::vector<CalendarGroup>& groups) const;
    /// Checks or unchecks one calendar; the other listed calendars keep their state.
    void set(const std::vector<CalendarGroup>& groups, const QString& identifier, bool selected);
    void selectAll();
    void clear();
    /// "2 of 5 selected", counting the listed calendars only.
    QString counter(const std::vector<CalendarGroup>& groups) const;
    /// The non-empty groups as the views list them: `title` and `calendars`, each calendar with `identifier`,
    /// `title`, `color` and `selected`.
    QVariantList groupList(const std::vector<CalendarGroup>& groups) const;

private:
    std::optional<QSet<QString>> m_chosen;
};

} // namespace orvane
