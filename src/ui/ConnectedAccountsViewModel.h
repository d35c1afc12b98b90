// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "calendars/CalendarSourceHealthIssue.h"
#include "cloud/RemoteCalendarAccountMetadata.h"

#include <QObject>
#include <QSet>
#include <QUuid>
#include <QVariantList>
#include <QVariantMap>

#include <optional>
#include <vector>

namespace orvane {

class AppModel;

/// What the connected-accounts controls need of the application model. `changed()` follows any of it.
class ConnectedAccountsModel : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    virtual bool supportsRemoteAccounts() const = 0;
    virtual std::vector<RemoteCalendarAccountMetadata> remoteAccounts() const = 0;
    virtual QSet<QUuid> usableRemoteAccountIDs() const = 0;
    virtual std::optional<RemoteCalendarProviderKind> connectingProvider() const = 0;
    virtual bool isMutatingRemoteAccounts() const = 0;
    virtual std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const = 0;
    virtual std::optional<QString> oauthClientID(RemoteCalendarProviderKind provider) const = 0;
    virtual bool hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const = 0;

    /// Each runs on by itself; its outcome shows through the model's state and error text.
    virtual void connectAccount(RemoteCalendarProviderKind provider, std::optional<QUuid> reconnecting) = 0;
    virtual void cancelConnection() = 0;
    virtual void disconnectAccount(const QUuid& accountID) = 0;
    virtual void setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID) = 0;

Q_SIGNALS:
    void changed();
};

/// The application model behind the connected-accounts controls.
class AppModelConnectedAccountsModel final : public ConnectedAccountsModel {
public:
    explicit AppModelConnectedAccountsModel(AppModel& model, QObject* parent = nullptr);

    bool supportsRemoteAccounts() const override;
    std::vector<RemoteCalendarAccountMetadata> remoteAccounts() const override;
    QSet<QUuid> usableRemoteAccountIDs() const override;
    std::optional<RemoteCalendarProviderKind> connectingProvider() const override;
    bool isMutatingRemoteAccounts() const override;
    std::vector<CalendarSourceHealthIssue> calendarSourceHealthIssues() const override;
    std::optional<QString> oauthClientID(RemoteCalendarProviderKind provider) const override;
    bool hasPreconfiguredOAuthClientID(RemoteCalendarProviderKind provider) const override;
    void connectAccount(RemoteCalendarProviderKind provider, std::optional<QUuid> reconnecting) override;
    void cancelConnection() override;
    void disconnectAccount(const QUuid& accountID) override;
    void setOAuthClientID(RemoteCalendarProviderKind provider, const QString& clientID) override;

private:
    AppModel& m_model;
};

/// The connected accounts as the settings window (and onboarding's connect sheet) show them: a connect control per
/// provider with its OAuth client ID entry (hidden when the build fixes the client), each account with its name,
/// address and state, and reconnect and disconnect.
class ConnectedAccountsViewModel final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantMap texts READ texts CONSTANT)
    Q_PROPERTY(bool supported READ isSupported NOTIFY changed)
    Q_PROPERTY(QVariantList providers READ providerList NOTIFY changed)
    Q_PROPERTY(QVariantList accounts READ accountList NOTIFY changed)
    Q_PROPERTY(bool busy READ isBusy NOTIFY changed)
    Q_PROPERTY(QString progressText READ progressText NOTIFY changed)

public:
    explicit ConnectedAccountsViewModel(ConnectedAccountsModel& model, QObject* parent = nullptr);

    /// A provider as the user knows it ("Google Calendar", "Outlook").
    static QString providerTitle(RemoteCalendarProviderKind provider);

    QVariantMap texts() const;
    bool isSupported() const { return m_model.supportsRemoteAccounts(); }
    /// Per provider: provider (raw value), title, connectLabel, clientID, clientIDEditable, canConnect.
    QVariantList providerList() const;
    /// Per account: id, name, address, provider (title), state, stateIsProblem, needsReconnection.
    QVariantList accountList() const;
    bool isBusy() const;
    /// What is going on right now ("Waiting for Google sign-in in your browser…"); empty when nothing is.
    QString progressText() const;

    Q_INVOKABLE void connectProvider(const QString& provider);
    Q_INVOKABLE void cancel();
    Q_INVOKABLE void reconnect(const QString& accountID);
    Q_INVOKABLE void disconnect(const QString& accountID);
    Q_INVOKABLE void setClientID(const QString& provider, const QString& clientID);
    /// The confirmation before disconnecting an account: title and message.
    Q_INVOKABLE QVariantMap disconnectConfirmation(const QString& accountID) const;

Q_SIGNALS:
    void changed();

private:
    std::optional<RemoteCalendarAccountMetadata> account(const QString& accountID) const;

    ConnectedAccountsModel& m_model;
};

} // namespace orvane
