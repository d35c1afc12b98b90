// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertPanelContentFactory.h"

#include "alert/AlertPrivacy.h"
#include "alert/AlertView.h"
#include "alert/AlertViewModel.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <QtDebug>

#include <memory>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

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

namespace {

/// The scene while any panel uses it. Orvane waits in the tray for hours between alerts: the QML engine and what it
/// compiled (several megabytes) go with the last panel, and the freed heap is handed back to the system.
struct SharedAlertScene {
    std::unique_ptr<AlertScene> scene;
    int windows = 0;

    AlertScene& use(QQuickWindow& window, const std::shared_ptr<SharedAlertScene>& self)
    {
        if (!scene) {
            scene = std::make_unique<AlertScene>();
        }
        ++windows;
        QObject::connect(&window, &QObject::destroyed, [weak = std::weak_ptr(self)] {
            const auto shared = weak.lock();
            if (shared && --shared->windows == 0) {
                // Later: the window's items, made by the engine, are deleted after the window's destroyed signal.
                QTimer::singleShot(0, [weak] {
                    if (const auto shared = weak.lock(); shared && shared->windows == 0) {
                        shared->scene.reset();
#if defined(__GLIBC__)
                        malloc_trim(0);
#endif
                    }
                });
            }
        });
        return *scene;
    }
};

} // namespace

std::function<void(QQuickWindow&, const AlertPanelContent&)> makeAlertPanelContentFactory(const Clock& clock,
                                                                                         const AlertPrivacy* privacy)
{
    auto shared = std::make_shared<SharedAlertScene>();
    return [&clock, privacy, shared](QQuickWindow& window, const AlertPanelContent& content) {
        AlertScene& parts = shared->use(window, shared);
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
        if (privacy) {
            AlertMeetingListModel* cards = model->meetingModel();
            cards->setConcealed(privacy->concealsDetails());
            QObject::connect(privacy, &AlertPrivacy::concealsDetailsChanged, cards, &AlertMeetingListModel::setConcealed);
        }
        if (parts.view.create(model, window.contentItem()) == nullptr) {
            // The window keeps its dark colour, and Escape still reaches the controller.
            qWarning().noquote() << "Orvane: the alert view could not be built:" << parts.view.errorString();
        }
    };
}

} // namespace orvane
