// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/NotifierSettings.h"

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace orvane {

std::size_t hash(const NotifierSettings& value)
{
    return hashFields(value.alertLeadTime, value.selectedCalendars, value.eligibilityMode, value.launchAtLogin,
                      value.showsOnAllDisplays);
}

json::Value toJson(const NotifierSettings& value)
{
    json::Object object{{u"alertLeadTime"_s, value.alertLeadTime}};
    json::addIfPresent(object, u"selectedCalendars", value.selectedCalendars);
    object.emplace_back(u"eligibilityMode"_s, toJson(value.eligibilityMode));
    object.emplace_back(u"launchAtLogin"_s, value.launchAtLogin);
    object.emplace_back(u"showsOnAllDisplays"_s, value.showsOnAllDisplays);
    return object;
}

NotifierSettings fromJson(const json::Decoder& decoder, json::Tag<NotifierSettings>)
{
    NotifierSettings settings;
    settings.alertLeadTime = decoder.decode<double>(u"alertLeadTime");
    if (!std::isfinite(settings.alertLeadTime) || settings.alertLeadTime < 0 ||
        settings.alertLeadTime > NotifierSettings::maximumAlertLeadTime) {
        decoder.fail(json::DecodingError::Kind::dataCorrupted, u"Alert lead time must be between 0 and 120 minutes."_s,
                     u"alertLeadTime");
    }

    if (decoder.contains(u"selectedCalendars")) {
        settings.selectedCalendars =
            decoder.decodeIfPresent<std::vector<CalendarSelectionRecord>>(u"selectedCalendars");
    } else if (decoder.contains(u"enabledCalendarIdentifiers")) {
        auto identifiers = decoder.decode<std::vector<QString>>(u"enabledCalendarIdentifiers");
        std::sort(identifiers.begin(), identifiers.end());
        identifiers.erase(std::unique(identifiers.begin(), identifiers.end()), identifiers.end());
        std::vector<CalendarSelectionRecord> selection;
        selection.reserve(identifiers.size());
        for (auto& identifier : identifiers) {
            selection.push_back({.calendarIdentifier = std::move(identifier), .fingerprint = std::nullopt});
        }
        settings.selectedCalendars = std::move(selection);
    }

    settings.eligibilityMode = decoder.decode<EligibilityMode>(u"eligibilityMode");
    settings.launchAtLogin = decoder.decode<bool>(u"launchAtLogin");
    settings.showsOnAllDisplays = decoder.decode<bool>(u"showsOnAllDisplays");
    return settings;
}

} // namespace orvane
