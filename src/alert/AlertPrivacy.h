// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

namespace orvane {

/// Whether alerts must keep their meetings' details to themselves now (the screen is being shared, so everyone
/// watching would read them). Alerts already on screen follow changes at once. Main thread only.
class AlertPrivacy final : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    bool concealsDetails() const { return m_concealsDetails; }
    void setConcealsDetails(bool conceals)
    {
        if (conceals != m_concealsDetails) {
            m_concealsDetails = conceals;
            Q_EMIT concealsDetailsChanged(conceals);
        }
    }

Q_SIGNALS:
    void concealsDetailsChanged(bool conceals);

private:
    bool m_concealsDetails = false;
};

} // namespace orvane
