// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertMeetingListModel.h"

#include "alert/AlertTexts.h"

using namespace Qt::StringLiterals;

namespace orvane {

AlertMeetingListModel::AlertMeetingListModel(std::vector<MeetingOccurrence> meetings, Date now, QObject* parent)
    : QAbstractListModel(parent)
    , m_meetings(std::move(meetings))
{
    m_countdowns.reserve(m_meetings.size());
    for (const MeetingOccurrence& meeting : m_meetings) {
        m_countdowns.push_back(countdown(meeting, now));
    }
}

AlertMeetingListModel::Countdown AlertMeetingListModel::countdown(const MeetingOccurrence& meeting, Date now)
{
    return {AlertTexts::countdownText(now, meeting.startDate, meeting.endDate),
            AlertTexts::countdownAccessibilityLabel(now, meeting.startDate, meeting.endDate), now >= meeting.startDate};
}

void AlertMeetingListModel::update(Date now)
{
    for (std::size_t row = 0; row < m_meetings.size(); ++row) {
        Countdown current = countdown(m_meetings[row], now);
        if (current == m_countdowns[row]) {
            continue;
        }
        m_countdowns[row] = std::move(current);
        const QModelIndex changed = index(int(row));
        Q_EMIT dataChanged(changed, changed, {CountdownTextRole, CountdownAccessibleLabelRole, HasStartedRole});
    }
}

void AlertMeetingListModel::setConcealed(bool concealed)
{
    if (concealed == m_concealed) {
        return;
    }
    m_concealed = concealed;
    if (!m_meetings.empty()) {
        Q_EMIT dataChanged(index(0), index(int(m_meetings.size()) - 1),
                           {TitleRole, TimeRangeRole, LocationRole, HasLocationRole, ExcludeAccessibleNameRole});
    }
}

int AlertMeetingListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_meetings.size());
}

QVariant AlertMeetingListModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const auto row = std::size_t(index.row());
    const MeetingOccurrence& meeting = m_meetings[row];
    switch (role) {
    case TitleRole:
        return m_concealed ? QString() : meeting.title;
    case CountdownTextRole:
        return m_countdowns[row].text;
    case CountdownAccessibleLabelRole:
        return m_countdowns[row].accessibleLabel;
    case HasStartedRole:
        return m_countdowns[row].hasStarted;
    case TimeRangeRole:
        return m_concealed ? QString() : AlertTexts::timeRange(meeting.startDate, meeting.endDate);
    case LocationRole:
        return m_concealed ? QString() : meeting.location.value_or(QString());
    case HasLocationRole:
        return !m_concealed && meeting.location.has_value() && !meeting.location->trimmed().isEmpty();
    case IsRecurringRole:
        return meeting.isRecurring;
    case HasLinkRole:
        return meeting.meetingURL.has_value() && meeting.meetingURL->isValid();
    case IsPrimaryRole:
        return row == 0;
    case ExcludeAccessibleNameRole:
        return m_concealed ? AlertTexts::excludeThisMeeting() : AlertTexts::excludeMenuAccessibleName(meeting.title);
    }
    return {};
}

QHash<int, QByteArray> AlertMeetingListModel::roleNames() const
{
    return {
        {TitleRole, "title"},
        {CountdownTextRole, "countdownText"},
        {CountdownAccessibleLabelRole, "countdownAccessibleLabel"},
        {HasStartedRole, "hasStarted"},
        {TimeRangeRole, "timeRange"},
        {LocationRole, "location"},
        {HasLocationRole, "hasLocation"},
        {IsRecurringRole, "isRecurring"},
        {HasLinkRole, "hasLink"},
        {IsPrimaryRole, "isPrimary"},
        {ExcludeAccessibleNameRole, "excludeAccessibleName"},
    };
}

} // namespace orvane
