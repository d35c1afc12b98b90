// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/BundleInfo.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace orvane {

BundleInfo::BundleInfo(std::vector<std::pair<QString, QString>> values)
    : m_values(std::move(values))
{
}

std::optional<QString> BundleInfo::value(QStringView key) const
{
    const auto found =
        std::find_if(m_values.begin(), m_values.end(), [key](const auto& entry) { return entry.first == key; });
    if (found == m_values.end() || found->second.trimmed().isEmpty()) {
        return std::nullopt;
    }
    return found->second;
}

QString BundleInfo::shortVersion() const
{
    return value(u"CFBundleShortVersionString").value_or(QString());
}

QString BundleInfo::buildNumber() const
{
    return value(u"CFBundleVersion").value_or(QString());
}

} // namespace orvane
