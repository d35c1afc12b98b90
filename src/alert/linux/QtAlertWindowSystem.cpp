// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/linux/QtAlertWindowSystem.h"

#include "alert/linux/StableDisplayID.h"
#include "alert/linux/X11Ewmh.h"

#include <QAbstractNativeEventFilter>
#include <QAccessible>
#include <QAccessibleObject>
#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QTimer>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace orvane {

const QString QtAlertWindowSystem::panelTitle = u"Meeting reminder"_s;

namespace {

/// The panels' background until (and under) their content: dark and opaque.
constexpr QColor panelColor{0x10, 0x12, 0x17};

/// How soon an obscured panel raises itself again. Coalesces a burst of restacking into one raise, and keeps two
/// programs that both insist on the top from trading places in a tight loop.
constexpr int reraiseDelayMilliseconds = 20;

Qt::WindowFlags panelFlags(bool allowsKeyboardFocus)
{
    Qt::WindowFlags flags =
        Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::X11BypassWindowManagerHint;
    if (!allowsKeyboardFocus) {
        flags |= Qt::WindowDoesNotAcceptFocus;
    }
    return flags;
}

QScreen* screenWithID(std::uint32_t displayID)
{
    const auto screens = QGuiApplication::screens();
    const auto found = std::find_if(screens.begin(), screens.end(), [displayID](const QScreen* screen) {
        return QtAlertWindowSystem::displayID(*screen) == displayID;
    });
    return found == screens.end() ? nullptr : *found;
}

/// The screen whose area, in X11's device pixels, holds `point`. Qt keeps a screen's origin in device pixels and
/// scales only its size, so a screen's device area is its origin with its size times its pixel ratio.
QScreen* screenAtDevicePoint(QPoint point)
{
    for (QScreen* screen : QGuiApplication::screens()) {
        const QRect geometry = screen->geometry();
        const QRect deviceArea(geometry.topLeft(), geometry.size() * screen->devicePixelRatio());
        if (deviceArea.contains(point)) {
            return screen;
        }
    }
    return nullptr;
}

/// A panel's window: drops every key while the panel may not take focus, and turns Escape into the alert's answer
/// while it may.
class PanelWindow final : public QQuickWindow {
public:
    explicit PanelWindow(X11Ewmh* x11)
        : m_x11(x11)
    {
        m_raiseTimer.setSingleShot(true);
        m_raiseTimer.setInterval(reraiseDelayMilliseconds);
        QObject::connect(&m_raiseTimer, &QTimer::timeout, this, [this] {
            if (isVisible()) {
                raise();
            }
        });
    }

    std::function<void()> onEscape;
    bool allowsKeyboardFocus = false;

    X11Ewmh* x11() const { return m_x11; }
    /// Called when the X server reports the window (partly) covered.
    void didBecomeObscured()
    {
        if (isVisible() && !m_raiseTimer.isActive()) {
            m_raiseTimer.start();
        }
    }

protected:
    bool event(QEvent* event) override
    {
        switch (event->type()) {
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
        case QEvent::ShortcutOverride:
            if (!allowsKeyboardFocus) {
                event->accept();
                return true;
            }
            if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
                event->accept();
                // A copy: the handler usually ends the alert, which destroys the panel and clears onEscape (the
                // window itself is deleted later, so `this` stays valid).
                if (const auto escape = onEscape) {
                    escape();
                }
                return true;
            }
            break;
        default:
            break;
        }
        return QQuickWindow::event(event);
    }

private:
    X11Ewmh* m_x11;
    QTimer m_raiseTimer;
};

/// The hidden element an announcement is made on; see QtAlertWindowSystem.
class AnnouncementAccessible final : public QAccessibleObject {
public:
    AnnouncementAccessible(QObject* element, QString message)
        : QAccessibleObject(element)
        , m_message(std::move(message))
    {
    }

    QAccessibleInterface* parent() const override { return QAccessible::queryAccessibleInterface(qApp); }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QString text(QAccessible::Text kind) const override { return kind == QAccessible::Name ? m_message : QString(); }
    QAccessible::Role role() const override { return QAccessible::AlertMessage; }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        state.invisible = true;
        return state;
    }

private:
    QString m_message;
};

} // namespace

