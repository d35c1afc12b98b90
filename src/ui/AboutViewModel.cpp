// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/AboutViewModel.h"

#include "ui/WindowTexts.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace orvane {

AboutViewModel::AboutViewModel(const BundleValue& bundleValue, OpenUrl openUrl, QObject* parent)
    : QObject(parent)
    , m_openUrl(std::move(openUrl))
    , m_versionLine(
          WindowTexts::versionLine(bundleValue(u"CFBundleShortVersionString"_s), bundleValue(u"CFBundleVersion"_s)))
{
    for (const auto& [title, key] : WindowTexts::aboutLinks()) {
        const auto value = bundleValue(key);
        if (!value) {
            continue;
        }
        const QUrl url(value->trimmed(), QUrl::StrictMode);
        // Only addresses a browser opens: a relative or schemeless value is a configuration slip.
        if (url.isValid() && (url.scheme() == u"https"_s || url.scheme() == u"http"_s) && !url.host().isEmpty()) {
            m_links.push_back({title, url});
        }
    }
}

QVariantMap AboutViewModel::texts() const
{
    return WindowTexts::aboutTexts();
}

QVariantList AboutViewModel::linkList() const
{
    QVariantList list;
    for (const auto& link : m_links) {
        list.append(QVariantMap{{u"title"_s, link.title}, {u"url"_s, link.url.toString()}});
    }
    return list;
}

bool AboutViewModel::openLink(int index)
{
    if (index < 0 || std::cmp_greater_equal(index, m_links.size()) || !m_openUrl) {
        return false;
    }
    return m_openUrl(m_links[static_cast<std::size_t>(index)].url);
}

} // namespace orvane
