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

struct AlertScene {
    QQmlEngine engine;
    // Compiled once and reused for every panel, so that later alerts do not parse QML again.
    AlertView view{engine};
    QQmlComponent backdrop{&engine};

    AlertScene() { backdrop.setData(QByteArray(backdropSource), QUrl(u"qrc:/orvane/alert/Backdrop.qml"_s)); }
};

std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(const Clock& clock)
{
    auto scene = std::make_shared<std::unique_ptr<AlertScene>>();
    return [&clock, scene](QQuickWindow& window, const AlertPanelContent& content) {
        if (!*scene) {
            *scene = std::make_unique<AlertScene>();
        }
        AlertScene& parts = **scene;
        window.setColor(QColor::fromRgbF(0.035f, 0.047f, 0.063f));
        if (content.meetings.empty()) {
            auto* item = qobject_cast<QQuickItem*>(parts.backdrop.create(parts.engine.rootContext()));
            if (item == nullptr) {
                qWarning().noquote() << "Orvane: the alert backdrop could not be built:"
                                     << parts.backdrop.errorString();
                return;
            }
            item->setParentItem(window.contentItem());
            item->setParent(window.contentItem());
            return;
        }
        auto* model = new AlertViewModel(content.meetings, clock, content.onAction, &window);
        if (parts.view.create(model, window.contentItem()) == nullptr) {
            // The window keeps its dark colour, and Escape still reaches the controller.
            qWarning().noquote() << "Orvane: the alert view could not be built:" << parts.view.errorString();
        }
    };
}

} // namespace orvane
