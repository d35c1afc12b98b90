// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/EligibilityMode.h"
#include "domain/ExclusionScope.h"
#include "ui/WindowCoordinating.h"

#include <QString>
#include <QVariantMap>

namespace orvane {

/// Every text the settings window shows, in one place. The stored-data review takes its heading, explanation and
/// reset confirmations from the persistence subsystem, which owns them.
namespace SettingsTexts {

QString windowTitle();
/// The sidebar's name for `section`.
QString sectionTitle(WindowCoordinating::SettingsSection section);
/// "At the start time", "1 minute before the start", "5 minutes before the start".
QString leadTimeSummary(int minutes);
/// "All timed events", "Meeting-like only".
QString eligibilityTitle(EligibilityMode mode);
/// The alert's own wording: "Only this occurrence", "Entire series".
QString exclusionScopeTitle(ExclusionScope scope);
/// What a source with a problem asks of the user: sign in again, or refresh.
QString sourceHealthAction(bool requiresReauthentication);
/// "Reset Meeting exclusions?"
QString resetTitle(const QString& componentTitle);

/// The fixed texts, keyed by the name the QML reads them under.
QVariantMap texts();

} // namespace SettingsTexts

} // namespace orvane
