// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/CalendarSelection.h"

#include "ui/WindowTexts.h"

#include <QVariantMap>

#include <utility>

using namespace Qt::StringLiterals;

namespace orvane {

CalendarSelection::CalendarSelection(std::optional<QSet<QString>> chosen)
    : m_chosen(std::move(chosen))
{
}

std::optional<QSet<QString>>
CalendarSelection::fromRecords(const std::optional<std::vector<CalendarSelectionRecord>>& records)
{
    if (!records) {
        return std::nullopt;
    }
    QSet<QString> identifiers;
    for (const auto& record : *records) {
        identifiers.insert(record.calendarIdentifier);
    }
    return identifiers;
}

qsizetype CalendarSelection::calendarCount(const std::vector<CalendarGroup>& groups)
{
    qsizetype count = 0;
    for (const auto& group : groups) {
        count += static_cast<qsizetype>(group.calendars.size());
    }
    return count;
}

bool CalendarSelection::contains(const QString& identifier) const
{
    return !m_chosen || m_chosen->contains(identifier);
}

QSet<QString> CalendarSelection::listed(const std::vector<CalendarGroup>& groups) const
{
    QSet<QString> selected;
    for (const auto& group : groups) {
        for (const auto& calendar : group.calendars) {
            if (contains(calendar.identifier)) {
                selected.insert(calendar.identifier);
            }
        }
    }
    return selected;
}

void CalendarSelection::set(const std::vector<CalendarGroup>& groups, const QString& identifier, bool selected)
{
    QSet<QString> current = listed(groups);
    if (selected) {
        current.insert(identifier);
    } else {
        current.remove(identifier);
    }
    m_chosen = std::move(current);
}

void CalendarSelection::selectAll()
{
    m_chosen.reset();
}

void CalendarSelection::clear()
{
    m_chosen = QSet<QString>();
}

QString CalendarSelection::counter(const std::vector<CalendarGroup>& groups) const
{
    return WindowTexts::selectionCounter(listed(groups).size(), calendarCount(groups));
}

QVariantList CalendarSelection::groupList(const std::vector<CalendarGroup>& groups) const
{
    QVariantList result;
    for (const auto& group : groups) {
        if (group.calendars.empty()) {
            continue;
        }
        QVariantList calendars;
        for (const auto& calendar : group.calendars) {
            calendars.append(QVariantMap{{u"identifier"_s, calendar.identifier},
                                         {u"title"_s, calendar.title},
                                         {u"color"_s, calendar.colorHex.value_or(QString())},
                                         {u"selected"_s, contains(calendar.identifier)}});
        }
        result.append(QVariantMap{{u"title"_s, WindowTexts::calendarGroupTitle(group.sourceKind, group.sourceTitle)},
                                  {u"calendars"_s, calendars}});
    }
    return result;
}

} // namespace orvane
