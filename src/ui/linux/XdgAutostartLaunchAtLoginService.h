// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ui/LaunchAtLoginService.h"

namespace orvane {

/// Launch at login through an XDG autostart entry, `<config home>/autostart/com.velmont.Orvane.desktop`, which the
/// desktop's session manager reads at login.
class XdgAutostartLaunchAtLoginService final : public LaunchAtLoginService {
    Q_OBJECT

public:
    /// `configHome` is `$XDG_CONFIG_HOME` (or `~/.config`); `executablePath` the absolute path of the running program.
    XdgAutostartLaunchAtLoginService(QString configHome, QString executablePath, QObject* parent = nullptr);

    /// Where the entry lives.
    QString entryPath() const;

    /// `path` as one argument of an entry's `Exec` key, quoted and escaped as desktop entries require.
    static QString execArgument(const QString& path);

    Status status() const override;
    QCoro::Task<> registerMainApp() override;
    QCoro::Task<> unregisterMainApp() override;

private:
    QString m_configHome;
    QString m_executablePath;
};

} // namespace orvane
