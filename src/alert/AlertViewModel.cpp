// SPDX-License-Identifier: GPL-3.0-or-later
#include "alert/AlertViewModel.h"

#include "scheduling/Clock.h"

using namespace Qt::StringLiterals;

namespace orvane {

AlertViewModel::AlertViewModel(std::vector<MeetingOccurrence> meetings, const Clock& clock, ActionHandler onAction,
                               QObject* parent)
    : QObject(parent)
    , m_clock(clock)
    , m_onAction(std::move(onAction))
    , m_meetings(std::move(meetings), clock.now())
{
    m_timer.setInterval(1000);
    // The countdown shows whole seconds; a coarse timer lets the system batch the wake-ups.
    m_timer.setTimerType(Qt::CoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, &AlertViewModel::tick);
}

QString AlertViewModel::headline() const
{
    return AlertTexts::headline(qsizetype(m_meetings.meetings().size()));
}

int AlertViewModel::meetingCount() const
{
    return int(m_meetings.meetings().size());
}

QVariantList AlertViewModel::exclusionOptions() const
{
    QVariantList options;
    for (const AlertExclusionOption& option : AlertExclusionOption::recurringOptions()) {
        options.append(QVariantMap{{u"title"_s, option.title}, {u"scope"_s, rawValue(option.scope)}});
    }
    return options;
}

void AlertViewModel::setIncreasedContrast(bool increased)
{
    if (increased == m_increasedContrast) {
        return;
    }
    m_increasedContrast = increased;
    Q_EMIT increasedContrastChanged();
}

void AlertViewModel::setActive(bool active)
{
    if (active == isActive() || (active && m_answered)) {
        return;
    }
    if (active) {
        tick();
        m_timer.start();
    } else {
        m_timer.stop();
    }
    Q_EMIT activeChanged();
}

void AlertViewModel::tick()
{
    m_meetings.update(m_clock.now());
}

void AlertViewModel::join(int index)
{
    const MeetingOccurrence* meeting = meetingAt(index);
    if (meeting == nullptr || !meeting->meetingURL.has_value() || !meeting->meetingURL->isValid()) {
        return;
    }
    answer({FullScreenAlertAction::Join{*meeting}});
}

void AlertViewModel::snooze(const QString& option)
{
    const std::optional<FullScreenAlertSnooze> snooze = fromRawValue<FullScreenAlertSnooze>(option);
    if (!snooze) {
        qWarning("Full-screen alert: unknown snooze option \"%ls\"", qUtf16Printable(option));
        return;
    }
    answer({FullScreenAlertAction::Snooze{identities(), *snooze}});
}

void AlertViewModel::exclude(int index, const QString& scope)
{
    const MeetingOccurrence* meeting = meetingAt(index);
    const std::optional<ExclusionScope> chosen = fromRawValue<ExclusionScope>(scope);
    if (meeting == nullptr || !chosen) {
        qWarning("Full-screen alert: cannot exclude meeting %d with scope \"%ls\"", index, qUtf16Printable(scope));
        return;
    }
    answer({FullScreenAlertAction::Exclude{*meeting, meeting->isRecurring ? *chosen : ExclusionScope::occurrence}});
}

void AlertViewModel::dismiss()
{
    answer({FullScreenAlertAction::Dismiss{identities()}});
}

const MeetingOccurrence* AlertViewModel::meetingAt(int index) const
{
    const std::vector<MeetingOccurrence>& meetings = m_meetings.meetings();
    return index >= 0 && std::size_t(index) < meetings.size() ? &meetings[std::size_t(index)] : nullptr;
}

std::vector<MeetingIdentity> AlertViewModel::identities() const
{
    std::vector<MeetingIdentity> result;
    result.reserve(m_meetings.meetings().size());
    for (const MeetingOccurrence& meeting : m_meetings.meetings()) {
        result.push_back(meeting.identity);
    }
    return result;
}

void AlertViewModel::answer(FullScreenAlertAction action)
{
    if (m_answered) {
        return;
    }
    m_answered = true;
    setActive(false);
    if (m_onAction) {
        m_onAction(std::move(action));
    }
}

} // namespace orvane
