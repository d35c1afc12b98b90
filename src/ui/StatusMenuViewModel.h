// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/StatusMenu.h"

#include <QObject>
#include <QVariantList>

#include <vector>

namespace orvane {

/// The status menu as a window shows it. On a desktop without a tray the settings window offers the menu instead:
/// the same entries (StatusMenuContent::build) and the same handler for what the user chooses as the tray menu's, so
/// the two can never disagree.
class StatusMenuViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList entries READ entryList NOTIFY entriesChanged)
    Q_PROPERTY(bool needed READ isNeeded NOTIFY neededChanged)

public:
    /// `perform` does what a chosen entry asks, as it does for the tray menu.
    explicit StatusMenuViewModel(StatusMenu::Perform perform, QObject* parent = nullptr);

    /// One map per entry, top to bottom: `kind` ("status", "action", "header", "separator" or "meeting"), `text`,
    /// `symbol` (a SymbolIcon name; empty for none), `enabled`, and `actions`: the titles of a meeting's actions.
    QVariantList entryList() const;
    void setEntries(std::vector<StatusMenuEntry> entries);

    /// No tray shows the status item, so a window has to offer its menu.
    bool isNeeded() const { return m_needed; }
    void setNeeded(bool needed);

    /// Does what entry `entry` does, or with `action` the meeting's action of that number; a disabled entry or a
    /// line that only informs does nothing.
    Q_INVOKABLE void choose(int entry, int action = -1);

Q_SIGNALS:
    void entriesChanged();
    void neededChanged();

private:
    StatusMenu::Perform m_perform;
    std::vector<StatusMenuEntry> m_entries;
    bool m_needed = false;
};

} // namespace orvane
