// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/Date.h"

#include <cmath>
#include <functional>

namespace orvane {

Date Date::fromUnixTime(double secondsSince1970)
{
    return {secondsSince1970 - referenceDateAsUnixTime};
}

Date Date::fromDateTime(const QDateTime& dateTime)
{
    if (!dateTime.isValid()) {
        return {};
    }
    return fromUnixTime(double(dateTime.toMSecsSinceEpoch()) / 1000.0);
}

double Date::unixTime() const
{
    return secondsSinceReferenceDate + referenceDateAsUnixTime;
}

QDateTime Date::toDateTime() const
{
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(unixTime() * 1000.0)), Qt::UTC);
}

std::size_t hash(const Date& date)
{
    // -0.0 == 0.0, so both must hash alike.
    const double value = date.secondsSinceReferenceDate == 0 ? 0.0 : date.secondsSinceReferenceDate;
    return std::hash<double>{}(value);
}

json::Value toJson(Date date)
{
    return date.secondsSinceReferenceDate;
}

Date fromJson(const json::Decoder& decoder, json::Tag<Date>)
{
    return {decoder.decode<double>()};
}

} // namespace orvane
