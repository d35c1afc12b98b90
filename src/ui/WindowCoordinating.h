// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace orvane {

/// Opens Orvane's windows; each comes forward if it is open already.
class WindowCoordinating {
public:
    /// The settings window's sections, in sidebar order.
    enum class SettingsSection {
        general,
        calendars,
        accounts,
        exclusions,
        /// The review of unreadable stored records; listed only while there are any.
        storedData,
    };

    virtual ~WindowCoordinating() = default;
    virtual void openOnboarding() = 0;
    virtual void openSettings(SettingsSection section = SettingsSection::general) = 0;
    virtual void openAbout() = 0;
};

} // namespace orvane
