// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <QStringView>

#include <optional>
#include <utility>
#include <vector>

namespace orvane {

/// The deployment values fixed when Orvane was built (version, build number, preconfigured OAuth clients, web
/// addresses), read-only, under the key names the macOS edition keeps in its information property list.
class BundleInfo {
public:
    /// The values this build was configured with.
    static BundleInfo compiled();

    explicit BundleInfo(std::vector<std::pair<QString, QString>> values);

    /// The value of `key`; absent when the key is unknown or was configured empty.
    std::optional<QString> value(QStringView key) const;

    /// "CFBundleShortVersionString": the release version, "0.1.0".
    QString shortVersion() const;
    /// "CFBundleVersion": the build number.
    QString buildNumber() const;

private:
    std::vector<std::pair<QString, QString>> m_values;
};

} // namespace orvane
