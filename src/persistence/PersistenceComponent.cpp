// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/PersistenceComponent.h"

using namespace Qt::StringLiterals;

namespace orvane {

QString title(PersistenceComponent component)
{
    switch (component) {
    case PersistenceComponent::settings:
        return u"Settings"_s;
    case PersistenceComponent::exclusions:
        return u"Meeting exclusions"_s;
    case PersistenceComponent::delivery:
        return u"Reminder history and snoozes"_s;
    }
    return {};
}

QString recordKey(PersistenceComponent component)
{
    switch (component) {
    case PersistenceComponent::settings:
        return u"Orvane.settings"_s;
    case PersistenceComponent::exclusions:
        return u"Orvane.exclusions"_s;
    case PersistenceComponent::delivery:
        return u"Orvane.delivery"_s;
    }
    return {};
}

QString resetConsequence(PersistenceComponent component)
{
    switch (component) {
    case PersistenceComponent::settings:
        return u"Resetting restores default alert preferences and calendar selection."_s;
    case PersistenceComponent::exclusions:
        return u"Resetting removes every exclusion, so previously excluded meetings may alert."_s;
    case PersistenceComponent::delivery:
        return u"Resetting removes snoozes and reminder history, so reminders may repeat."_s;
    }
    return {};
}

QString resetConfirmation(PersistenceComponent component)
{
    return resetConsequence(component) + u" This overwrites only the unreadable "_s + title(component).toLower() +
           u" data and cannot be undone."_s;
}

std::size_t hash(const PersistenceIssue& issue)
{
    return hashFields(issue.component, issue.failure);
}

} // namespace orvane
