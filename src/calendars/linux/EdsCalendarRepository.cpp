// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/linux/EdsCalendarRepository.h"

#include "calendars/CalendarRepositoryError.h"
#include "calendars/linux/EdsEventMapping.h"
#include "domain/MeetingPolicy.h"

#include <QCoreApplication>
#include <QFuture>
#include <QPointer>
#include <QPromise>
#include <QTimeZone>
#include <qcoro/qcorofuture.h>

#include <algorithm>
#include <exception>
#include <libecal/libecal.h>
#include <map>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

template <class T>
void unref(T*& object)
{
    if (object != nullptr) {
        g_object_unref(object);
        object = nullptr;
    }
}

QString utf8(const char* text)
{
    return QString::fromUtf8(text == nullptr ? "" : text);
}

CalendarSourceKind sourceKind(const QString& backend)
{
    if (backend == u"local"_s) {
        return CalendarSourceKind::local;
    }
    if (backend == u"caldav"_s) {
        return CalendarSourceKind::calDAV;
    }
    if (backend == u"google"_s) {
        return CalendarSourceKind::google;
    }
    if (backend == u"exchange"_s || backend == u"ews"_s) {
        return CalendarSourceKind::exchange;
    }
    if (backend == u"microsoft365"_s) {
        return CalendarSourceKind::microsoft;
    }
    if (backend == u"webcal"_s) {
        return CalendarSourceKind::subscribed;
    }
    if (backend == u"contacts"_s) {
        return CalendarSourceKind::birthdays;
    }
    return CalendarSourceKind::unknown;
}

/// "#RRGGBB" from the colour forms Evolution stores ("#rgb", "#rrggbb", "#rrrrggggbbbb").
std::optional<QString> normalizedColor(const char* color)
{
    QString text = utf8(color).trimmed();
    if (!text.startsWith(u'#')) {
        return std::nullopt;
    }
    text.remove(0, 1);
    bool ok = false;
    (void)text.toULongLong(&ok, 16);
    if (!ok) {
        return std::nullopt;
    }
    QString red, green, blue;
    if (text.size() == 3) {
        red = QString(2, text[0]), green = QString(2, text[1]), blue = QString(2, text[2]);
    } else if (text.size() == 6 || text.size() == 12) {
        const qsizetype width = text.size() / 3;
        red = text.mid(0, 2), green = text.mid(width, 2), blue = text.mid(2 * width, 2);
    } else {
        return std::nullopt;
    }
    return u"#"_s + (red + green + blue).toUpper();
}

CalendarRepositoryError serviceFailure(GError* error)
{
    CalendarRepositoryError failure(
        CalendarRepositoryError::ServiceFailed{utf8(error != nullptr ? error->message : "")});
    g_clear_error(&error);
    return failure;
}

/// The user's own time zone, for floating times and all-day events (TZ first, as every program does).
ICalTimezone* userZone()
{
    const QByteArray id = QTimeZone::systemTimeZoneId();
    if (ICalTimezone* zone = i_cal_timezone_get_builtin_timezone(id.constData())) {
        return zone;
    }
    if (ICalTimezone* zone = e_cal_util_get_system_timezone()) {
        return zone;
    }
    return i_cal_timezone_get_utc_timezone();
}

} // namespace

/// Everything that talks to Evolution Data Server. Used only on the repository's worker thread.
class EdsSession {
public:
    explicit EdsSession(std::function<void()> changed)
        : m_changed(std::move(changed))
    {
    }

    ~EdsSession() { reset(); }

    void reset()
    {
        for (auto& [uid, calendar] : m_clients) {
            release(calendar);
        }
        m_clients.clear();
        if (m_registry != nullptr) {
            g_signal_handlers_disconnect_by_data(m_registry, this);
        }
        unref(m_registry);
    }

    /// Connects to the source registry (starting the service through D-Bus activation if needed).
    void connect()
    {
        if (m_registry != nullptr) {
            return;
        }
        GError* error = nullptr;
        m_registry = e_source_registry_new_sync(nullptr, &error);
        if (m_registry == nullptr) {
            g_clear_error(&error);
            throw CalendarRepositoryError(
                CalendarRepositoryError::AccessNotGranted{CalendarAuthorizationState::unknown});
        }
        for (const char* signal :
             {"source-added", "source-removed", "source-changed", "source-enabled", "source-disabled"}) {
            g_signal_connect_swapped(m_registry, signal, G_CALLBACK(+[](EdsSession* session) { session->m_changed(); }),
                                     this);
        }
    }

