// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarClient.h"
#include "cloud/RemoteJSONRequester.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

namespace orvane {

class RemoteHTTPTransport;

/// Reads the calendars of a Microsoft 365 or Outlook.com account through Microsoft Graph v1.0.
///
/// Events are asked for in UTC with plain-text bodies (the "Prefer" header), series are expanded by the service's
/// calendar view, and every list is read page by page through "@odata.nextLink".
///
/// A calendar counts as subscribed when its owner's address is not the account's own: a calendar someone else
/// shared with the user, whose contents the user merely follows. Graph has no closer notion of "subscribed".
class MicrosoftGraphCalendarClient final : public RemoteCalendarClient {
public:
    /// Where the service lives; tests point it at a local server.
    struct Endpoints {
        /// The Graph host, without the version segment ("https://graph.microsoft.com").
        QUrl graphBase;

        static Endpoints production() { return {QUrl(QStringLiteral("https://graph.microsoft.com"))}; }
    };

    /// `transport` must outlive the client.
    explicit MicrosoftGraphCalendarClient(RemoteHTTPTransport& transport, Endpoints endpoints = Endpoints::production(),
                                          RemoteJSONRequester::Options options = {});

    RemoteCalendarProviderKind provider() const override { return RemoteCalendarProviderKind::microsoft; }

    QCoro::Task<RemoteAccountProfile> accountProfile(RemoteAccessTokenProvider accessToken) override;
    QCoro::Task<RemoteCalendarGroup> calendarGroup(RemoteCalendarAccountMetadata account,
                                                   RemoteAccessTokenProvider accessToken) override;
    QCoro::Task<std::vector<RemoteMeetingOccurrence>> occurrences(RemoteCalendarAccountMetadata account,
                                                                  RemoteCalendarDescriptor calendar,
                                                                  FetchInterval interval,
                                                                  RemoteAccessTokenProvider accessToken) override;

    /// The service's own explanation in a Graph error body ({"error":{"code":…,"message":…}}): the message, else
    /// the code; absent for any other body.
    static std::optional<QString> errorMessage(const QByteArray& body);

    /// Appends the occurrences of one calendarView page to `occurrences` (malformed events and series masters are
    /// skipped) and returns the next page's link. Throws RemoteHTTPError::InvalidResponse for a page that is not a
    /// collection or whose next link is not an absolute URL.
    static std::optional<QUrl> readEventsPage(const QJsonObject& page, const RemoteCalendarAccountMetadata& account,
                                              const RemoteCalendarDescriptor& calendar,
                                              std::vector<RemoteMeetingOccurrence>& occurrences);

private:
    QCoro::Task<std::optional<QString>> tenantIdentifier(RemoteAccessTokenProvider accessToken);

    Endpoints m_endpoints;
    RemoteJSONRequester m_requester;
};

} // namespace orvane
