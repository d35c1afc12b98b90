// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/linux/EdsEventMapping.h"

#include "domain/MeetingLinkDetector.h"

#include <QByteArray>

#include <algorithm>
#include <cmath>
#include <libecal/libecal.h>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>

using namespace Qt::StringLiterals;

namespace orvane::eds {

namespace {

/// Owns one GObject reference.
template <class T>
struct Ref {
    T* object = nullptr;
    explicit Ref(T* pointer)
        : object(pointer)
    {
    }
    ~Ref()
    {
        if (object != nullptr) {
            g_object_unref(object);
        }
    }
    Ref(Ref&& other) noexcept
        : object(std::exchange(other.object, nullptr))
    {
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    explicit operator bool() const { return object != nullptr; }
    T* get() const { return object; }
};

std::optional<QString> text(const char* value)
{
    if (value == nullptr) {
        return std::nullopt;
    }
    return QString::fromUtf8(value);
}

/// The time of a date-time property, with the zone its TZID parameter names attached.
std::optional<Date> propertyDate(ICalComponent* component, ICalPropertyKind kind, const CalendarContext& context)
{
    Ref<ICalProperty> property(i_cal_component_get_first_property(component, kind));
    if (!property) {
        return std::nullopt;
    }
    Ref<ICalTime> time(i_cal_property_get_datetime_with_component(property.get(), component));
    if (!time || i_cal_time_is_null_time(time.get())) {
        return std::nullopt;
    }
    ICalTimezone* zone = nullptr;
    Ref<ICalParameter> tzid(i_cal_property_get_first_parameter(property.get(), I_CAL_TZID_PARAMETER));
    if (tzid && context.resolveZone) {
        zone = context.resolveZone(i_cal_parameter_get_tzid(tzid.get()));
    }
    if (zone != nullptr && !i_cal_time_is_utc(time.get()) && !i_cal_time_is_date(time.get())) {
        return Date::fromUnixTime(double(i_cal_time_as_timet_with_zone(time.get(), zone)));
    }
    return toDate(time.get(), context.defaultZone);
}

/// Gives `time`, read from the `kind` property of `component`, the zone its TZID names when libical could not find
/// it. libical looks for a TZID only in the component's own VCALENDAR and among its built-in zones, but the calendar
/// service hands out each event on its own: a zone that only the calendar defines (Exchange's "W. Europe Standard
/// Time", say) is known to the resolver alone, and without it the time would be read as the user's local time.
void attachZone(ICalTime* time, ICalComponent* component, ICalPropertyKind kind, const CalendarContext& context)
{
    if (time == nullptr || i_cal_time_is_null_time(time) || i_cal_time_is_utc(time) || i_cal_time_is_date(time) ||
        i_cal_time_get_timezone(time) != nullptr || !context.resolveZone) {
        return;
    }
    Ref<ICalProperty> property(i_cal_component_get_first_property(component, kind));
    if (!property) {
        return;
    }
    Ref<ICalParameter> tzid(i_cal_property_get_first_parameter(property.get(), I_CAL_TZID_PARAMETER));
    if (!tzid) {
        return;
    }
    if (ICalTimezone* zone = context.resolveZone(i_cal_parameter_get_tzid(tzid.get()))) {
        i_cal_time_set_timezone(time, zone);
    }
}

MeetingParticipationStatus fromPartstat(ICalParameter* parameter)
{
    switch (i_cal_parameter_get_partstat(parameter)) {
    case I_CAL_PARTSTAT_NEEDSACTION:
        return MeetingParticipationStatus::pending;
    case I_CAL_PARTSTAT_ACCEPTED:
        return MeetingParticipationStatus::accepted;
    case I_CAL_PARTSTAT_DECLINED:
        return MeetingParticipationStatus::declined;
    case I_CAL_PARTSTAT_TENTATIVE:
        return MeetingParticipationStatus::tentative;
    case I_CAL_PARTSTAT_DELEGATED:
        return MeetingParticipationStatus::delegated;
    case I_CAL_PARTSTAT_COMPLETED:
        return MeetingParticipationStatus::completed;
    case I_CAL_PARTSTAT_INPROCESS:
        return MeetingParticipationStatus::inProcess;
    case I_CAL_PARTSTAT_X:
        // libical 3 knows only the draft spelling "INPROCESS"; RFC 5545's "IN-PROCESS" reaches us as an extension.
        if (qstricmp(i_cal_parameter_get_xvalue(parameter), "IN-PROCESS") == 0) {
            return MeetingParticipationStatus::inProcess;
        }
        return MeetingParticipationStatus::unknown;
    default:
        return MeetingParticipationStatus::unknown;
    }
}

bool hasProperty(ICalComponent* component, ICalPropertyKind kind)
{
    Ref<ICalProperty> property(i_cal_component_get_first_property(component, kind));
    return static_cast<bool>(property);
}

/// Calls `visit` with each attendee's address and property until it returns true.
template <class Visitor>
void forEachAttendee(ICalComponent* event, Visitor&& visit)
{
    for (ICalProperty* attendee = i_cal_component_get_first_property(event, I_CAL_ATTENDEE_PROPERTY);
         attendee != nullptr; attendee = i_cal_component_get_next_property(event, I_CAL_ATTENDEE_PROPERTY)) {
        const Ref<ICalProperty> owned(attendee);
        if (visit(calendarUserAddress(i_cal_property_get_attendee(attendee)), attendee)) {
            return;
        }
    }
}

} // namespace

QString calendarUserAddress(const char* value)
{
    QString address = QString::fromUtf8(value == nullptr ? "" : value).trimmed();
    if (address.startsWith(u"mailto:"_s, Qt::CaseInsensitive)) {
        address.remove(0, 7);
    }
    return address.toLower();
}

Date toDate(ICalTime* time, ICalTimezone* fallback)
{
    ICalTimezone* zone = i_cal_time_get_timezone(time);
    if (i_cal_time_is_utc(time)) {
        zone = i_cal_timezone_get_utc_timezone();
    } else if (zone == nullptr || i_cal_time_is_date(time)) {
        // Floating times and all-day dates belong to the user's own day.
        zone = fallback != nullptr ? fallback : i_cal_timezone_get_utc_timezone();
    }
    return Date::fromUnixTime(double(i_cal_time_as_timet_with_zone(time, zone)));
}

MeetingParticipationStatus participationStatus(ICalComponent* event, const QStringList& userAddresses)
{
    auto status = MeetingParticipationStatus::unknown;
    forEachAttendee(event, [&](const QString& address, ICalProperty* attendee) {
        if (!userAddresses.contains(address)) {
            return false;
        }
        Ref<ICalParameter> partstat(i_cal_property_get_first_parameter(attendee, I_CAL_PARTSTAT_PARAMETER));
        // Without a PARTSTAT the answer is still outstanding, as iCalendar defines it.
        status = partstat ? fromPartstat(partstat.get()) : MeetingParticipationStatus::pending;
        return true;
    });
    return status;
}

std::optional<MeetingOccurrence> mapInstance(ICalComponent* instance, ICalTime* start, ICalTime* end,
                                             std::optional<Date> generatedStart, const CalendarContext& context)
{
    if (start == nullptr || end == nullptr || i_cal_time_is_null_time(start)) {
        return std::nullopt;
    }
    const Date startDate = toDate(start, context.defaultZone);
    const Date endDate = i_cal_time_is_null_time(end) ? startDate : toDate(end, context.defaultZone);

    const auto uid = text(i_cal_component_get_uid(instance));
    const QString seriesIdentifier =
        uid && !uid->isEmpty() ? u"external:"_s + *uid : u"local:"_s + context.calendar.identifier;
    const Date occurrenceStart = generatedStart
                                     ? *generatedStart
                                     : propertyDate(instance, I_CAL_RECURRENCEID_PROPERTY, context).value_or(startDate);

    bool hasOtherAttendees = false;
    forEachAttendee(instance, [&](const QString& address, ICalProperty*) {
        hasOtherAttendees = !context.userAddresses.contains(address);
        return hasOtherAttendees;
    });

    std::optional<QUrl> structuredURL;
    {
        Ref<ICalProperty> url(i_cal_component_get_first_property(instance, I_CAL_URL_PROPERTY));
        if (url) {
            const QUrl parsed(QString::fromUtf8(i_cal_property_get_url(url.get())).trimmed(), QUrl::StrictMode);
            if (parsed.isValid()) {
                structuredURL = parsed;
            }
        }
    }
    const auto location = text(i_cal_component_get_location(instance));
    const auto notes = text(i_cal_component_get_description(instance));
    const QString title = occurrenceTitle(QString::fromUtf8(i_cal_component_get_summary(instance)));

    return MeetingOccurrence{
        .identity = {.sourceIdentifier = context.calendar.sourceIdentifier,
                     .calendarIdentifier = context.calendar.identifier,
                     .seriesIdentifier = seriesIdentifier,
                     .calendarFingerprint = context.fingerprint,
                     .calendarFingerprintIsUnique = context.fingerprintIsUnique,
                     .occurrenceStart = occurrenceStart,
                     .scheduledStart = startDate},
        .title = title,
        .startDate = startDate,
        .endDate = endDate,
        .isAllDay = i_cal_time_is_date(start) != 0,
        .isCanceled = i_cal_component_get_status(instance) == I_CAL_STATUS_CANCELLED,
        .participationStatus = participationStatus(instance, context.userAddresses),
        .hasAttendees = hasOtherAttendees,
        .location = location && !location->isEmpty() ? location : std::nullopt,
        .isRecurring = hasProperty(instance, I_CAL_RRULE_PROPERTY) || hasProperty(instance, I_CAL_RDATE_PROPERTY) ||
                       hasProperty(instance, I_CAL_RECURRENCEID_PROPERTY),
        .calendar = context.calendar,
        .meetingURL = MeetingLinkDetector::detect(structuredURL, location, notes),
    };
}

namespace {

struct Expansion {
    const CalendarContext* context;
    /// Instants (UTC seconds) of the instances that have a component of their own.
    const std::unordered_set<qint64>* replaced;
    std::vector<MeetingOccurrence>* result;
};

gboolean addGeneratedInstance(ICalComponent* event, ICalTime* start, ICalTime* end, gpointer data, GCancellable*,
                              GError**)
{
    auto* expansion = static_cast<Expansion*>(data);
    const Date generated = toDate(start, expansion->context->defaultZone);
    if (expansion->replaced->contains(qint64(generated.unixTime()))) {
        return TRUE;
    }
    if (auto occurrence = mapInstance(event, start, end, generated, *expansion->context)) {
        expansion->result->push_back(std::move(*occurrence));
    }
    return TRUE;
}

ICalTimezone* resolveZone(const gchar* tzid, gpointer data, GCancellable*, GError**)
{
    const auto* context = static_cast<const CalendarContext*>(data);
    return context->resolveZone ? context->resolveZone(tzid) : nullptr;
}

/// Moves the date-time of the `kind` property of `component` by `days` days of its own (wall-clock) time.
void moveByDays(ICalComponent* component, ICalPropertyKind kind, int days)
{
    Ref<ICalProperty> property(i_cal_component_get_first_property(component, kind));
    if (!property) {
        return;
    }
    Ref<ICalTime> time(i_cal_property_get_datetime_with_component(property.get(), component));
    if (!time || i_cal_time_is_null_time(time.get())) {
        return;
    }
    i_cal_time_adjust(time.get(), days, 0, 0, 0);
    if (kind == I_CAL_DTSTART_PROPERTY) {
        i_cal_property_set_dtstart(property.get(), time.get());
    } else {
        i_cal_property_set_dtend(property.get(), time.get());
    }
}

/// A copy of `series` whose first instance is later but whose instances from `notBefore` on are the same; null when
/// the series needs none or allows none.
///
/// Expanding a series walks it from its first instance, so a daily meeting that began years ago costs thousands of
/// steps (each one a calendar computation in libical) on every fetch. A DAILY or WEEKLY rule without COUNT repeats
/// exactly every INTERVAL days or weeks of its own local time, whatever its BYDAY, BYHOUR or UNTIL: moving its start
/// by a whole number of those periods keeps every later instance. The new start stays far enough before `notBefore`
/// (the length of one instance, plus two days for zone offsets and daylight saving time) that an instance reaching
/// into the interval is still produced, and that a first instance the rule itself would not produce (a DTSTART off
/// its BYDAY) never lands inside it.
Ref<ICalComponent> fastForwarded(ICalComponent* series, Date notBefore, const CalendarContext& context)
{
    if (i_cal_component_count_properties(series, I_CAL_RRULE_PROPERTY) != 1 ||
        hasProperty(series, I_CAL_EXRULE_PROPERTY)) {
        return Ref<ICalComponent>(nullptr);
    }
    int periodDays = 0;
    {
        Ref<ICalProperty> property(i_cal_component_get_first_property(series, I_CAL_RRULE_PROPERTY));
        Ref<ICalRecurrence> rule(i_cal_property_get_rrule(property.get()));
        if (!rule || i_cal_recurrence_get_count(rule.get()) != 0) {
            return Ref<ICalComponent>(nullptr);
        }
        const int interval = std::max(1, int(i_cal_recurrence_get_interval(rule.get())));
        switch (i_cal_recurrence_get_freq(rule.get())) {
        case I_CAL_DAILY_RECURRENCE:
            periodDays = interval;
            break;
        case I_CAL_WEEKLY_RECURRENCE:
            periodDays = 7 * interval;
            break;
        default:
            return Ref<ICalComponent>(nullptr);
        }
    }
    Ref<ICalTime> start(i_cal_component_get_dtstart(series));
    if (!start || i_cal_time_is_null_time(start.get())) {
        return Ref<ICalComponent>(nullptr);
    }
    attachZone(start.get(), series, I_CAL_DTSTART_PROPERTY, context);
    const Date first = toDate(start.get(), context.defaultZone);
    double length = 0;
    if (Ref<ICalTime> end(i_cal_component_get_dtend(series)); end && !i_cal_time_is_null_time(end.get())) {
        if (hasProperty(series, I_CAL_DTEND_PROPERTY)) {
            attachZone(end.get(), series, I_CAL_DTEND_PROPERTY, context);
        } else if (!i_cal_time_is_utc(end.get()) && i_cal_time_get_timezone(end.get()) == nullptr) {
            i_cal_time_set_timezone(end.get(), i_cal_time_get_timezone(start.get()));
        }
        length = std::max(0.0, toDate(end.get(), context.defaultZone) - first);
    }
    constexpr double day = 86'400;
    const double lead = notBefore - first - length - 2 * day;
    const double periods = std::floor(lead / (periodDays * day));
    if (!(periods >= 1) || periods * periodDays > 1'000'000) {
        return Ref<ICalComponent>(nullptr);
    }
    const int days = int(periods) * periodDays;
    Ref<ICalComponent> moved(i_cal_component_clone(series));
    moveByDays(moved.get(), I_CAL_DTSTART_PROPERTY, days);
    moveByDays(moved.get(), I_CAL_DTEND_PROPERTY, days);
    return moved;
}

bool overlaps(Date start, Date end, FetchInterval interval)
{
    return start <= interval.end && (end > interval.start || start >= interval.start);
}

} // namespace

std::vector<MeetingOccurrence> expandEvents(const std::vector<ICalComponent*>& events, FetchInterval interval,
                                            const CalendarContext& context)
{
    // Moved or individually changed instances carry the series UID and the RECURRENCE-ID they replace.
    std::unordered_map<QString, std::unordered_set<qint64>> replacedByUid;
    for (ICalComponent* event : events) {
        if (const auto recurrenceId = propertyDate(event, I_CAL_RECURRENCEID_PROPERTY, context)) {
            replacedByUid[QString::fromUtf8(i_cal_component_get_uid(event))].insert(qint64(recurrenceId->unixTime()));
        }
    }

    const std::unordered_set<qint64> none;
    std::vector<MeetingOccurrence> result;
    Ref<ICalTime> from(i_cal_time_new_from_timet_with_zone(time_t(std::floor(interval.start.unixTime())), FALSE,
                                                           i_cal_timezone_get_utc_timezone()));
    Ref<ICalTime> to(i_cal_time_new_from_timet_with_zone(time_t(std::ceil(interval.end.unixTime())), FALSE,
                                                         i_cal_timezone_get_utc_timezone()));
    for (ICalComponent* event : events) {
        const bool isSeries = !hasProperty(event, I_CAL_RECURRENCEID_PROPERTY) &&
                              (hasProperty(event, I_CAL_RRULE_PROPERTY) || hasProperty(event, I_CAL_RDATE_PROPERTY));
        if (isSeries) {
            const auto replaced = replacedByUid.find(QString::fromUtf8(i_cal_component_get_uid(event)));
            Expansion expansion{&context, replaced == replacedByUid.end() ? &none : &replaced->second, &result};
            const Ref<ICalComponent> later = fastForwarded(event, interval.start, context);
            GError* error = nullptr;
            if (!e_cal_recur_generate_instances_sync(
                    later ? later.get() : event, from.get(), to.get(), addGeneratedInstance, &expansion, resolveZone,
                    const_cast<CalendarContext*>(&context), context.defaultZone, nullptr, &error)) {
                const std::string message = error != nullptr ? error->message : "unknown error";
                g_clear_error(&error);
                throw std::runtime_error("Could not expand a repeating event: " + message);
            }
            continue;
        }
        Ref<ICalTime> start(i_cal_component_get_dtstart(event));
        if (!start || i_cal_time_is_null_time(start.get())) {
            continue;
        }
        attachZone(start.get(), event, I_CAL_DTSTART_PROPERTY, context);
        Ref<ICalTime> end(i_cal_component_get_dtend(event));
        if (end && hasProperty(event, I_CAL_DTEND_PROPERTY)) {
            attachZone(end.get(), event, I_CAL_DTEND_PROPERTY, context);
        } else if (end && !i_cal_time_is_null_time(end.get()) && !i_cal_time_is_utc(end.get()) &&
                   i_cal_time_get_timezone(end.get()) == nullptr) {
            // An end computed from DURATION is in the zone of the start.
            i_cal_time_set_timezone(end.get(), i_cal_time_get_timezone(start.get()));
        }
        Ref<ICalTime> derivedEnd(i_cal_time_clone(start.get()));
        if (!end || i_cal_time_is_null_time(end.get())) {
            // No end and no duration: an all-day event lasts its day, a timed one is an instant.
            if (i_cal_time_is_date(start.get())) {
                i_cal_time_adjust(derivedEnd.get(), 1, 0, 0, 0);
            }
        }
        ICalTime* effectiveEnd = end && !i_cal_time_is_null_time(end.get()) ? end.get() : derivedEnd.get();
        if (auto occurrence = mapInstance(event, start.get(), effectiveEnd, std::nullopt, context);
            occurrence && overlaps(occurrence->startDate, occurrence->endDate, interval)) {
            result.push_back(std::move(*occurrence));
        }
    }
    return result;
}

} // namespace orvane::eds
