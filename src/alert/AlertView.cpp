// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertView.h"

#include "alert/AlertViewModel.h"

#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>

#include <memory>

using namespace Qt::StringLiterals;

namespace orvane {

AlertView::AlertView(QQmlEngine& engine)
    : m_engine(engine)
    , m_component(&engine, QUrl(QString::fromLatin1(sourceURL)), QQmlComponent::PreferSynchronous)
{
}

QQuickItem* AlertView::create(AlertViewModel* model, QQuickItem* parent)
{
    m_errorString.clear();
    std::unique_ptr<QObject> object(m_component.beginCreate(m_engine.rootContext()));
    if (object == nullptr) {
        m_errorString = m_component.errorString();
        return nullptr;
    }
    m_component.setInitialProperties(object.get(), {{u"viewModel"_s, QVariant::fromValue<QObject*>(model)}});
    auto* item = qobject_cast<QQuickItem*>(object.get());
    if (item != nullptr) {
        // Parented before completion, so that the anchors to the parent and the window bindings hold from the start.
        item->setParentItem(parent);
        item->setParent(parent);
    }
    m_component.completeCreate();
    if (item == nullptr || m_component.isError()) {
        m_errorString = item == nullptr ? u"The alert's root is not an item"_s : m_component.errorString();
        return nullptr;
    }
    object.release();
    return item;
}

} // namespace orvane
