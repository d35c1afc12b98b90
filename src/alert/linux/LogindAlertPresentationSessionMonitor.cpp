// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/LogindAlertPresentationSessionMonitor.h"

#include "alert/linux/X11DisplayState.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QVariantMap>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

const QString logindService = u"org.freedesktop.login1"_s;
const QString logindPath = u"/org/freedesktop/login1"_s;
const QString logindManagerInterface = u"org.freedesktop.login1.Manager"_s;
const QString logindSessionInterface = u"org.freedesktop.login1.Session"_s;
const QString propertiesInterface = u"org.freedesktop.DBus.Properties"_s;

const QString freedesktopScreenSaverService = u"org.freedesktop.ScreenSaver"_s;
const QString freedesktopScreenSaverInterface = u"org.freedesktop.ScreenSaver"_s;
/// KDE, Xfce and others export the same object under both paths.
const QString freedesktopScreenSaverPaths[] = {u"/org/freedesktop/ScreenSaver"_s, u"/ScreenSaver"_s};
const QString gnomeScreenSaverService = u"org.gnome.ScreenSaver"_s;
const QString gnomeScreenSaverPath = u"/org/gnome/ScreenSaver"_s;
const QString gnomeScreenSaverInterface = u"org.gnome.ScreenSaver"_s;

bool isReply(const QDBusMessage& message)
{
    return message.type() == QDBusMessage::ReplyMessage && !message.arguments().isEmpty();
}

/// The value of a `Properties.Get` reply.
QVariant propertyValue(const QDBusMessage& reply)
{
    return reply.arguments().constFirst().value<QDBusVariant>().variant();
}

} // namespace

LogindAlertPresentationSessionMonitor::LogindAlertPresentationSessionMonitor(QDBusConnection systemBus,
                                                                             QDBusConnection sessionBus,
                                                                             X11DisplayState* display, QObject* parent)
    : QObject(parent)
    , m_systemBus(std::move(systemBus))
    , m_sessionBus(std::move(sessionBus))
    , m_systemWatcher(
          new QDBusServiceWatcher(logindService, m_systemBus, QDBusServiceWatcher::WatchForOwnerChange, this))
    , m_sessionWatcher(new QDBusServiceWatcher(this))
    , m_display(display)
{
    m_lockConfirmation.setSingleShot(true);
    m_lockConfirmation.setInterval(lockConfirmationWindow);
    connect(&m_lockConfirmation, &QTimer::timeout, this, &LogindAlertPresentationSessionMonitor::lockConfirmationEnded);
    if (m_display) {
        connect(m_display, &X11DisplayState::screenSaverActiveChanged, this, [this](bool active) {
            if (!active) {
                // The displays come back with the saver: whatever power level was seen before is over.
                m_displaysPoweredDown = false;
            }
            update();
        });
        connect(m_display, &X11DisplayState::topLevelWindowWentAway, this,
                &LogindAlertPresentationSessionMonitor::topLevelWindowWentAway);
    }

    m_sessionWatcher->setConnection(m_sessionBus);
    m_sessionWatcher->setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    m_sessionWatcher->setWatchedServices({freedesktopScreenSaverService, gnomeScreenSaverService});
    for (auto* watcher : {m_systemWatcher, m_sessionWatcher}) {
        connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
                [this](const QString& service, const QString&, const QString& owner) {
                    handleOwnerChanged(service, owner);
                });
    }

    // Signals are matched from any sender and checked against the owner in the handlers (see the class comment).
    m_systemBus.connect(QString(), logindPath, logindManagerInterface, u"PrepareForSleep"_s, this,
                        SLOT(handlePrepareForSleep(QDBusMessage)));
    for (const QString& path : freedesktopScreenSaverPaths) {
        m_sessionBus.connect(QString(), path, freedesktopScreenSaverInterface, u"ActiveChanged"_s, this,
                             SLOT(handleScreenSaverActiveChanged(QDBusMessage)));
    }
    m_sessionBus.connect(QString(), gnomeScreenSaverPath, gnomeScreenSaverInterface, u"ActiveChanged"_s, this,
                         SLOT(handleScreenSaverActiveChanged(QDBusMessage)));

    // The watchers report only changes from now on: ask who owns the names already.
    queryOwner(m_systemBus, logindService);
    queryOwner(m_sessionBus, freedesktopScreenSaverService);
    queryOwner(m_sessionBus, gnomeScreenSaverService);
}

