// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/MeetingOccurrence.h"

#include <QAbstractListModel>

#include <vector>

namespace orvane {

/// The meetings of one full-screen alert as cards: one row per meeting, in the alert's order.
///
/// Only the countdown changes while the alert is up; `update` reports just those roles, so that the view redraws
/// the countdown line and nothing else.
class AlertMeetingListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        CountdownTextRole,
        CountdownAccessibleLabelRole,
        /// The meeting has started (or ended): the countdown turns to the warning colour.
        HasStartedRole,
        TimeRangeRole,
        LocationRole,
        HasLocationRole,
        IsRecurringRole,
        HasLinkRole,
        IsPrimaryRole,
        ExcludeAccessibleNameRole,
    };

    AlertMeetingListModel(std::vector<MeetingOccurrence> meetings, Date now, QObject* parent = nullptr);

    const std::vector<MeetingOccurrence>& meetings() const { return m_meetings; }
    /// Recomputes the countdowns for `now` and reports the rows whose countdown changed.
    void update(Date now);
    /// While the screen is shared, a card says nothing about its meeting (title, time, place): it keeps only its
    /// countdown and its buttons.
    void setConcealed(bool concealed);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

private:
    struct Countdown {
        QString text;
        QString accessibleLabel;
        bool hasStarted = false;
        friend bool operator==(const Countdown&, const Countdown&) = default;
    };
    static Countdown countdown(const MeetingOccurrence& meeting, Date now);

    std::vector<MeetingOccurrence> m_meetings;
    std::vector<Countdown> m_countdowns;
    bool m_concealed = false;
};

} // namespace orvane
