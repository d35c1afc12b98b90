// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "alert/linux/KeyboardIdleWatch.h"

#include <QDBusConnection>
#include <QTimer>

#include <cstdint>

namespace orvane {

/// The seat's idleness on GNOME, from Mutter's idle monitor on the session bus: an idle watch that fires once input
/// has paused for idleThreshold (at once when it already has), and one-shot watches for the next input. Mutter keeps
/// idle watches silent while an inhibitor exists, but still reports input, so the pause is also timed here from the
/// last input reported: a user who keeps typing never loses the keyboard to the alert, and one who stops gets the
/// alert a second later, inhibitor or not. Every call is asynchronous.
class MutterKeyboardIdleWatch final : public KeyboardIdleWatch {
    Q_OBJECT

public:
    explicit MutterKeyboardIdleWatch(QDBusConnection bus, QObject* parent = nullptr);
    ~MutterKeyboardIdleWatch() override;

protected:
    bool canWatch() const override { return m_available; }
    bool seesEveryInput() const override { return true; }
    bool isWatching() const override { return m_watching; }
    void startWatching() override;
    void stopWatching() override;

private Q_SLOTS:
    void watchFired(uint id);

private:
    /// Adds a watch; its identifier lands in `slot` unless the wait ended meanwhile.
    void addWatch(const QString& method, const QVariantList& arguments, std::uint32_t& slot);
    void removeWatch(std::uint32_t& slot);

    QDBusConnection m_bus;
    bool m_available = true;
    bool m_watching = false;
    /// Tells replies to an earlier wait apart.
    std::uint64_t m_generation = 0;
    std::uint32_t m_idleWatch = 0;
    std::uint32_t m_activeWatch = 0;
    /// Runs from the last input reported for idleThreshold.
    QTimer m_pause;
};

} // namespace orvane
