// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace orvane {

/// Opens Orvane's windows; each comes forward if it is open already.
class WindowCoordinating {
public:
    enum class SettingsSection {
        general,
        calendars,
    };

    virtual ~WindowCoordinating() = default;
    virtual void openOnboarding() = 0;
    virtual void openSettings(SettingsSection section = SettingsSection::general) = 0;
    virtual void openAbout() = 0;
};

} // namespace orvane
