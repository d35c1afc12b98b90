// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/CalendarAuthorizationState.h"
#include "domain/CalendarSourceKind.h"

#include <QString>
#include <QVariantMap>

#include <optional>
#include <utility>
#include <vector>

namespace orvane {

/// Every text the onboarding and about windows show, in one place. Where a text names the other platform's
/// services, the Linux text stands here and the original sits beside it in a comment.
namespace WindowTexts {

/// The onboarding steps in the order they are shown; the first three are counted in the header.
enum class OnboardingStep {
    welcome,
    access,
    calendars,
    complete,
};

QString onboardingWindowTitle();
QString aboutWindowTitle();
QString productName();

/// "Welcome", "Calendar access", "Choose calendars", "Setup complete".
QString stepTitle(OnboardingStep step);
/// "Step 2 of 3"; empty for the uncounted last step.
QString stepCounter(OnboardingStep step);
/// The access step's explanation for the desktop calendar permission `state`.
QString accessExplanation(CalendarAuthorizationState state);
/// Whether `state` is a problem the user must fix before calendars can be chosen.
bool isAccessProblem(CalendarAuthorizationState state);
/// "2 of 5 selected".
QString selectionCounter(qsizetype selected, qsizetype total);
/// The heading of a source's calendars; local calendars all go under one heading.
QString calendarGroupTitle(CalendarSourceKind kind, const QString& sourceTitle);
/// "You’re all set", or "Calendar access restored" when onboarding was reopened to restore access.
QString completeTitle(bool restoringAccess);
/// "Version 0.1.0 (1)"; "Unknown" stands in for a missing part.
QString versionLine(const std::optional<QString>& shortVersion, const std::optional<QString>& buildNumber);

/// The about window's links, in order: each title with the property-list key of its address.
std::vector<std::pair<QString, QString>> aboutLinks();

/// The fixed texts of onboarding, keyed by the name the QML reads them under.
QVariantMap onboardingTexts();
/// The fixed texts of the about window, keyed likewise.
QVariantMap aboutTexts();

} // namespace WindowTexts

} // namespace orvane