    std::vector<CalendarGroup> groups()
    {
        connect();
        std::map<QString, CalendarGroup> byAccount;
        GList* sources = e_source_registry_list_enabled(m_registry, E_SOURCE_EXTENSION_CALENDAR);
        for (GList* item = sources; item != nullptr; item = item->next) {
            auto* source = E_SOURCE(item->data);
            auto* extension = E_SOURCE_SELECTABLE(e_source_get_extension(source, E_SOURCE_EXTENSION_CALENDAR));
            const QString backend = utf8(e_source_backend_get_backend_name(E_SOURCE_BACKEND(extension)));
            const QString parentUid = utf8(e_source_get_parent(source));
            QString accountUid = parentUid.isEmpty() ? utf8(e_source_get_uid(source)) : parentUid;
            QString accountTitle = utf8(e_source_get_display_name(source));
            if (!parentUid.isEmpty()) {
                if (ESource* parent = e_source_registry_ref_source(m_registry, e_source_get_parent(source))) {
                    accountTitle = utf8(e_source_get_display_name(parent));
                    g_object_unref(parent);
                }
            }
            const auto kind = sourceKind(backend);
            auto& group = byAccount[accountUid];
            group.sourceIdentifier = accountUid;
            group.sourceTitle = accountTitle;
            group.sourceKind = kind;
            group.calendars.push_back({.identifier = utf8(e_source_get_uid(source)),
                                       .title = utf8(e_source_get_display_name(source)),
                                       .sourceIdentifier = accountUid,
                                       .sourceTitle = accountTitle,
                                       .sourceKind = kind,
                                       .colorHex = normalizedColor(e_source_selectable_get_color(extension)),
                                       .isSubscribed = kind == CalendarSourceKind::subscribed,
                                       .allowsContentModifications = kind != CalendarSourceKind::subscribed &&
                                                                     kind != CalendarSourceKind::birthdays});
        }
        g_list_free_full(sources, g_object_unref);

        std::vector<CalendarGroup> result;
        for (auto& [uid, group] : byAccount) {
            std::sort(group.calendars.begin(), group.calendars.end(), [](const auto& lhs, const auto& rhs) {
                return QString::compare(lhs.title, rhs.title, Qt::CaseInsensitive) < 0;
            });
            result.push_back(std::move(group));
        }
        std::sort(result.begin(), result.end(), [](const auto& lhs, const auto& rhs) {
            return QString::compare(lhs.sourceTitle, rhs.sourceTitle, Qt::CaseInsensitive) < 0;
        });
        return result;
    }

    OccurrenceFetchResult occurrences(FetchInterval interval, const QSet<QString>& selected)
    {
        const auto allGroups = groups();
        std::vector<CalendarDescriptor> calendars;
        std::map<std::tuple<int, QString, QString>, int> fingerprintCounts;
        for (const auto& group : allGroups) {
            for (const auto& calendar : group.calendars) {
                ++fingerprintCounts[{int(calendar.sourceKind), calendar.sourceTitle, calendar.title}];
                if (selected.contains(calendar.identifier)) {
                    calendars.push_back(calendar);
                }
            }
        }
        const QStringList addresses = userAddresses();
        OccurrenceFetchResult result;
        std::exception_ptr firstFailure;
        for (const auto& calendar : calendars) {
            try {
                auto found =
                    read(calendar, interval,
                         fingerprintCounts[{int(calendar.sourceKind), calendar.sourceTitle, calendar.title}] == 1,
                         addresses);
                result.occurrences.insert(result.occurrences.end(), std::make_move_iterator(found.begin()),
                                          std::make_move_iterator(found.end()));
            } catch (const CalendarRepositoryError& error) {
                // This calendar alone cannot be opened or read (say, its backend is no longer installed): the others
                // still deliver, and only its client is made afresh next time.
                drop(calendar.identifier);
                result.failedCalendars.push_back({calendar.identifier, calendar.title, error.description()});
                firstFailure = firstFailure ? firstFailure : std::current_exception();
            }
        }
        if (firstFailure && result.failedCalendars.size() == calendars.size()) {
            // Not one calendar answered: the service itself is failing (a factory that died fails every client).
            std::rethrow_exception(firstFailure);
        }
        std::stable_sort(result.occurrences.begin(), result.occurrences.end(), MeetingPolicy::occursBefore);
        return result;
    }

private:
    struct Connection {
        ECalClient* client = nullptr;
        ECalClientView* view = nullptr;
        QStringList addresses;
    };

