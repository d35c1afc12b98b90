// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QQmlComponent>
#include <QString>

class QQmlEngine;
class QQuickItem;

namespace orvane {

class AlertViewModel;

/// Builds the content of the full-screen alert (qrc:/orvane/alert/FullScreenMeetingAlert.qml) for each
/// presentation.
///
/// The QML is compiled once per engine and reused; the host keeps one engine for all presentations and puts the
/// created item into the alert's window (for example the content item of a frameless QQuickWindow).
class AlertView {
public:
    static constexpr const char* sourceURL = "qrc:/orvane/alert/FullScreenMeetingAlert.qml";

    explicit AlertView(QQmlEngine& engine);

    /// The alert's root item for `model`, filling `parent` and owned by it; nullptr when the QML cannot be built
    /// (see errorString()). The view model must outlive the item.
    QQuickItem* create(AlertViewModel* model, QQuickItem* parent);
    /// What went wrong in the last create() that returned nullptr.
    QString errorString() const { return m_errorString; }

private:
    QQmlEngine& m_engine;
    QQmlComponent m_component;
    QString m_errorString;
};

} // namespace orvane
