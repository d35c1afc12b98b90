// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/StatusMenu.h"

#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// How a symbol looks without the icon theme.
enum class Fallback {
    none,
    /// Orvane's own calendar page.
    calendar,
    /// The calendar page with a clock: Orvane's mark, also used for the status item.
    calendarWithClock,
    warning,
    drive,
    reload,
    media,
};

struct SymbolIcon {
    QStringList themeNames;
    Fallback fallback = Fallback::none;
};

/// Every symbol the menu uses, mapped once. The status item always shows Orvane's own drawing: a theme's calendar
/// would make it look like the calendar application.
SymbolIcon symbolIcon(const QString& symbol)
{
    if (symbol == u"calendar.badge.clock") {
        return {{}, Fallback::calendarWithClock};
    }
    if (symbol == u"calendar") {
        return {{u"x-office-calendar"_s, u"office-calendar"_s}, Fallback::calendar};
    }
    if (symbol == u"video") {
        return {{u"camera-web"_s, u"camera-video"_s, u"video-display"_s}, Fallback::media};
    }
    if (symbol == u"calendar.badge.exclamationmark" || symbol == u"exclamationmark.triangle.fill") {
        return {{u"dialog-warning"_s}, Fallback::warning};
    }
    if (symbol == u"externaldrive.badge.exclamationmark") {
        return {{u"drive-harddisk"_s}, Fallback::drive};
    }
    if (symbol == u"lock.fill") {
        return {{u"system-lock-screen"_s, u"changes-prevent"_s}, Fallback::warning};
    }
    if (symbol == u"person.crop.circle.badge.exclamationmark") {
        return {{u"avatar-default"_s, u"system-users"_s}, Fallback::warning};
    }
    if (symbol == u"arrow.triangle.2.circlepath.circle.fill") {
        return {{u"view-refresh"_s}, Fallback::reload};
    }
    return {};
}

QPixmap drawCalendar(int size, bool withClock)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal unit = size / 16.0;
    const QRectF page(1 * unit, 2 * unit, 13 * unit, 12.5 * unit);
    const qreal radius = 2 * unit;

    QPainterPath outline;
    outline.addRoundedRect(page, radius, radius);
    painter.fillPath(outline, QColor(0xfa, 0xfa, 0xfa));
    // The top band of the page, clipped to its rounded corners.
    painter.save();
    painter.setClipPath(outline);
    painter.fillRect(QRectF(page.left(), page.top(), page.width(), 3.5 * unit), QColor(0xd9, 0x3f, 0x3f));
    painter.restore();
    painter.setPen(QPen(QColor(0x30, 0x30, 0x30), std::max(1.0, unit)));
    painter.drawPath(outline);
    // Day marks.
    const QColor mark(0x60, 0x60, 0x60);
    for (int row = 0; row < 2; ++row) {
        for (int column = 0; column < 3; ++column) {
            painter.fillRect(QRectF((3 + column * 3.5) * unit, (7.5 + row * 3) * unit, 2 * unit, 1.5 * unit), mark);
        }
    }
    if (withClock) {
        const QPointF centre(11.5 * unit, 11.5 * unit);
        const qreal clockRadius = 4.2 * unit;
        painter.setPen(QPen(QColor(0xfa, 0xfa, 0xfa), std::max(1.0, unit)));
        painter.setBrush(QColor(0x2f, 0x5f, 0xc4));
        painter.drawEllipse(centre, clockRadius, clockRadius);
        painter.setPen(QPen(QColor(0xff, 0xff, 0xff), std::max(1.0, 1.1 * unit), Qt::SolidLine, Qt::RoundCap));
        painter.drawLine(centre, centre + QPointF(0, -2.6 * unit));
        painter.drawLine(centre, centre + QPointF(1.9 * unit, 0));
    }
    return pixmap;
}

QIcon fallbackIcon(Fallback fallback)
{
    const auto standard = [](QStyle::StandardPixmap pixmap) {
        return QApplication::style() != nullptr ? QApplication::style()->standardIcon(pixmap) : QIcon();
    };
    switch (fallback) {
    case Fallback::none:
        return {};
    case Fallback::calendar:
    case Fallback::calendarWithClock: {
        QIcon icon;
        for (const int size : {16, 22, 24, 32, 48, 64}) {
            icon.addPixmap(drawCalendar(size, fallback == Fallback::calendarWithClock));
        }
        return icon;
    }
    case Fallback::warning:
        return standard(QStyle::SP_MessageBoxWarning);
    case Fallback::drive:
        return standard(QStyle::SP_DriveHDIcon);
    case Fallback::reload:
        return standard(QStyle::SP_BrowserReload);
    case Fallback::media:
        return standard(QStyle::SP_MediaPlay);
    }
    return {};
}

void add(QMenu& menu, const StatusMenuEntry& entry, const StatusMenu::Perform& perform)
{
    switch (entry.kind) {
    case StatusMenuEntry::Kind::separator:
        menu.addSeparator();
        return;
    case StatusMenuEntry::Kind::meeting: {
        // Owned by `menu`, so that the next `populate` finds and removes it.
        auto* submenu = new QMenu(entry.text, &menu);
        submenu->setIcon(StatusMenu::icon(entry.symbol));
        for (const StatusMenuEntry& item : entry.submenu) {
            add(*submenu, item, perform);
        }
        menu.addMenu(submenu);
        return;
    }
    case StatusMenuEntry::Kind::status:
    case StatusMenuEntry::Kind::header:
    case StatusMenuEntry::Kind::action:
        break;
    }
    QAction* action = menu.addAction(StatusMenu::icon(entry.symbol), entry.text);
    action->setEnabled(entry.enabled);
    action->setShortcut(entry.shortcut);
    if (entry.action != StatusMenuAction::none) {
        QObject::connect(action, &QAction::triggered, action,
                         [perform, kind = entry.action, meeting = entry.meeting] { perform(kind, meeting); });
    }
}

} // namespace

void StatusMenu::populate(QMenu& menu, const std::vector<StatusMenuEntry>& entries, const Perform& perform)
{
    menu.clear();
    // clear() leaves the submenus of the last build behind as children; deleted later, because the user may still
    // be inside one when the model changes.
    for (QMenu* submenu : menu.findChildren<QMenu*>(Qt::FindDirectChildrenOnly)) {
        submenu->deleteLater();
    }
    for (const StatusMenuEntry& entry : entries) {
        add(menu, entry, perform);
    }
}

QStringList StatusMenu::themeIconNames(const QString& symbol)
{
    return symbolIcon(symbol).themeNames;
}

QIcon StatusMenu::icon(const QString& symbol)
{
    const SymbolIcon mapped = symbolIcon(symbol);
    for (const QString& name : mapped.themeNames) {
        if (QIcon::hasThemeIcon(name)) {
            return QIcon::fromTheme(name);
        }
    }
    return fallbackIcon(mapped.fallback);
}

} // namespace orvane
