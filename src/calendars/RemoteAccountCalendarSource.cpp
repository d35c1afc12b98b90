// SPDX-License-Identifier: GPL-3.0-or-later
#include "calendars/RemoteAccountCalendarSource.h"

#include "calendars/RemoteAccountCredentials.h"
#include "calendars/RemoteAccountError.h"
#include "cloud/RemoteHTTPError.h"
#include "oauth/OAuthError.h"

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

CalendarSourceKind sourceKind(RemoteCalendarProviderKind provider)
{
    return provider == RemoteCalendarProviderKind::google ? CalendarSourceKind::google : CalendarSourceKind::microsoft;
}

QString providerName(RemoteCalendarProviderKind provider)
{
    return provider == RemoteCalendarProviderKind::google ? u"Google"_s : u"Outlook"_s;
}

/// Whether only a new sign-in can fix `error`.
bool needsSignIn(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const RemoteAccountError& failure) {
        return failure.requiresReauthentication();
    } catch (const RemoteHTTPError& failure) {
        // Still refused after a fresh token: the grant no longer covers what Orvane reads.
        const auto* status = std::get_if<RemoteHTTPError::UnexpectedStatus>(&failure.value());
        return status && status->statusCode == 401;
    } catch (...) {
    }
    return false;
}

/// Whether `error` is the account's rather than one calendar's: its sign-in or its token, which every request
/// shares, so that asking for the other calendars would only fail again.
bool concernsAccount(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const RemoteAccountError&) {
        return true;
    } catch (const OAuthError&) {
        return true;
    } catch (...) {
    }
    return needsSignIn(error);
}

/// Fetches every calendar's events with at most `width` requests in flight. Workers take the next calendar as soon
/// as their last one answered; results and failures keep the calendars' order.
struct ParallelFetch {
    std::vector<std::vector<RemoteMeetingOccurrence>> results;
    std::vector<std::exception_ptr> failures;
    std::size_t next = 0;
    std::exception_ptr accountFailure;
};

QCoro::Task<> fetchWorker(std::shared_ptr<ParallelFetch> fetch, RemoteCalendarClient* client,
                          RemoteCalendarAccountMetadata account, std::vector<RemoteCalendarDescriptor> calendars,
                          FetchInterval interval, RemoteAccessTokenProvider token)
{
    while (!fetch->accountFailure && fetch->next < calendars.size()) {
        const std::size_t index = fetch->next++;
        try {
            auto occurrences = co_await client->occurrences(account, calendars[index], interval, token);
            fetch->results[index] = std::move(occurrences);
        } catch (...) {
            // A calendar that is gone or failing is that calendar's problem; a refused sign-in is everyone's.
            fetch->failures[index] = std::current_exception();
            if (concernsAccount(fetch->failures[index]) && !fetch->accountFailure) {
                fetch->accountFailure = fetch->failures[index];
            }
        }
    }
}

} // namespace

RemoteAccountCalendarSource::RemoteAccountCalendarSource(RemoteCalendarClient& client,
                                                         RemoteAccountCredentials& credentials, QObject* parent)
    : CalendarSource(parent)
    , m_client(client)
    , m_credentials(&credentials)
    , m_account(credentials.account())
{
    m_resync.setSingleShot(true);
    m_resync.setTimerType(Qt::VeryCoarseTimer);
    m_resync.setInterval(resyncInterval);
    connect(&m_resync, &QTimer::timeout, this, &CalendarSource::changed);
}

std::optional<std::chrono::milliseconds> RemoteAccountCalendarSource::pendingResync() const
{
    return m_resync.isActive() ? std::optional(m_resync.remainingTimeAsDuration()) : std::nullopt;
}

QString RemoteAccountCalendarSource::key(const RemoteCalendarAccountMetadata& account)
{
    return u"remote:"_s + account.id.toString(QUuid::WithoutBraces).toUpper();
}

QString RemoteAccountCalendarSource::key() const
{
    return key(m_account);
}

CalendarSourceHealthIssue::Source RemoteAccountCalendarSource::healthSource() const
{
    return CalendarSourceHealthIssue::Remote{m_account.provider, m_account.id.toString(QUuid::WithoutBraces).toUpper()};
}

QString RemoteAccountCalendarSource::displayName() const
{
    return u"%1 (%2)"_s.arg(remoteSourceTitle(m_account), providerName(m_account.provider));
}

CalendarDescriptor RemoteAccountCalendarSource::calendarDescriptor(const RemoteCalendarDescriptor& calendar,
                                                                   const RemoteCalendarGroup& group,
                                                                   RemoteCalendarProviderKind provider)
{
    return CalendarDescriptor{
        .identifier = calendar.identifier,
        .title = calendar.title,
        .sourceIdentifier = group.sourceIdentifier,
        .sourceTitle = group.sourceTitle,
        .sourceKind = sourceKind(provider),
        .colorHex = calendar.colorHex,
        .isSubscribed = calendar.isSubscribed,
        .allowsContentModifications = calendar.allowsContentModifications,
    };
}

