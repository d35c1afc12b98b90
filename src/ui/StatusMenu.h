// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/StatusMenuContent.h"

#include <QIcon>
#include <QStringList>

#include <functional>
#include <optional>
#include <vector>

class QMenu;

namespace orvane {

/// Turns the status menu's content into Qt widgets and its symbols into icons.
class StatusMenu {
public:
    /// Called when the user chooses an item; `meeting` is the meeting a per-meeting action acts on.
    using Perform = std::function<void(StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting)>;

    /// Replaces everything in `menu` (its submenus too) with `entries`; choosing an item calls `perform`.
    static void populate(QMenu& menu, const std::vector<StatusMenuEntry>& entries, const Perform& perform);

    /// The freedesktop icon-theme names tried for a symbol, best first; empty for an unknown symbol.
    static QStringList themeIconNames(const QString& symbol);
    /// The icon of a symbol: from the icon theme when it has one of the names, else one that needs no theme.
    static QIcon icon(const QString& symbol);
};

} // namespace orvane
