// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cloud/RemoteCalendarAccountMetadata.h"
#include "cloud/RemoteCalendarGroup.h"
#include "cloud/RemoteMeetingOccurrence.h"
#include "domain/MeetingSchedule.h"

#include <QString>
#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>
#include <vector>

namespace orvane {

/// Who signed in, as the provider describes the account.
struct RemoteAccountProfile {
    /// The provider's stable user identifier (never the address, which can change).
    QString providerAccountIdentifier;
    /// The directory tenant of a Microsoft work or school account; absent for personal accounts and Google.
    std::optional<QString> tenantIdentifier;
    QString displayName;
    std::optional<QString> emailAddress;

    friend bool operator==(const RemoteAccountProfile&, const RemoteAccountProfile&) = default;
};

/// Hands out the access token to call a service with. Called with the token the service just refused (401), it
/// returns a fresh one or throws: the error then says why the account cannot be used (often a new sign-in is needed).
using RemoteAccessTokenProvider = std::function<QCoro::Task<QString>(std::optional<QString> rejectedToken)>;

/// Reads one provider's calendar service for a signed-in account. Read-only: nothing is ever written back.
///
/// Failures are RemoteHTTPError (the service's own message, when it gave one, rides in UnexpectedStatus), or
/// whatever the token provider throws.
class RemoteCalendarClient {
public:
    virtual ~RemoteCalendarClient() = default;

    virtual RemoteCalendarProviderKind provider() const = 0;

    /// Who the token belongs to.
    virtual QCoro::Task<RemoteAccountProfile> accountProfile(RemoteAccessTokenProvider accessToken) = 0;

    /// Every calendar of the account (all pages), as one group titled after the account.
    virtual QCoro::Task<RemoteCalendarGroup> calendarGroup(RemoteCalendarAccountMetadata account,
                                                           RemoteAccessTokenProvider accessToken) = 0;

    /// The occurrences of `calendar` overlapping `interval` (all pages), recurring series expanded by the service,
    /// cancelled occurrences included and marked.
    virtual QCoro::Task<std::vector<RemoteMeetingOccurrence>>
    occurrences(RemoteCalendarAccountMetadata account, RemoteCalendarDescriptor calendar, FetchInterval interval,
                RemoteAccessTokenProvider accessToken) = 0;
};

/// The title of an account's calendar group: the address the user signed in with, else the account's name.
QString remoteSourceTitle(const RemoteCalendarAccountMetadata& account);

/// The provider's own identifier of `calendar`, which must be a calendar of `account`: another account's calendar
/// would be asked for with this account's token. Throws RemoteHTTPError::InvalidURL otherwise.
QString providerCalendarIdentifier(const RemoteCalendarAccountMetadata& account,
                                   const RemoteCalendarDescriptor& calendar);

} // namespace orvane
