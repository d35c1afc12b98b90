// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <optional>
#include <vector>

namespace orvane {

/// The about window: product name, version and the web links this build was configured with.
class AboutViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(QString versionLine READ versionLine CONSTANT)
    Q_PROPERTY(QVariantList links READ linkList CONSTANT)

public:
    /// Looks up a deployment value by its property-list key name; absent when not configured.
    using BundleValue = std::function<std::optional<QString>(const QString& key)>;
    /// Opens a URL in the user's browser; false when it could not.
    using OpenUrl = std::function<bool(const QUrl&)>;

    struct Link {
        QString title;
        QUrl url;
        friend bool operator==(const Link&, const Link&) = default;
    };

    AboutViewModel(const BundleValue& bundleValue, OpenUrl openUrl, QObject* parent = nullptr);

    QVariantMap texts() const;
    QString versionLine() const { return m_versionLine; }
    /// "Website", "Privacy", "Terms", "Support", "Updates", in that order; a link without a usable address is left
    /// out rather than shown dead.
    const std::vector<Link>& links() const { return m_links; }
    QVariantList linkList() const;

    /// Opens the link at `index` of links(); false when there is none or the browser could not be started.
    Q_INVOKABLE bool openLink(int index);

private:
    OpenUrl m_openUrl;
    QString m_versionLine;
    std::vector<Link> m_links;
};

} // namespace orvane
