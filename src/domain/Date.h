// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/Json.h"

#include <QDateTime>

#include <compare>
#include <cstddef>

namespace orvane {

/// An instant, as seconds since 2001-01-01 00:00:00 UTC: exactly the number the stored records hold.
///
/// Durations are plain doubles of seconds. Convert to QDateTime only at the edges (display, platform calls).
struct Date {
    /// Seconds between 1970-01-01 and 2001-01-01, both UTC.
    static constexpr double referenceDateAsUnixTime = 978'307'200.0;

    double secondsSinceReferenceDate = 0;

    static Date fromUnixTime(double secondsSince1970);
    /// The instant of a QDateTime; an invalid QDateTime gives the reference date.
    static Date fromDateTime(const QDateTime& dateTime);

    double unixTime() const;
    /// The instant as a UTC QDateTime, to the millisecond.
    QDateTime toDateTime() const;

    Date operator+(double seconds) const { return {secondsSinceReferenceDate + seconds}; }
    Date operator-(double seconds) const { return {secondsSinceReferenceDate - seconds}; }
    /// Seconds from `other` to this date.
    double operator-(Date other) const { return secondsSinceReferenceDate - other.secondsSinceReferenceDate; }

    friend auto operator<=>(const Date&, const Date&) = default;
};

std::size_t hash(const Date& date);

/// Dates are coded as the plain number of seconds since the reference date.
json::Value toJson(Date date);
Date fromJson(const json::Decoder& decoder, json::Tag<Date>);

} // namespace orvane

template <>
struct std::hash<orvane::Date> {
    std::size_t operator()(const orvane::Date& date) const noexcept { return orvane::hash(date); }
};