LogindAlertPresentationSessionMonitor::~LogindAlertPresentationSessionMonitor() = default;

void LogindAlertPresentationSessionMonitor::callAsync(const QDBusConnection& bus, const QDBusMessage& message,
                                                      std::function<void(const QDBusMessage& reply)> onReply)
{
    // Parented to this object: a reply that arrives after it is gone goes nowhere.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [onReply = std::move(onReply)](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                onReply(finished->reply());
            });
}

void LogindAlertPresentationSessionMonitor::queryOwner(const QDBusConnection& bus, const QString& service)
{
    auto message = QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                                  u"org.freedesktop.DBus"_s, u"GetNameOwner"_s);
    message << service;
    callAsync(bus, message, [this, service](const QDBusMessage& reply) {
        // NameHasNoOwner: the service is not running, which changes nothing.
        if (isReply(reply)) {
            handleOwnerChanged(service, reply.arguments().constFirst().toString());
        }
    });
}

void LogindAlertPresentationSessionMonitor::handleOwnerChanged(const QString& service, const QString& owner)
{
    if (service == logindService) {
        if (owner == m_logindOwner) {
            return;
        }
        m_logindOwner = owner;
        ++m_logindGeneration;
        unwatchSession();
        m_sessionActiveProperty = true;
        m_lockRequest = LockRequest::none;
        m_lockConfirmation.stop();
        m_sessionLockedHint = false;
        m_preparingForSleep = false;
        if (!owner.isEmpty()) {
            logindAppeared();
        }
    } else if (service == freedesktopScreenSaverService) {
        if (owner == m_freedesktopScreenSaverOwner) {
            return;
        }
        m_freedesktopScreenSaverOwner = owner;
        m_freedesktopScreenSaverActive = false;
        if (!owner.isEmpty()) {
            readScreenSaverActive(ScreenSaver::freedesktop);
        }
    } else if (service == gnomeScreenSaverService) {
        if (owner == m_gnomeScreenSaverOwner) {
            return;
        }
        m_gnomeScreenSaverOwner = owner;
        m_gnomeScreenSaverActive = false;
        if (!owner.isEmpty()) {
            readScreenSaverActive(ScreenSaver::gnome);
        }
    }
    update();
}

void LogindAlertPresentationSessionMonitor::logindAppeared()
{
    const auto generation = m_logindGeneration;
    auto message = QDBusMessage::createMethodCall(logindService, // service
                                                  logindPath,    // path
                                                  propertiesInterface, u"Get"_s);
    message << logindManagerInterface << u"PreparingForSleep"_s;
    callAsync(m_systemBus, message, [this, generation](const QDBusMessage& reply) {
        if (generation == m_logindGeneration && isReply(reply)) {
            m_preparingForSleep = propertyValue(reply).toBool();
            update();
        }
    });
    resolveSession();
}

void LogindAlertPresentationSessionMonitor::resolveSession()
{
    const auto generation = m_logindGeneration;
    auto message =
        QDBusMessage::createMethodCall(logindService, logindPath, logindManagerInterface, u"GetSessionByPID"_s);
    message << quint32(getpid());
    callAsync(m_systemBus, message, [this, generation](const QDBusMessage& reply) {
        if (generation != m_logindGeneration) {
            return;
        }
        if (isReply(reply)) {
            watchSession(reply.arguments().constFirst().value<QDBusObjectPath>().path(), generation);
        } else {
            resolveSessionFallback(generation);
        }
    });
}

