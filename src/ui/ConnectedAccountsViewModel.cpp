// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/ConnectedAccountsViewModel.h"

#include "calendars/CloudAccountCoordinator.h"
#include "cloud/RemoteCalendarClient.h"
#include "model/AppModel.h"

#include <QLocale>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

std::optional<RemoteCalendarProviderKind> providerNamed(const QString& raw)
{
    for (const auto provider : {RemoteCalendarProviderKind::google, RemoteCalendarProviderKind::microsoft}) {
        if (rawValue(provider) == raw) {
            return provider;
        }
    }
    return std::nullopt;
}

QString accountIDText(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

AppModelConnectedAccountsModel::AppModelConnectedAccountsModel(AppModel& model, QObject* parent)
    : ConnectedAccountsModel(parent)
    , m_model(model)
{
    connect(&m_model, &AppModel::changed, this, &ConnectedAccountsModel::changed);
}

bool AppModelConnectedAccountsModel::supportsRemoteAccounts() const
{
    return m_model.supportsRemoteAccounts();
}

std::vector<RemoteCalendarAccountMetadata> AppModelConnectedAccountsModel::remoteAccounts() const
{
    return m_model.remoteAccounts();
}

QSet<QUuid> AppModelConnectedAccountsModel::usableRemoteAccountIDs() const
{
    return m_model.usableRemoteAccountIDs();
}

std::optional<RemoteCalendarProviderKind> AppModelConnectedAccountsModel::connectingProvider() const
{
    return m_model.isConnectingRemoteProvider();
}

bool AppModelConnectedAccountsModel::isMutatingRemoteAccounts() const
{
    return m_model.isMutatingRemoteAccounts();
}

std::vector<CalendarSourceHealthIssue> AppModelConnectedAccountsModel::calendarSourceHealthIssues() const
{
    return m_model.calendarSourceHealthIssues();
}

std::optional<QString> AppModelConnectedAccountsModel::oauthClientID(RemoteCalendarProviderKind provider) const
{
    return m_model.oauthClientID(provider);
}

bool AppModelConnectedAccountsModel::hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const
{
    return m_model.hasPreconfiguredOAuthClientID(provider);
}

void AppModelConnectedAccountsModel::connectAccount(RemoteCalendarProviderKind provider,
                                                    std::optional<QUuid> reconnecting)
{
    // Runs on by itself; the model guards against being gone when the sign-in ends.
    m_model.connectRemoteAccount(provider, reconnecting);
}

void AppModelConnectedAccountsModel::cancelConnection()
{
    m_model.cancelRemoteConnection();
}

void AppModelConnectedAccountsModel::disconnectAccount(const QUuid& accountID)
{
    m_model.disconnectRemoteAccount(accountID);
}

void AppModelConnectedAccountsModel::setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID)
{
    m_model.setOAuthClientID(provider, clientID);
}

ConnectedAccountsViewModel::ConnectedAccountsViewModel(ConnectedAccountsModel& model, QObject* parent)
    : QObject(parent)
    , m_model(model)
{
    connect(&m_model, &ConnectedAccountsModel::changed, this, &ConnectedAccountsViewModel::changed);
}

QString ConnectedAccountsViewModel::providerTitle(RemoteCalendarProviderKind provider)
{
    return provider == RemoteCalendarProviderKind::google ? u"Google Calendar"_s : u"Outlook"_s;
}

QVariantMap ConnectedAccountsViewModel::texts() const
{
    return {
        {u"intro"_s, u"Read Google Calendar and Outlook (Microsoft 365) calendars directly, without adding them to "
                     u"the desktop's calendar. Connections are read-only: Orvane signs in through your browser and "
                     u"keeps only a refresh token, in the system keyring."_s},
        {u"clientIDLabel"_s, u"OAuth client ID"_s},
        {u"clientIDHint"_s, u"The client ID of the desktop app you registered with the provider."_s},
        {u"noAccounts"_s, u"No accounts connected."_s},
        {u"reconnect"_s, u"Reconnect…"_s},
        {u"disconnect"_s, u"Disconnect…"_s},
        {u"cancel"_s, u"Cancel"_s},
    };
}

QVariantList ConnectedAccountsViewModel::providerList() const
{
    QVariantList providers;
    const bool busy = isBusy();
    for (const auto provider : {RemoteCalendarProviderKind::google, RemoteCalendarProviderKind::microsoft}) {
        const auto clientID = m_model.oauthClientID(provider);
        providers.append(QVariantMap{
            {u"provider"_s, rawValue(provider)},
            {u"title"_s, providerTitle(provider)},
            {u"connectLabel"_s, provider == RemoteCalendarProviderKind::google ? u"Connect Google…"_s
                                                                              : u"Connect Outlook…"_s},
            {u"clientID"_s, clientID.value_or(QString())},
            {u"clientIDEditable"_s, !m_model.hasPreconfiguredOAuthClientID(provider)},
            {u"canConnect"_s, !busy && clientID.has_value()},
        });
    }
    return providers;
}

