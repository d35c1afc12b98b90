// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarClient.h"
#include "cloud/RemoteJSONRequester.h"

#include <QByteArray>
#include <QUrl>

#include <optional>

namespace orvane {

class RemoteHTTPTransport;

/// Reads a Google account's calendars through the Google Calendar API v3 and who the account is through Google's
/// OpenID Connect userinfo endpoint.
///
/// Occurrences come from the events list with recurring series expanded by Google (`singleEvents`) and deleted
/// occurrences included (`showDeleted`), so a cancelled meeting is seen as cancelled rather than as gone.
class GoogleCalendarClient final : public RemoteCalendarClient {
public:
    /// Where the services live; tests point them at a local server. A base may carry a path prefix.
    struct Endpoints {
        /// The Calendar API's base ("https://www.googleapis.com").
        QUrl apiBase;
        /// The OpenID Connect userinfo service's base ("https://openidconnect.googleapis.com").
        QUrl openIdBase;

        static Endpoints production();
    };

    /// `transport` must outlive the client.
    explicit GoogleCalendarClient(RemoteHTTPTransport& transport, Endpoints endpoints = Endpoints::production(),
                                  RemoteJSONRequester::Options options = {});

    RemoteCalendarProviderKind provider() const override { return RemoteCalendarProviderKind::google; }

    QCoro::Task<RemoteAccountProfile> accountProfile(RemoteAccessTokenProvider accessToken) override;
    QCoro::Task<RemoteCalendarGroup> calendarGroup(RemoteCalendarAccountMetadata account,
                                                   RemoteAccessTokenProvider accessToken) override;
    QCoro::Task<std::vector<RemoteMeetingOccurrence>> occurrences(RemoteCalendarAccountMetadata account,
                                                                  RemoteCalendarDescriptor calendar,
                                                                  FetchInterval interval,
                                                                  RemoteAccessTokenProvider accessToken) override;

    /// The explanation in a Google error body: `{"error":{"message":…}}` from the Calendar API, or the OAuth form
    /// `{"error":"…","error_description":"…"}` the userinfo endpoint answers with.
    static std::optional<QString> errorMessage(const QByteArray& body);

    /// Appends the occurrences of one events.list page to `occurrences` (malformed events are skipped) and returns
    /// the next page's token. Throws RemoteHTTPError::InvalidResponse for a page that is not a list.
    static std::optional<QString> readEventsPage(const QJsonObject& page, const RemoteCalendarAccountMetadata& account,
                                                 const RemoteCalendarDescriptor& calendar,
                                                 std::vector<RemoteMeetingOccurrence>& occurrences);

private:
    Endpoints m_endpoints;
    RemoteJSONRequester m_requester;
};

} // namespace orvane