void LogindAlertPresentationSessionMonitor::resolveSessionFallback(std::uint64_t generation)
{
    // Not in a session of its own: the one the environment names, else logind's choice for this user. GetSession
    // answers with the session's real path, which is where its signals come from ("auto" never sends any).
    QString sessionID = qEnvironmentVariable("XDG_SESSION_ID");
    if (sessionID.isEmpty()) {
        sessionID = u"auto"_s;
    }
    auto message = QDBusMessage::createMethodCall(logindService, logindPath, logindManagerInterface, u"GetSession"_s);
    message << sessionID;
    callAsync(m_systemBus, message, [this, generation](const QDBusMessage& reply) {
        // Without any session, logind can still say when the system sleeps; the session counts as active.
        if (generation == m_logindGeneration && isReply(reply)) {
            watchSession(reply.arguments().constFirst().value<QDBusObjectPath>().path(), generation);
        }
    });
}

void LogindAlertPresentationSessionMonitor::watchSession(const QString& path, std::uint64_t generation)
{
    if (generation != m_logindGeneration || path.isEmpty()) {
        return;
    }
    unwatchSession();
    m_sessionPath = path;
    m_systemBus.connect(QString(), path, propertiesInterface, u"PropertiesChanged"_s, this,
                        SLOT(handleSessionPropertiesChanged(QDBusMessage)));
    m_systemBus.connect(QString(), path, logindSessionInterface, u"Lock"_s, this,
                        SLOT(handleSessionLock(QDBusMessage)));
    m_systemBus.connect(QString(), path, logindSessionInterface, u"Unlock"_s, this,
                        SLOT(handleSessionUnlock(QDBusMessage)));
    // Read after listening, so that no change falls between the two.
    readSessionProperties();
}

void LogindAlertPresentationSessionMonitor::unwatchSession()
{
    if (m_sessionPath.isEmpty()) {
        return;
    }
    m_systemBus.disconnect(QString(), m_sessionPath, propertiesInterface, u"PropertiesChanged"_s, this,
                           SLOT(handleSessionPropertiesChanged(QDBusMessage)));
    m_systemBus.disconnect(QString(), m_sessionPath, logindSessionInterface, u"Lock"_s, this,
                           SLOT(handleSessionLock(QDBusMessage)));
    m_systemBus.disconnect(QString(), m_sessionPath, logindSessionInterface, u"Unlock"_s, this,
                           SLOT(handleSessionUnlock(QDBusMessage)));
    m_sessionPath.clear();
}

void LogindAlertPresentationSessionMonitor::readSessionProperties()
{
    const auto generation = m_logindGeneration;
    const QString path = m_sessionPath;
    auto message = QDBusMessage::createMethodCall(logindService, path, propertiesInterface, u"GetAll"_s);
    message << logindSessionInterface;
    callAsync(m_systemBus, message, [this, generation, path](const QDBusMessage& reply) {
        if (generation != m_logindGeneration || path != m_sessionPath || !isReply(reply)) {
            return;
        }
        const auto properties = qdbus_cast<QVariantMap>(reply.arguments().constFirst());
        m_sessionActiveProperty = properties.value(u"Active"_s, true).toBool();
        m_sessionLockedHint = properties.value(u"LockedHint"_s, false).toBool();
        update();
    });
}

void LogindAlertPresentationSessionMonitor::handlePrepareForSleep(const QDBusMessage& message)
{
    if (message.service() != m_logindOwner || message.signature() != u"b"_s) {
        return;
    }
    m_preparingForSleep = message.arguments().constFirst().toBool();
    update();
}

