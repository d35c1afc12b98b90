// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QObject>
#include <QString>

#include <optional>
#include <vector>

namespace orvane {

class AppModel;

/// What the command line asks of the running copy (`orvane upcoming`, `orvane test-alert`), on the session bus
/// beside the application's own name.
class ApplicationControlService final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.velmont.Orvane.Control")

public:
    static inline const QString objectPath = QStringLiteral("/com/velmont/Orvane/Control");
    static inline const QString interfaceName = QStringLiteral("com.velmont.Orvane.Control");

    ApplicationControlService(AppModel& model, QDBusConnection connection = QDBusConnection::sessionBus(),
                              QObject* parent = nullptr);
    ~ApplicationControlService() override;

    bool registerOnBus();

    /// `{"meetings":[{"title","start","end","calendar","location","joinURL","recurring"}]}`, times in ISO 8601 UTC.
    static QByteArray upcomingJson(const std::vector<MeetingOccurrence>& meetings);
    /// One line per meeting ("Tue 14:05–14:30  Standup  (Work)"), or a line saying there is none.
    static QString upcomingText(const std::vector<MeetingOccurrence>& meetings);

public Q_SLOTS:
    QString UpcomingJson();
    QString UpcomingText();
    bool ShowTestAlert();

private:
    AppModel& m_model;
    QDBusConnection m_connection;
    bool m_registered = false;
};

/// The command line's side: asks the running copy over the session bus. Absent when no copy runs.
struct ApplicationControlClient {
    static std::optional<QString> call(const QString& method);
};

} // namespace orvane