    /// The occurrences of one calendar, opening it first if need be. Throws CalendarRepositoryError.
    std::vector<MeetingOccurrence> read(const CalendarDescriptor& calendar, FetchInterval interval,
                                        bool fingerprintIsUnique, const QStringList& addresses)
    {
        auto& connection = clientFor(calendar.identifier);
        eds::CalendarContext context{
            .calendar = calendar,
            .fingerprint = CalendarFingerprint{calendar.sourceKind, calendar.sourceTitle, calendar.title},
            .fingerprintIsUnique = fingerprintIsUnique,
            .userAddresses = addresses + connection.addresses,
            .defaultZone = m_zone,
            .resolveZone = [client = connection.client](const char* tzid) -> ICalTimezone* {
                if (tzid == nullptr) {
                    return nullptr;
                }
                if (ICalTimezone* builtin = i_cal_timezone_get_builtin_timezone(tzid)) {
                    return builtin;
                }
                if (ICalTimezone* builtin = i_cal_timezone_get_builtin_timezone_from_tzid(tzid)) {
                    return builtin;
                }
                ICalTimezone* zone = nullptr;
                if (!e_cal_client_get_timezone_sync(client, tzid, &zone, nullptr, nullptr)) {
                    return nullptr;
                }
                return zone;
            },
        };
        return fetch(connection, interval, context);
    }

    void release(Connection& calendar)
    {
        // libecal may hold on to a client or view for a while after we let go, and still emit from it (a
        // "backend-died" when the service goes away later): the handlers must not outlive this session.
        if (calendar.view != nullptr) {
            g_signal_handlers_disconnect_by_data(calendar.view, this);
            e_cal_client_view_stop(calendar.view, nullptr);
        }
        if (calendar.client != nullptr) {
            g_signal_handlers_disconnect_by_data(calendar.client, this);
        }
        unref(calendar.view);
        unref(calendar.client);
    }

    /// Forgets one calendar's client, so that the next fetch opens it again.
    void drop(const QString& uid)
    {
        if (const auto found = m_clients.find(uid); found != m_clients.end()) {
            release(found->second);
            m_clients.erase(found);
        }
    }

    QStringList userAddresses() const
    {
        QStringList addresses;
        GList* identities = e_source_registry_list_enabled(m_registry, E_SOURCE_EXTENSION_MAIL_IDENTITY);
        for (GList* item = identities; item != nullptr; item = item->next) {
            auto* identity =
                E_SOURCE_MAIL_IDENTITY(e_source_get_extension(E_SOURCE(item->data), E_SOURCE_EXTENSION_MAIL_IDENTITY));
            const QString address = eds::calendarUserAddress(e_source_mail_identity_get_address(identity));
            if (!address.isEmpty()) {
                addresses.append(address);
            }
        }
        g_list_free_full(identities, g_object_unref);
        return addresses;
    }