void LogindAlertPresentationSessionMonitor::handleSessionPropertiesChanged(const QDBusMessage& message)
{
    if (message.service() != m_logindOwner || message.path() != m_sessionPath || message.signature() != u"sa{sv}as"_s ||
        message.arguments().constFirst().toString() != logindSessionInterface) {
        return;
    }
    const auto changed = qdbus_cast<QVariantMap>(message.arguments().at(1));
    if (const auto active = changed.find(u"Active"_s); active != changed.cend()) {
        m_sessionActiveProperty = active->toBool();
    }
    if (const auto locked = changed.find(u"LockedHint"_s); locked != changed.cend()) {
        m_sessionLockedHint = locked->toBool();
    }
    const auto invalidated = qdbus_cast<QStringList>(message.arguments().at(2));
    if (invalidated.contains(u"Active"_s) || invalidated.contains(u"LockedHint"_s)) {
        readSessionProperties();
    }
    update();
}

void LogindAlertPresentationSessionMonitor::handleSessionLock(const QDBusMessage& message)
{
    if (message.service() != m_logindOwner || message.path() != m_sessionPath) {
        return;
    }
    if (hasLockEvidence()) {
        m_lockRequest = LockRequest::confirmed;
    } else {
        m_lockRequest = LockRequest::awaitingEvidence;
        m_lockConfirmation.start();
    }
    update();
}

void LogindAlertPresentationSessionMonitor::handleSessionUnlock(const QDBusMessage& message)
{
    if (message.service() == m_logindOwner && message.path() == m_sessionPath) {
        m_lockRequest = LockRequest::none;
        m_lockConfirmation.stop();
        m_lockKeyboardGrabbed = false;
        if (m_display) {
            m_display->setWatchesTopLevelWindows(false);
        }
        update();
    }
}

bool LogindAlertPresentationSessionMonitor::hasLockEvidence() const
{
    return m_sessionLockedHint || m_freedesktopScreenSaverActive || m_gnomeScreenSaverActive ||
           (m_display && m_display->isScreenSaverActive()) || m_lockKeyboardGrabbed;
}

void LogindAlertPresentationSessionMonitor::lockConfirmationEnded()
{
    if (m_lockRequest != LockRequest::awaitingEvidence) {
        return;
    }
    if (!confirmLockByKeyboardGrab()) {
        qInfo("Orvane: the session was asked to lock, but no screen locker showed up; alerts are no longer held "
              "back for it.");
        m_lockRequest = LockRequest::lapsed;
    }
    update();
}

bool LogindAlertPresentationSessionMonitor::confirmLockByKeyboardGrab()
{
    if (!m_display) {
        return false;
    }
    // The grab has no events; a locker that ends takes its window with it, which is when to ask again. Watch
    // before asking: the X server may take another client's requests in any order, and a locker that exits between
    // the answer and the watch would otherwise hold alerts back until the next one is due.
    m_display->setWatchesTopLevelWindows(true);
    if (!m_display->isKeyboardGrabbed()) {
        m_display->setWatchesTopLevelWindows(m_lockKeyboardGrabbed);
        return false;
    }
    m_lockKeyboardGrabbed = true;
    m_lockRequest = LockRequest::confirmed;
    return true;
}

void LogindAlertPresentationSessionMonitor::topLevelWindowWentAway()
{
    if (m_lockKeyboardGrabbed && !m_display->isKeyboardGrabbed()) {
        m_lockKeyboardGrabbed = false;
        m_display->setWatchesTopLevelWindows(false);
        update();
    }
}

void LogindAlertPresentationSessionMonitor::recheck()
{
    if (!m_display) {
        return;
    }
    if (m_lockRequest == LockRequest::lapsed) {
        confirmLockByKeyboardGrab();
    }
    m_displaysPoweredDown = m_display->areDisplaysPoweredDown();
    update();
}

