// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/AlertMeetingListModel.h"
#include "alert/AlertTexts.h"
#include "alert/FullScreenAlertAction.h"

#include <QObject>
#include <QTimer>
#include <QVariantList>

#include <functional>
#include <vector>

namespace orvane {

class Clock;

/// What the full-screen alert view shows for one presentation, and the actions it offers.
///
/// The view calls the invokable methods; each builds the alert's single answer and hands it to the action handler.
/// Once answered, further calls do nothing (a second click while the alert closes must not answer twice).
class AlertViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString headline READ headline CONSTANT)
    Q_PROPERTY(int meetingCount READ meetingCount CONSTANT)
    Q_PROPERTY(QAbstractItemModel* meetings READ meetingModel CONSTANT)
    Q_PROPERTY(orvane::AlertTexts* texts READ texts CONSTANT)
    /// The choices of a recurring meeting's exclusion menu: maps with "title" and "scope" (a raw ExclusionScope).
    Q_PROPERTY(QVariantList exclusionOptions READ exclusionOptions CONSTANT)
    /// Stronger outlines for users who asked their desktop for more contrast.
    Q_PROPERTY(bool increasedContrast READ increasedContrast WRITE setIncreasedContrast NOTIFY increasedContrastChanged)
    /// True while the view is on screen: only then does the countdown tick.
    Q_PROPERTY(bool active READ isActive WRITE setActive NOTIFY activeChanged)

public:
    using ActionHandler = std::function<void(FullScreenAlertAction)>;

    /// `clock` must outlive the view model.
    AlertViewModel(std::vector<MeetingOccurrence> meetings, const Clock& clock, ActionHandler onAction,
                   QObject* parent = nullptr);

    QString headline() const;
    int meetingCount() const;
    AlertMeetingListModel* meetingModel() { return &m_meetings; }
    AlertTexts* texts() { return &m_texts; }
    QVariantList exclusionOptions() const;

    bool increasedContrast() const { return m_increasedContrast; }
    void setIncreasedContrast(bool increased);

    bool isActive() const { return m_timer.isActive(); }
    /// Starts the once-a-second countdown (refreshing at once) or stops it, so a hidden alert never wakes the CPU.
    void setActive(bool active);
    /// Brings the countdowns up to the clock's time.
    void tick();

    /// Join the meeting at `index` through its link; nothing happens for a meeting without one.
    Q_INVOKABLE void join(int index);
    /// Remind again about every meeting; `option` is a raw FullScreenAlertSnooze ("oneMinute", "fiveMinutes",
    /// "untilStart").
    Q_INVOKABLE void snooze(const QString& option);
    /// Exclude the meeting at `index`; `scope` is a raw ExclusionScope. A meeting that does not repeat has no series
    /// to exclude, so it is always excluded as an occurrence.
    Q_INVOKABLE void exclude(int index, const QString& scope);
    /// Close the alert without another choice (the button or Escape).
    Q_INVOKABLE void dismiss();

Q_SIGNALS:
    void increasedContrastChanged();
    void activeChanged();

private:
    const MeetingOccurrence* meetingAt(int index) const;
    std::vector<MeetingIdentity> identities() const;
    void answer(FullScreenAlertAction action);

    const Clock& m_clock;
    ActionHandler m_onAction;
    AlertMeetingListModel m_meetings;
    AlertTexts m_texts;
    QTimer m_timer;
    bool m_increasedContrast = false;
    bool m_answered = false;
};

} // namespace orvane
