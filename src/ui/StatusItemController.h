// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/StatusMenuContent.h"
#include "ui/StatusMenuViewModel.h"

#include <QObject>
#include <QUrl>

#include <functional>
#include <memory>
#include <optional>

class QMenu;
class QSystemTrayIcon;

namespace orvane {

class AppModel;
class WindowCoordinating;

/// Orvane's permanent surface: the status item in the panel's tray and its menu, rebuilt from the application model
/// whenever the model changes.
///
/// The item itself is made by showStatusItem(), once the desktop has a tray to show it in; until then the menu is
/// still kept and rebuilt, and on a desktop known to have no tray (showMenuInWindows()) the settings window offers
/// it through windowMenu().
class StatusItemController final : public QObject {
    Q_OBJECT

public:
    /// `updateURL` is the configured update address ("Check for Updates…" shows only with one); `openUrl` opens an
    /// address in the browser and returns false when it could not.
    StatusItemController(AppModel& model, WindowCoordinating& windows, std::optional<QUrl> updateURL,
                         std::function<bool(const QUrl&)> openUrl, QObject* parent = nullptr);
    ~StatusItemController() override;

    /// Puts the status item in the desktop's tray (once; later calls do nothing).
    void showStatusItem();

    /// No tray will show the status item for now: the settings window offers the menu until one does.
    void showMenuInWindows();

    /// The menu attached to the status item.
    QMenu* menu() const { return m_menu.get(); }
    /// The same menu for a window, whose choices go where the tray menu's go.
    StatusMenuViewModel& windowMenu() { return m_windowMenu; }

    /// What the menu needs to know, read from `model` at `now`.
    static StatusMenuInput input(const AppModel& model, bool hasUpdateURL, Date now);

private:
    void scheduleRebuild();
    void rebuild();
    /// What both the tray menu and the window's menu call when the user chooses an entry.
    StatusMenu::Perform performer();
    void perform(StatusMenuAction action, const std::optional<MeetingOccurrence>& meeting);

    AppModel& m_model;
    WindowCoordinating& m_windows;
    std::optional<QUrl> m_updateURL;
    std::function<bool(const QUrl&)> m_openUrl;
    // The menu outlives the status item that shows it.
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    StatusMenuViewModel m_windowMenu;
    bool m_rebuildPending = false;
};

} // namespace orvane
