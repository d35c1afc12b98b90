// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarSource.h"
#include "cloud/RemoteCalendarClient.h"

#include <QHash>
#include <QPointer>
#include <QTimer>

#include <chrono>

namespace orvane {

class RemoteAccountCredentials;

/// One connected Google or Microsoft account as a source of the composite repository.
///
/// Its calendars are read through the provider's client with the account's credentials; the events of the selected
/// calendars are fetched side by side, a bounded number at a time, so that an account with many calendars is quick
/// without flooding the service. A calendar that cannot be read is reported while the others deliver; a failure of
/// the sign-in or token, or of every calendar at once, fails the whole account.
class RemoteAccountCalendarSource final : public CalendarSource {
    Q_OBJECT

public:
    /// How many requests of one account may be in flight at once.
    static constexpr int defaultConcurrentRequests = 6;
    /// How long after a fetch the account is read again: the services cannot tell a desktop program about changes,
    /// so a meeting added or moved there is noticed within this time.
    static constexpr std::chrono::minutes resyncInterval{5};

    /// `client` and `credentials` must outlive the source.
    RemoteAccountCalendarSource(RemoteCalendarClient& client, RemoteAccountCredentials& credentials,
                                QObject* parent = nullptr);

    /// When the account will be read again (through `changed()`); absent before the first fetch.
    std::optional<std::chrono::milliseconds> pendingResync() const;

    /// How many calendars are fetched at once (at least one).
    void setConcurrentRequests(int count) { m_concurrentRequests = std::max(1, count); }

    QString key() const override;
    CalendarSourceHealthIssue::Source healthSource() const override;
    QString displayName() const override;

    QCoro::Task<std::vector<CalendarGroup>> calendarGroups() override;
    QCoro::Task<OccurrenceFetchResult> occurrences(FetchInterval interval,
                                                   std::optional<QSet<QString>> selection) override;

    QString failureMessage(const std::exception_ptr& error) const override;
    bool requiresReauthentication(const std::exception_ptr& error) const override;
    QString crossSourceKey(const MeetingOccurrence& occurrence) const override;

    /// The source key of an account.
    static QString key(const RemoteCalendarAccountMetadata& account);
    /// The shared calendar type of a provider calendar of `group`.
    static CalendarDescriptor calendarDescriptor(const RemoteCalendarDescriptor& calendar,
                                                 const RemoteCalendarGroup& group, RemoteCalendarProviderKind provider);
    /// The shared meeting type of a provider occurrence; `calendar` is its calendar as calendarDescriptor() made it.
    static MeetingOccurrence meetingOccurrence(const RemoteMeetingOccurrence& occurrence,
                                               const CalendarDescriptor& calendar);

private:
    RemoteCalendarClient& m_client;
    QPointer<RemoteAccountCredentials> m_credentials;
    RemoteCalendarAccountMetadata m_account;
    int m_concurrentRequests = defaultConcurrentRequests;
    /// The calendars as last listed, with their group.
    std::optional<RemoteCalendarGroup> m_group;
    /// The iCalendar UID of each series seen in the last fetch, for recognising the desktop's copy of a meeting.
    QHash<QString, QString> m_uidBySeries;
    QTimer m_resync;
};

} // namespace orvane