    Connection& clientFor(const QString& uid)
    {
        if (auto found = m_clients.find(uid); found != m_clients.end()) {
            return found->second;
        }
        ESource* source = e_source_registry_ref_source(m_registry, uid.toUtf8().constData());
        if (source == nullptr) {
            throw CalendarRepositoryError(CalendarRepositoryError::ServiceFailed{u"The calendar was removed."_s});
        }
        GError* error = nullptr;
        // Do not wait for the backend to report itself online: a remote calendar answers from its cache.
        EClient* client =
            e_cal_client_connect_sync(source, E_CAL_CLIENT_SOURCE_TYPE_EVENTS, guint32(-1), nullptr, &error);
        Connection connection;
        if (client == nullptr) {
            g_object_unref(source);
            throw serviceFailure(error);
        }
        connection.client = E_CAL_CLIENT(client);
        e_cal_client_set_default_timezone(connection.client, m_zone);
        gchar* email = nullptr;
        if (e_client_get_backend_property_sync(client, E_CAL_BACKEND_PROPERTY_CAL_EMAIL_ADDRESS, &email, nullptr,
                                               nullptr) &&
            email != nullptr) {
            for (const QString& address : utf8(email).split(u',', Qt::SkipEmptyParts)) {
                connection.addresses.append(eds::calendarUserAddress(address.toUtf8().constData()));
            }
        }
        g_free(email);
        if (e_source_has_extension(source, E_SOURCE_EXTENSION_WEBDAV_BACKEND)) {
            auto* webdav = E_SOURCE_WEBDAV(e_source_get_extension(source, E_SOURCE_EXTENSION_WEBDAV_BACKEND));
            const QString address = eds::calendarUserAddress(e_source_webdav_get_email_address(webdav));
            if (!address.isEmpty()) {
                connection.addresses.append(address);
            }
        }
        g_object_unref(source);

        g_signal_connect_swapped(client, "backend-died", G_CALLBACK(+[](EdsSession* session) {
                                     // The calendar factory went away: reconnect on the next fetch.
                                     session->m_lost = true;
                                     session->m_changed();
                                 }),
                                 this);
        if (e_cal_client_get_view_sync(connection.client, "#t", &connection.view, nullptr, nullptr)) {
            e_cal_client_view_set_flags(connection.view, E_CAL_CLIENT_VIEW_FLAGS_NONE, nullptr);
            for (const char* signal : {"objects-added", "objects-modified", "objects-removed"}) {
                g_signal_connect_swapped(connection.view, signal,
                                         G_CALLBACK(+[](EdsSession* session) { session->m_changed(); }), this);
            }
            e_cal_client_view_start(connection.view, nullptr);
        }
        return m_clients.emplace(uid, std::move(connection)).first->second;
    }

    std::vector<MeetingOccurrence> fetch(Connection& connection, FetchInterval interval,
                                         const eds::CalendarContext& context)
    {
        gchar* from = isodate_from_time_t(time_t(std::floor(interval.start.unixTime())));
        gchar* to = isodate_from_time_t(time_t(std::ceil(interval.end.unixTime())));
        // Every repeating event comes along, not only those the time range selects: the service matches a series
        // and its moved instances one by one, so a series with an instance in the range arrives without the
        // instance that was moved out of it (whose old slot would then be announced), and an instance just moved
        // with "this occurrence only" is missed by the local calendar's time index until the service restarts.
        // Naming the repeating events outright also spares the service from expanding each series to match it.
        gchar* query = g_strdup_printf(
            "(or (has-recurrences?) (occur-in-time-range? (make-time \"%s\") (make-time \"%s\")))", from, to);
        g_free(from);
        g_free(to);
        GSList* components = nullptr;
        GError* error = nullptr;
        const gboolean ok =
            e_cal_client_get_object_list_as_comps_sync(connection.client, query, &components, nullptr, &error);
        g_free(query);
        if (!ok) {
            throw serviceFailure(error);
        }
        std::vector<ICalComponent*> events;
        for (GSList* item = components; item != nullptr; item = item->next) {
            events.push_back(e_cal_component_get_icalcomponent(E_CAL_COMPONENT(item->data)));
        }
        try {
            auto result = eds::expandEvents(events, interval, context);
            g_slist_free_full(components, g_object_unref);
            return result;
        } catch (const std::exception& failure) {
            g_slist_free_full(components, g_object_unref);
            throw CalendarRepositoryError(CalendarRepositoryError::ServiceFailed{QString::fromUtf8(failure.what())});
        }
    }

public:
    /// The calendar factory died since the last fetch: every client must be made again.
    bool m_lost = false;

private:
    std::function<void()> m_changed;
    ESourceRegistry* m_registry = nullptr;
    std::map<QString, Connection> m_clients;
    ICalTimezone* m_zone = userZone();
};

EdsCalendarRepository::EdsCalendarRepository(QObject* parent)
    : CalendarRepository(parent)
{
    m_thread.setObjectName(u"Orvane calendar service"_s);
    m_worker = new QObject;
    m_worker->moveToThread(&m_thread);
    m_thread.start();

    m_coalescing.setSingleShot(true);
    m_coalescing.setInterval(changeCoalescingMilliseconds);
    QObject::connect(&m_coalescing, &QTimer::timeout, this, &CalendarRepository::changed);

    // The session lives on the worker thread: its change callbacks run there and hop to this thread.
    const QPointer<EdsCalendarRepository> self(this);
    m_session = std::make_shared<EdsSession>([self] {
        QMetaObject::invokeMethod(
            qApp,
            [self] {
                if (self) {
                    self->m_coalescing.start();
                }
            },
            Qt::QueuedConnection);
    });
}

