// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/ApplicationControlService.h"

#include "app/linux/DBusApplicationActivation.h"
#include "domain/Json.h"
#include "model/AppModel.h"

#include <QDBusMessage>
#include <QDateTime>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

QString isoTime(Date date)
{
    return date.toDateTime().toUTC().toString(Qt::ISODate);
}

} // namespace

ApplicationControlService::ApplicationControlService(AppModel& model, QDBusConnection connection, QObject* parent)
    : QObject(parent)
    , m_model(model)
    , m_connection(std::move(connection))
{
}

ApplicationControlService::~ApplicationControlService()
{
    if (m_registered) {
        m_connection.unregisterObject(objectPath);
    }
}

bool ApplicationControlService::registerOnBus()
{
    m_registered =
        m_connection.isConnected() && m_connection.registerObject(objectPath, this, QDBusConnection::ExportAllSlots);
    return m_registered;
}

QByteArray ApplicationControlService::upcomingJson(const std::vector<MeetingOccurrence>& meetings)
{
    json::Array list;
    for (const auto& meeting : meetings) {
        json::Object object{
            {u"title"_s, meeting.title},
            {u"start"_s, isoTime(meeting.startDate)},
            {u"end"_s, isoTime(meeting.endDate)},
            {u"calendar"_s, meeting.calendar.title},
        };
        object.emplace_back(u"location"_s, meeting.location ? json::Value(*meeting.location) : json::Value());
        object.emplace_back(u"joinURL"_s,
                            meeting.meetingURL ? json::Value(meeting.meetingURL->toString()) : json::Value());
        object.emplace_back(u"recurring"_s, meeting.isRecurring);
        list.emplace_back(std::move(object));
    }
    return json::serialize(json::Object{{u"meetings"_s, std::move(list)}});
}

QString ApplicationControlService::upcomingText(const std::vector<MeetingOccurrence>& meetings)
{
    if (meetings.empty()) {
        return u"No meetings will alert in the next 7 days."_s;
    }
    const QLocale locale;
    QStringList lines;
    for (const auto& meeting : meetings) {
        const QDateTime start = meeting.startDate.toDateTime().toLocalTime();
        const QDateTime end = meeting.endDate.toDateTime().toLocalTime();
        lines.append(locale.toString(start, u"ddd yyyy-MM-dd HH:mm"_s) + u"–"_s + locale.toString(end, u"HH:mm"_s) +
                     u"  "_s + meeting.title + u"  ("_s + meeting.calendar.title + u")"_s);
    }
    return lines.join(u'\n');
}

QString ApplicationControlService::UpcomingJson()
{
    return QString::fromUtf8(upcomingJson(m_model.upcoming()));
}

QString ApplicationControlService::UpcomingText()
{
    return upcomingText(m_model.upcoming());
}

bool ApplicationControlService::ShowTestAlert()
{
    return m_model.showTestAlert();
}

std::optional<QString> ApplicationControlClient::call(const QString& method)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return std::nullopt;
    }
    const auto message =
        QDBusMessage::createMethodCall(DBusApplicationAddress::serviceName, ApplicationControlService::objectPath,
                                       ApplicationControlService::interfaceName, method);
    const QDBusMessage reply = bus.call(message, QDBus::Block, 10'000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return std::nullopt;
    }
    const QVariant value = reply.arguments().constFirst();
    return value.typeId() == QMetaType::Bool ? (value.toBool() ? u"true"_s : u"false"_s) : value.toString();
}

} // namespace orvane
