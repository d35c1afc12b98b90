// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace orvane {

/// Opens Orvane's windows; each comes forward if it is open already.
class WindowCoordinating {
public:
    /// The settings window's sections, numbered in the order of its pages; the sidebar lists them in this order, but
    /// for the menu, which comes first.
    enum class SettingsSection {
        general,
        calendars,
        accounts,
        exclusions,
        /// The review of unreadable stored records; listed only while there are any.
        storedData,
        /// The status menu, listed only while no tray shows the status item.
        menu,
    };

    virtual ~WindowCoordinating() = default;
    virtual void openOnboarding() = 0;
    virtual void openSettings(SettingsSection section = SettingsSection::general) = 0;
    virtual void openAbout() = 0;
};

} // namespace orvane