void LogindAlertPresentationSessionMonitor::readScreenSaverActive(ScreenSaver screenSaver)
{
    const bool freedesktop = screenSaver == ScreenSaver::freedesktop;
    auto message = freedesktop
                       ? QDBusMessage::createMethodCall(freedesktopScreenSaverService, freedesktopScreenSaverPaths[0],
                                                        freedesktopScreenSaverInterface, u"GetActive"_s)
                       : QDBusMessage::createMethodCall(gnomeScreenSaverService, gnomeScreenSaverPath,
                                                        gnomeScreenSaverInterface, u"GetActive"_s);
    callAsync(m_sessionBus, message, [this, freedesktop](const QDBusMessage& reply) {
        // The answer counts only from the owner we asked; one that cannot answer is taken as inactive.
        if (!isReply(reply)) {
            return;
        }
        if (freedesktop && reply.service() == m_freedesktopScreenSaverOwner) {
            m_freedesktopScreenSaverActive = reply.arguments().constFirst().toBool();
        } else if (!freedesktop && reply.service() == m_gnomeScreenSaverOwner) {
            m_gnomeScreenSaverActive = reply.arguments().constFirst().toBool();
        }
        update();
    });
}

void LogindAlertPresentationSessionMonitor::handleScreenSaverActiveChanged(const QDBusMessage& message)
{
    if (message.signature() != u"b"_s) {
        return;
    }
    const bool active = message.arguments().constFirst().toBool();
    if (message.interface() == freedesktopScreenSaverInterface && message.service() == m_freedesktopScreenSaverOwner) {
        m_freedesktopScreenSaverActive = active;
    } else if (message.interface() == gnomeScreenSaverInterface && message.service() == m_gnomeScreenSaverOwner) {
        m_gnomeScreenSaverActive = active;
    }
    update();
}

void LogindAlertPresentationSessionMonitor::update()
{
    // A confirmed lock lasts as long as its evidence; when that ends, so does the lock.
    if (m_lockRequest == LockRequest::awaitingEvidence && hasLockEvidence()) {
        m_lockRequest = LockRequest::confirmed;
        m_lockConfirmation.stop();
    } else if (m_lockRequest == LockRequest::confirmed && !hasLockEvidence()) {
        m_lockRequest = LockRequest::none;
        if (m_display) {
            m_display->setWatchesTopLevelWindows(false);
        }
    }
    const bool locked = m_sessionLockedHint || m_lockRequest == LockRequest::awaitingEvidence ||
                        m_lockRequest == LockRequest::confirmed;
    const bool sessionActive = m_sessionActiveProperty && !locked;
    const bool systemAwake = !m_preparingForSleep;
    const bool screensAwake = !m_freedesktopScreenSaverActive && !m_gnomeScreenSaverActive &&
                              !(m_display && m_display->isScreenSaverActive()) && !m_displaysPoweredDown;
    const bool wentToSleep = !systemAwake && m_availability.isSystemAwake();
    const bool wasAvailable = m_availability.isPresentationAvailable();
    const bool woke = systemAwake && !m_availability.isSystemAwake();
    const bool sessionReturned = sessionActive && !m_availability.isSessionActive();
    // Flags that fall are applied before flags that rise, so that one event turning one flag off and another on
    // never reports a brief "available".
    for (const bool value : {false, true}) {
        if (sessionActive == value) {
            m_availability.setSessionActive(value);
        }
        if (systemAwake == value) {
            m_availability.setSystemAwake(value);
        }
        if (screensAwake == value) {
            m_availability.setScreensAwake(value);
        }
    }
    if (wentToSleep) {
        Q_EMIT systemWillSleep();
    }
    if (locked != m_sessionLocked) {
        m_sessionLocked = locked;
        Q_EMIT sessionLockChanged(locked);
    }
    if (!wasAvailable && m_availability.isPresentationAvailable()) {
        Q_EMIT presentationDidBecomeAvailable();
    }
    if (woke) {
        Q_EMIT systemDidWake();
    }
    if (sessionReturned) {
        Q_EMIT sessionDidBecomeActive();
    }
}

} // namespace orvane
