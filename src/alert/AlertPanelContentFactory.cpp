// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertPanelContentFactory.h"

#include "alert/AlertView.h"
#include "alert/AlertViewModel.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QtDebug>

#include <memory>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

constexpr auto backdropSource = R"(import QtQuick
Item {
    anchors.fill: parent
    AlertTheme { id: theme }
    AlertBackdrop { anchors.fill: parent; theme: theme }
})";

} // namespace

std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(QQmlEngine& engine,
                                                                                          const Clock& clock)
{
    // Compiled once and reused for every panel, so that showing an alert does not parse QML again.
    auto view = std::make_shared<AlertView>(engine);
    auto backdrop = std::make_shared<QQmlComponent>(&engine);
    backdrop->setData(QByteArray(backdropSource), QUrl(u"qrc:/orvane/alert/Backdrop.qml"_s));

    return [&engine, &clock, view, backdrop](QQuickWindow& window, const AlertPanelContent& content) {
        window.setColor(QColor::fromRgbF(0.035f, 0.047f, 0.063f));
        if (content.meetings.empty()) {
            auto* item = qobject_cast<QQuickItem*>(backdrop->create(engine.rootContext()));
            if (item == nullptr) {
                qWarning().noquote() << "Orvane: the alert backdrop could not be built:" << backdrop->errorString();
                return;
            }
            item->setParentItem(window.contentItem());
            item->setParent(window.contentItem());
            return;
        }
        auto* model = new AlertViewModel(content.meetings, clock, content.onAction, &window);
        if (view->create(model, window.contentItem()) == nullptr) {
            // The window keeps its dark colour, and Escape still reaches the controller.
            qWarning().noquote() << "Orvane: the alert view could not be built:" << view->errorString();
        }
    };
}

} // namespace orvane