EdsCalendarRepository::~EdsCalendarRepository()
{
    // The session's GObjects belong to the worker thread's main context: release them there, and wait for it, since
    // a thread told to quit may stop before it runs what was queued for it.
    QMetaObject::invokeMethod(
        m_worker,
        [session = std::move(m_session), worker = m_worker]() mutable {
            session.reset();
            delete worker;
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

template <class T>
QCoro::Task<T> EdsCalendarRepository::onWorker(std::function<T(EdsSession&)> work)
{
    auto promise = std::make_shared<QPromise<T>>();
    QFuture<T> future = promise->future();
    promise->start();
    QMetaObject::invokeMethod(m_worker, [promise, session = m_session, work = std::move(work)] {
        try {
            if (session->m_lost) {
                session->reset();
                session->m_lost = false;
            }
            promise->addResult(work(*session));
        } catch (const CalendarRepositoryError& error) {
            // A failed daemon call may leave clients pointing at a dead service: start afresh next time.
            session->reset();
            promise->setException(std::make_exception_ptr(error));
        } catch (...) {
            session->reset();
            promise->setException(std::current_exception());
        }
        promise->finish();
    });
    co_await future;
    co_return future.result();
}

void EdsCalendarRepository::setState(CalendarAuthorizationState state)
{
    if (state != m_state) {
        m_state = state;
        Q_EMIT authorizationStateChanged(state);
    }
}

QCoro::Task<CalendarAuthorizationState> EdsCalendarRepository::requestFullAccess()
{
    const QPointer<EdsCalendarRepository> self(this);
    bool reachable = false;
    try {
        // The task is named before it is awaited: GCC 12 destroys the temporaries of a co_await expression twice.
        auto connecting = onWorker<bool>([](EdsSession& session) {
            session.connect();
            return true;
        });
        reachable = co_await std::move(connecting);
    } catch (const CalendarRepositoryError&) {
    }
    if (!self) {
        co_return CalendarAuthorizationState::unknown;
    }
    setState(reachable ? CalendarAuthorizationState::fullAccess : CalendarAuthorizationState::unknown);
    co_return m_state;
}

QCoro::Task<std::vector<CalendarGroup>> EdsCalendarRepository::calendarGroups()
{
    const QPointer<EdsCalendarRepository> self(this);
    try {
        auto listing = onWorker<std::vector<CalendarGroup>>([](EdsSession& session) { return session.groups(); });
        auto groups = co_await std::move(listing);
        if (self) {
            setState(CalendarAuthorizationState::fullAccess);
        }
        co_return groups;
    } catch (const CalendarRepositoryError& error) {
        if (self && std::holds_alternative<CalendarRepositoryError::AccessNotGranted>(error.value())) {
            setState(CalendarAuthorizationState::unknown);
        }
        throw;
    }
}

QCoro::Task<OccurrenceFetchResult> EdsCalendarRepository::occurrences(FetchInterval interval,
                                                                      QSet<QString> calendarIdentifiers)
{
    const double duration = interval.end - interval.start;
    if (!(duration > 0)) {
        throw CalendarRepositoryError(CalendarRepositoryError::InvalidInterval{});
    }
    if (duration > CalendarRepositoryError::maximumInterval) {
        throw CalendarRepositoryError(
            CalendarRepositoryError::IntervalTooLarge{CalendarRepositoryError::maximumInterval});
    }
    if (calendarIdentifiers.isEmpty()) {
        co_return OccurrenceFetchResult{};
    }
    const QPointer<EdsCalendarRepository> self(this);
    try {
        auto fetching = onWorker<OccurrenceFetchResult>([interval, calendarIdentifiers](EdsSession& session) {
            return session.occurrences(interval, calendarIdentifiers);
        });
        auto result = co_await std::move(fetching);
        if (self) {
            setState(CalendarAuthorizationState::fullAccess);
        }
        co_return result;
    } catch (const CalendarRepositoryError& error) {
        if (self && std::holds_alternative<CalendarRepositoryError::AccessNotGranted>(error.value())) {
            setState(CalendarAuthorizationState::unknown);
        }
        throw;
    }
}

} // namespace orvane
