// SPDX-License-Identifier: GPL-3.0-or-later
// A calendar service's reply is bytes a server (or whoever stands between) controls. Read as a Google events.list page
// and as a Graph calendarView page, it either yields occurrences that keep Orvane's own invariants or is refused with
// InvalidResponse; malformed events are skipped, and nothing else may happen.
#include "cloud/GoogleCalendarClient.h"
#include "cloud/MicrosoftGraphCalendarClient.h"
#include "cloud/RemoteCalendarIdentityNamespace.h"
#include "cloud/RemoteHTTPError.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

namespace {

const orvane::RemoteCalendarAccountMetadata account{
    .id = QUuid::fromString(QStringLiteral("6F1C2D9E-0C57-4B52-9C1A-2B3C4D5E6F70")),
    .provider = orvane::RemoteCalendarProviderKind::google,
    .providerAccountIdentifier = QStringLiteral("109876543210"),
    .displayName = QStringLiteral("Fuzz"),
    .oauthClientID = QStringLiteral("client"),
};

void check(const std::vector<orvane::RemoteMeetingOccurrence>& occurrences,
           const orvane::RemoteCalendarDescriptor& calendar)
{
    for (const auto& occurrence : occurrences) {
        const bool sound = occurrence.calendar == calendar && occurrence.endDate >= occurrence.startDate &&
                           occurrence.seriesIdentifier.startsWith(QStringLiteral("external:orvane.remote.v1:")) &&
                           orvane::RemoteCalendarIdentityNamespace::belongsToAccount(occurrence.seriesIdentifier,
                                                                                     account) &&
                           (!occurrence.meetingURL || occurrence.meetingURL->isValid());
        if (!sound) {
            std::abort();
        }
    }
}

template <class Read>
void readPage(const QJsonObject& page, Read read)
{
    const orvane::RemoteCalendarDescriptor calendar{
        orvane::RemoteCalendarIdentityNamespace::calendarIdentifier(account, QStringLiteral("primary")),
        QStringLiteral("Work"), std::nullopt, false, true};
    std::vector<orvane::RemoteMeetingOccurrence> occurrences;
    try {
        read(page, account, calendar, occurrences);
    } catch (const orvane::RemoteHTTPError& error) {
        if (!std::holds_alternative<orvane::RemoteHTTPError::InvalidResponse>(error.value())) {
            std::abort();
        }
    }
    check(occurrences, calendar);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!document.isObject()) {
        return 0;
    }
    readPage(document.object(), orvane::GoogleCalendarClient::readEventsPage);
    readPage(document.object(), orvane::MicrosoftGraphCalendarClient::readEventsPage);
    return 0;
}