/// Raises a panel that the X server reports as (partly) covered by another window.
class QtAlertWindowSystem::VisibilityFilter final : public QAbstractNativeEventFilter {
public:
    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) override
    {
        if (eventType != "xcb_generic_event_t") {
            return false;
        }
        const auto* event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7f) != XCB_VISIBILITY_NOTIFY) {
            return false;
        }
        const auto* visibility = reinterpret_cast<const xcb_visibility_notify_event_t*>(event);
        if (visibility->state == XCB_VISIBILITY_UNOBSCURED) {
            return false;
        }
        for (QWindow* window : QGuiApplication::allWindows()) {
            auto* panel = dynamic_cast<PanelWindow*>(window);
            if (panel && panel->handle() && panel->winId() == visibility->window) {
                panel->didBecomeObscured();
            }
        }
        // Qt has no use for the event either way.
        return false;
    }
};

/// One panel. The window is deleted later rather than now, because the panel is usually destroyed from one of the
/// window's own callbacks (a button's action, Escape).
class QtAlertWindowSystem::Panel final : public AlertPanel {
public:
    explicit Panel(PanelWindow* window)
        : m_window(window)
    {
    }

    ~Panel() override
    {
        m_window->onEscape = {};
        m_window->allowsKeyboardFocus = false;
        m_window->setVisible(false);
        m_window->deleteLater();
    }

    void setScreen(const AlertScreenDescriptor& screen) override { place(*m_window, screen); }

    void setAllowsKeyboardFocus(bool allows) override
    {
        if (allows == m_window->allowsKeyboardFocus) {
            return;
        }
        m_window->allowsKeyboardFocus = allows;
        // WindowDoesNotAcceptFocus is what Qt itself checks before it gives the window focus; on X11 it also clears
        // the input hint.
        m_window->setFlags(panelFlags(allows));
        if (X11Ewmh* x11 = m_window->x11(); x11 && m_window->handle()) {
            // Qt resets the window's event mask when its flags change.
            x11->selectVisibilityChanges(xcb_window_t(m_window->winId()));
        }
    }

    bool allowsKeyboardFocus() const override { return m_window->allowsKeyboardFocus; }

    void orderFrontRegardless() override
    {
        m_window->setVisible(true);
        // Stacking is an X11 matter here; other platforms either ignore a raise or warn about it.
        if (m_window->x11()) {
            m_window->raise();
        }
    }

    void orderOut() override { m_window->setVisible(false); }

    void makeKeyAndOrderFront() override
    {
        orderFrontRegardless();
        if (!m_window->allowsKeyboardFocus) {
            return;
        }
        m_window->requestActivate();
        if (X11Ewmh* x11 = m_window->x11()) {
            // Qt sets the focus with the time of the last event it saw, which the server ignores when the window
            // manager focused another window later than that; "now" is never too early.
            xcb_set_input_focus(x11->connection(), XCB_INPUT_FOCUS_PARENT, xcb_window_t(m_window->winId()),
                                XCB_CURRENT_TIME);
            xcb_flush(x11->connection());
        }
    }

    bool isKeyWindow() const override
    {
        if (!m_window->isVisible()) {
            return false;
        }
        if (QGuiApplication::focusWindow() == m_window) {
            return true;
        }
        // Qt learns of a focus change only when its event arrives; the server knows at once.
        X11Ewmh* x11 = m_window->x11();
        return x11 && x11->inputFocus() == xcb_window_t(m_window->winId());
    }

    void announceFocusedWindowChanged() override
    {
        QObject* focused = m_window->activeFocusItem();
        QAccessibleEvent event(focused ? focused : static_cast<QObject*>(m_window), QAccessible::Focus);
        QAccessible::updateAccessibility(&event);
    }

    static void place(QWindow& window, const AlertScreenDescriptor& screen)
    {
        // A created window changes screens by moving; setScreen() would recreate it on some platforms and lose its
        // X11 properties.
        if (!window.handle()) {
            if (QScreen* target = screenWithID(screen.displayID)) {
                window.setScreen(target);
            }
        }
        window.setGeometry(screen.frame);
    }

private:
    PanelWindow* m_window;
};

QtAlertWindowSystem::QtAlertWindowSystem(ContentFactory contentFactory)
    : m_contentFactory(std::move(contentFactory))
    , m_applicationActive(QGuiApplication::applicationState() == Qt::ApplicationActive)
{
    // The offscreen platform answers this interface too, without a connection.
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (QGuiApplication::platformName() == u"xcb"_s && x11 && x11->connection()) {
        m_x11 = std::make_unique<X11Ewmh>(x11->connection());
        m_visibilityFilter = std::make_unique<VisibilityFilter>();
        qGuiApp->installNativeEventFilter(m_visibilityFilter.get());
    }

    QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &m_context,
                     [this](Qt::ApplicationState state) {
                         const bool active = state == Qt::ApplicationActive;
                         if (active != m_applicationActive) {
                             m_applicationActive = active;
                             applicationActiveDidChange(active);
                         }
                     });
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, &m_context, [this](QScreen* screen) {
        watchScreen(screen);
        screensDidChange();
    });
    QObject::connect(qGuiApp, &QGuiApplication::screenRemoved, &m_context, [this] { screensDidChange(); });
    QObject::connect(qGuiApp, &QGuiApplication::primaryScreenChanged, &m_context, [this] { screensDidChange(); });
    for (QScreen* screen : QGuiApplication::screens()) {
        watchScreen(screen);
    }
}