MeetingOccurrence RemoteAccountCalendarSource::meetingOccurrence(const RemoteMeetingOccurrence& occurrence,
                                                                 const CalendarDescriptor& calendar)
{
    return MeetingOccurrence{
        .identity = {.sourceIdentifier = calendar.sourceIdentifier,
                     .calendarIdentifier = calendar.identifier,
                     .seriesIdentifier = occurrence.seriesIdentifier,
                     .occurrenceStart = occurrence.occurrenceStart,
                     .scheduledStart = occurrence.startDate},
        .title = occurrence.title,
        .startDate = occurrence.startDate,
        .endDate = occurrence.endDate,
        .isAllDay = occurrence.isAllDay,
        .isCanceled = occurrence.isCanceled,
        .participationStatus = occurrence.participationStatus,
        .hasAttendees = occurrence.hasAttendees,
        .location = occurrence.location,
        .isRecurring = occurrence.isRecurring,
        .calendar = calendar,
        .meetingURL = occurrence.meetingURL,
    };
}

QCoro::Task<std::vector<CalendarGroup>> RemoteAccountCalendarSource::calendarGroups()
{
    if (!m_credentials) {
        throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
    }
    const QPointer<RemoteAccountCalendarSource> self(this);
    const RemoteCalendarAccountMetadata account = m_account;
    RemoteCalendarGroup group = co_await m_client.calendarGroup(account, m_credentials->provider());
    if (!self) {
        co_return {};
    }
    m_group = group;
    CalendarGroup shared{.sourceIdentifier = group.sourceIdentifier,
                         .sourceTitle = group.sourceTitle,
                         .sourceKind = sourceKind(account.provider),
                         .calendars = {}};
    for (const auto& calendar : group.calendars) {
        shared.calendars.push_back(calendarDescriptor(calendar, group, account.provider));
    }
    co_return std::vector<CalendarGroup>{std::move(shared)};
}

QCoro::Task<OccurrenceFetchResult> RemoteAccountCalendarSource::occurrences(FetchInterval interval,
                                                                            std::optional<QSet<QString>> selection)
{
    const QPointer<RemoteAccountCalendarSource> self(this);
    if (!m_group) {
        co_await calendarGroups();
        if (!self) {
            co_return {};
        }
    }
    if (!m_credentials) {
        throw RemoteAccountError(RemoteAccountError::UnknownAccount{});
    }
    const RemoteCalendarGroup group = *m_group;
    std::vector<RemoteCalendarDescriptor> calendars;
    for (const auto& calendar : group.calendars) {
        if (!selection || selection->contains(calendar.identifier)) {
            calendars.push_back(calendar);
        }
    }

    auto fetch = std::make_shared<ParallelFetch>();
    fetch->results.resize(calendars.size());
    fetch->failures.resize(calendars.size());
    const RemoteAccessTokenProvider token = m_credentials->provider();
    std::vector<QCoro::Task<>> workers;
    const std::size_t width = std::min<std::size_t>(std::size_t(m_concurrentRequests), calendars.size());
    for (std::size_t worker = 0; worker < width; ++worker) {
        workers.push_back(fetchWorker(fetch, &m_client, m_account, calendars, interval, token));
    }
    for (auto& worker : workers) {
        co_await std::move(worker);
    }
    if (fetch->accountFailure) {
        std::rethrow_exception(fetch->accountFailure);
    }
    const auto failed = std::count_if(fetch->failures.begin(), fetch->failures.end(),
                                      [](const std::exception_ptr& failure) { return bool(failure); });
    if (!calendars.empty() && std::size_t(failed) == calendars.size()) {
        // Not one calendar answered: the network or the service is down for the whole account.
        std::rethrow_exception(fetch->failures.front());
    }
    if (!self) {
        co_return {};
    }

    // Started only after a fetch: a read that never ends (or an account that fails, which the composite retries on
    // its own schedule) arms nothing.
    m_resync.start();
    OccurrenceFetchResult meetings;
    m_uidBySeries.clear();
    for (std::size_t index = 0; index < calendars.size(); ++index) {
        if (fetch->failures[index]) {
            meetings.failedCalendars.push_back(
                {calendars[index].identifier, calendars[index].title, failureMessage(fetch->failures[index])});
            continue;
        }
        const CalendarDescriptor calendar = calendarDescriptor(calendars[index], group, m_account.provider);
        for (const auto& occurrence : fetch->results[index]) {
            meetings.occurrences.push_back(meetingOccurrence(occurrence, calendar));
            if (occurrence.iCalendarUID && !occurrence.iCalendarUID->isEmpty()) {
                m_uidBySeries.insert(occurrence.seriesIdentifier, *occurrence.iCalendarUID);
            }
        }
    }
    co_return meetings;
}

QString RemoteAccountCalendarSource::failureMessage(const std::exception_ptr& error) const
{
    try {
        std::rethrow_exception(error);
    } catch (const RemoteAccountError& failure) {
        return failure.description();
    } catch (const RemoteHTTPError& failure) {
        return failure.description();
    } catch (const OAuthError& failure) {
        return failure.description();
    } catch (...) {
    }
    return CalendarSource::failureMessage(error);
}

bool RemoteAccountCalendarSource::requiresReauthentication(const std::exception_ptr& error) const
{
    return needsSignIn(error);
}

QString RemoteAccountCalendarSource::crossSourceKey(const MeetingOccurrence& occurrence) const
{
    const auto uid = m_uidBySeries.constFind(occurrence.identity.seriesIdentifier);
    // The desktop names a series "external:" + its UID; a connected account's own series identity never collides
    // with that, so without a UID its meetings are only ever recognised among its own.
    return uid != m_uidBySeries.constEnd() ? u"external:"_s + *uid : occurrence.identity.seriesIdentifier;
}

} // namespace orvane
