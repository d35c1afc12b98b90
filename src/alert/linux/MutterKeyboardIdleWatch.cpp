// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/MutterKeyboardIdleWatch.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QtDebug>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

const QString service = u"org.gnome.Mutter.IdleMonitor"_s;
const QString path = u"/org/gnome/Mutter/IdleMonitor/Core"_s;
const QString interface = u"org.gnome.Mutter.IdleMonitor"_s;

} // namespace

MutterKeyboardIdleWatch::MutterKeyboardIdleWatch(QDBusConnection bus, QObject* parent)
    : KeyboardIdleWatch(parent)
    , m_bus(std::move(bus))
{
    m_bus.connect(service, path, interface, u"WatchFired"_s, this, SLOT(watchFired(uint)));
    m_pause.setSingleShot(true);
    m_pause.setInterval(idleThreshold);
    connect(&m_pause, &QTimer::timeout, this, [this] { setIdle(true); });
}

MutterKeyboardIdleWatch::~MutterKeyboardIdleWatch()
{
    stopWatching();
}

void MutterKeyboardIdleWatch::startWatching()
{
    m_watching = true;
    ++m_generation;
    addWatch(u"AddIdleWatch"_s, {QVariant::fromValue(quint64(idleThreshold.count()))}, m_idleWatch);
    addWatch(u"AddUserActiveWatch"_s, {}, m_activeWatch);
}

void MutterKeyboardIdleWatch::stopWatching()
{
    m_watching = false;
    ++m_generation;
    m_pause.stop();
    removeWatch(m_idleWatch);
    removeWatch(m_activeWatch);
}

void MutterKeyboardIdleWatch::addWatch(const QString& method, const QVariantList& arguments, std::uint32_t& slot)
{
    auto message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, &slot, generation = m_generation](QDBusPendingCallWatcher* call) {
                call->deleteLater();
                const QDBusPendingReply<std::uint32_t> reply = *call;
                if (reply.isError()) {
                    // No idle monitor after all: the alert need not wait for one.
                    qWarning().noquote() << "Orvane: GNOME's idle monitor did not answer:" << reply.error().message();
                    m_available = false;
                    setIdle(true);
                    return;
                }
                slot = reply.value();
                if (generation != m_generation) {
                    removeWatch(slot);
                }
            });
}

void MutterKeyboardIdleWatch::removeWatch(std::uint32_t& slot)
{
    if (slot != 0) {
        auto message = QDBusMessage::createMethodCall(service, path, interface, u"RemoveWatch"_s);
        message << slot;
        m_bus.call(message, QDBus::NoBlock);
        slot = 0;
    }
}

void MutterKeyboardIdleWatch::watchFired(uint id)
{
    if (id == 0 || !m_watching) {
        return;
    }
    if (id == m_idleWatch) {
        setIdle(true);
    } else if (id == m_activeWatch) {
        // A user-active watch fires once: the next input needs another.
        m_activeWatch = 0;
        setIdle(false);
        m_pause.start();
        addWatch(u"AddUserActiveWatch"_s, {}, m_activeWatch);
    }
}

} // namespace orvane