QtAlertWindowSystem::~QtAlertWindowSystem()
{
    if (m_visibilityFilter) {
        qGuiApp->removeNativeEventFilter(m_visibilityFilter.get());
    }
}

void QtAlertWindowSystem::watchScreen(QScreen* screen)
{
    QObject::connect(screen, &QScreen::geometryChanged, &m_context, [this] { screensDidChange(); });
}

std::uint32_t QtAlertWindowSystem::displayID(const QScreen& screen)
{
    // Fields are separated by a byte no name holds, so that ("ab", "c") and ("a", "bc") differ.
    const QString identity =
        screen.name() + QChar(0) + screen.manufacturer() + QChar(0) + screen.model() + QChar(0) + screen.serialNumber();
    return stableDisplayID(identity.toUtf8());
}

std::vector<AlertScreenDescriptor> QtAlertWindowSystem::screens() const
{
    std::vector<AlertScreenDescriptor> result;
    for (const QScreen* screen : QGuiApplication::screens()) {
        result.push_back({displayID(*screen), screen->geometry()});
    }
    return result;
}

std::optional<std::uint32_t> QtAlertWindowSystem::activeDisplayID() const
{
    const QScreen* screen = nullptr;
    if (m_x11) {
        if (const auto window = m_x11->activeWindow()) {
            if (const auto frame = m_x11->frameInRoot(*window)) {
                screen = screenAtDevicePoint(frame->center());
            }
        }
    }
    if (!screen) {
        screen = QGuiApplication::screenAt(QCursor::pos());
    }
    if (!screen) {
        screen = QGuiApplication::primaryScreen();
    }
    if (!screen) {
        return std::nullopt;
    }
    return displayID(*screen);
}

std::optional<AlertForeignWindow> QtAlertWindowSystem::frontmostForeignWindow() const
{
    if (!m_x11) {
        return std::nullopt;
    }
    const auto active = m_x11->activeWindow();
    if (!active) {
        return std::nullopt;
    }
    for (const QWindow* window : QGuiApplication::allWindows()) {
        if (window->handle() && window->winId() == *active) {
            return std::nullopt;
        }
    }
    return AlertForeignWindow{*active};
}

void QtAlertWindowSystem::activate(const AlertForeignWindow& window)
{
    if (!m_x11 || window.handle == 0 || window.handle > std::numeric_limits<xcb_window_t>::max()) {
        return;
    }
    const auto handle = xcb_window_t(window.handle);
    if (m_x11->exists(handle)) {
        m_x11->requestActivation(handle);
    }
}

bool QtAlertWindowSystem::isApplicationActive() const
{
    return QGuiApplication::applicationState() == Qt::ApplicationActive;
}

std::unique_ptr<AlertPanel> QtAlertWindowSystem::createPanel(const AlertScreenDescriptor& screen,
                                                             AlertPanelContent content)
{
    auto* window = new PanelWindow(m_x11.get());
    window->setTitle(panelTitle);
    window->setColor(panelColor);
    window->setFlags(panelFlags(false));
    window->onEscape = content.onEscape;
    Panel::place(*window, screen);
    if (m_x11) {
        const auto handle = xcb_window_t(window->winId());
        m_x11->setPanelProperties(handle);
        m_x11->selectVisibilityChanges(handle);
    }
    if (m_contentFactory) {
        m_contentFactory(*window, content);
    }
    return std::make_unique<Panel>(window);
}

void QtAlertWindowSystem::announce(const QString& message)
{
    // The interface belongs to Qt's accessibility cache once registered, which deletes it with its element.
    m_announcement = std::make_unique<QObject>();
    m_announcement->setObjectName(u"alertAnnouncement"_s);
    auto* element = new AnnouncementAccessible(m_announcement.get(), message);
    QAccessible::registerAccessibleInterface(element);
    QAccessibleEvent nameChanged(element, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&nameChanged);
    QAccessibleEvent alert(element, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

} // namespace orvane