QVariantList ConnectedAccountsViewModel::accountList() const
{
    const QSet<QUuid> usable = m_model.usableRemoteAccountIDs();
    const auto issues = m_model.calendarSourceHealthIssues();
    QVariantList accounts;
    for (const auto& account : m_model.remoteAccounts()) {
        const QString id = accountIDText(account.id);
        std::optional<QString> problem;
        QStringList calendarProblems;
        for (const auto& issue : issues) {
            const auto* remote = std::get_if<CalendarSourceHealthIssue::Remote>(&issue.source);
            if (!remote || remote->accountID.compare(id, Qt::CaseInsensitive) != 0) {
                continue;
            }
            if (issue.calendar) {
                // The account answers; only this calendar of it could not be read.
                calendarProblems.append(u"“%1” could not be read: %2"_s.arg(issue.calendar->title, issue.message));
            } else {
                problem = issue.message;
            }
        }
        const bool needsReconnection = !usable.contains(account.id);
        QString state;
        if (needsReconnection) {
            state = problem ? *problem : u"Sign in again to keep reading this account's calendars."_s;
        } else if (problem) {
            state = u"Not reachable right now: "_s + *problem;
        } else if (!calendarProblems.isEmpty()) {
            state = calendarProblems.join(u'\n');
        } else {
            state = u"Connected since %1"_s.arg(
                QLocale().toString(account.connectedAt.toDateTime().toLocalTime().date(), QLocale::ShortFormat));
        }
        accounts.append(QVariantMap{
            {u"id"_s, id},
            {u"name"_s, account.displayName},
            {u"address"_s, account.emailAddress.value_or(QString())},
            {u"provider"_s, providerTitle(account.provider)},
            {u"state"_s, state},
            {u"stateIsProblem"_s, needsReconnection || problem.has_value() || !calendarProblems.isEmpty()},
            {u"needsReconnection"_s, needsReconnection},
        });
    }
    return accounts;
}

bool ConnectedAccountsViewModel::isBusy() const
{
    return m_model.connectingProvider().has_value() || m_model.isMutatingRemoteAccounts();
}

QString ConnectedAccountsViewModel::progressText() const
{
    if (const auto provider = m_model.connectingProvider()) {
        return u"Waiting for the %1 sign-in in your browser…"_s.arg(providerTitle(*provider));
    }
    if (m_model.isMutatingRemoteAccounts()) {
        return u"Updating connected accounts…"_s;
    }
    return {};
}

void ConnectedAccountsViewModel::connectProvider(const QString& provider)
{
    if (const auto kind = providerNamed(provider); kind && !isBusy()) {
        m_model.connectAccount(*kind, std::nullopt);
    }
}

void ConnectedAccountsViewModel::cancel()
{
    m_model.cancelConnection();
}

void ConnectedAccountsViewModel::reconnect(const QString& accountID)
{
    if (const auto found = account(accountID); found && !isBusy()) {
        m_model.connectAccount(found->provider, found->id);
    }
}

void ConnectedAccountsViewModel::disconnect(const QString& accountID)
{
    if (const auto found = account(accountID); found && !isBusy()) {
        m_model.disconnectAccount(found->id);
    }
}

void ConnectedAccountsViewModel::setClientID(const QString& provider, const QString& clientID)
{
    const auto kind = providerNamed(provider);
    if (kind && !m_model.hasPreconfiguredOAuthClientID(*kind) && m_model.oauthClientID(*kind) != clientID.trimmed()) {
        m_model.setOAuthClientID(*kind, clientID);
    }
}

QVariantMap ConnectedAccountsViewModel::disconnectConfirmation(const QString& accountID) const
{
    const auto found = account(accountID);
    if (!found) {
        return {};
    }
    return {
        {u"title"_s, u"Disconnect %1?"_s.arg(remoteSourceTitle(*found))},
        {u"message"_s, u"Orvane stops reading this account's calendars and forgets its sign-in, its calendar "
                       u"selection, exclusions and reminder history. You can connect it again at any time."_s},
        {u"confirm"_s, u"Disconnect"_s},
    };
}

std::optional<RemoteCalendarAccountMetadata> ConnectedAccountsViewModel::account(const QString& accountID) const
{
    for (const auto& candidate : m_model.remoteAccounts()) {
        if (accountIDText(candidate.id) == accountID.toUpper()) {
            return candidate;
        }
    }
    return std::nullopt;
}

} // namespace orvane
