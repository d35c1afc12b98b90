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

QString unreadableDatabaseTitle()
{
    return u"Settings file"_s;
}

QString unreadableDatabaseExplanation(const QString& location)
{
    return u"Orvane cannot read its settings file (%1), so its alert preferences, exclusions and reminder history "
           u"cannot be used. If its permissions changed, fix them: Orvane reads it again at once. Otherwise reset it."_s
               .arg(location);
}

QString unreadableDatabaseResetConfirmation()
{
    return u"Resetting moves the unreadable file aside, beside where it is now, and starts a fresh one: default alert "
           u"preferences and calendar selection, no exclusions, no reminder history and no connected accounts. The "
           u"old file is kept, not deleted."_s;
}

std::size_t hash(const PersistenceIssue& issue)
{
    return hashFields(issue.component, issue.failure);
}

} // namespace orvane
