// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusMenuViewModel.h"

#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

QString kindName(StatusMenuEntry::Kind kind)
{
    switch (kind) {
    case StatusMenuEntry::Kind::status:
        return u"status"_s;
    case StatusMenuEntry::Kind::action:
        return u"action"_s;
    case StatusMenuEntry::Kind::header:
        return u"header"_s;
    case StatusMenuEntry::Kind::separator:
        return u"separator"_s;
    case StatusMenuEntry::Kind::meeting:
        return u"meeting"_s;
    }
    return {};
}

/// The window's line symbol for a menu symbol. The window draws its own symbols in the palette's colour rather than
/// the icon theme's pictures the tray menu uses; every status symbol other than a meeting's marks a problem.
QString windowSymbol(const QString& symbol)
{
    if (symbol.isEmpty() || symbol == u"video" || symbol == u"calendar") {
        return symbol;
    }
    return symbol == u"calendar.badge.exclamationmark" ? u"calendar-alert"_s : u"warning"_s;
}

} // namespace

StatusMenuViewModel::StatusMenuViewModel(StatusMenu::Perform perform, QObject* parent)
    : QObject(parent)
    , m_perform(std::move(perform))
{
}

QVariantList StatusMenuViewModel::entryList() const
{
    QVariantList entries;
    for (const StatusMenuEntry& entry : m_entries) {
        QStringList actions;
        for (const StatusMenuEntry& action : entry.submenu) {
            actions.append(action.text);
        }
        entries.append(QVariantMap{{u"kind"_s, kindName(entry.kind)},
                                   {u"text"_s, entry.text},
                                   {u"symbol"_s, windowSymbol(entry.symbol)},
                                   {u"enabled"_s, entry.enabled},
                                   {u"actions"_s, actions}});
    }
    return entries;
}

void StatusMenuViewModel::setEntries(std::vector<StatusMenuEntry> entries)
{
    m_entries = std::move(entries);
    Q_EMIT entriesChanged();
}

void StatusMenuViewModel::setNeeded(bool needed)
{
    if (needed != m_needed) {
        m_needed = needed;
        Q_EMIT neededChanged();
    }
}

void StatusMenuViewModel::choose(int entry, int action)
{
    if (entry < 0 || entry >= static_cast<int>(m_entries.size())) {
        return;
    }
    const StatusMenuEntry* chosen = &m_entries[static_cast<std::size_t>(entry)];
    if (action >= 0) {
        if (action >= static_cast<int>(chosen->submenu.size())) {
            return;
        }
        chosen = &chosen->submenu[static_cast<std::size_t>(action)];
    }
    if (!chosen->enabled || chosen->action == StatusMenuAction::none || !m_perform) {
        return;
    }
    // Copied first: what is performed may lead to new entries.
    const StatusMenuAction what = chosen->action;
    const std::optional<MeetingOccurrence> meeting = chosen->meeting;
    m_perform(what, meeting);
}

} // namespace orvane
