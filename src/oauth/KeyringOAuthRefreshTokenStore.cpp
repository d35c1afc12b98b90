// SPDX-License-Identifier: GPL-3.0-or-later
#include "oauth/KeyringOAuthRefreshTokenStore.h"

#include "oauth/OAuthError.h"

#include <QFuture>
#include <QPromise>
#include <QStringDecoder>
#include <qcoro/qcorofuture.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace orvane {

/// The store's thread and its queue of jobs. The thread holds the worker too, so that it can finish the queue after
/// the store is gone; it ends once the store has closed the queue and the queue is empty.
class KeyringOAuthRefreshTokenStore::Worker : public std::enable_shared_from_this<Worker> {
public:
    using Job = std::function<void(OAuthKeychainItemAccessing&)>;

    explicit Worker(std::shared_ptr<OAuthKeychainItemAccessing> access)
        : m_access(std::move(access))
    {
    }

    void post(Job job)
    {
        bool start = false;
        {
            const std::lock_guard lock(m_mutex);
            m_jobs.push_back(std::move(job));
            start = !std::exchange(m_started, true);
        }
        if (start) {
            // Started on first use: most sessions never touch the keyring. Detached: joining would make the store's
            // destructor wait for a keyring prompt.
            std::thread([self = shared_from_this()] { self->run(); }).detach();
        }
        m_wake.notify_one();
    }

    void close()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_wake.notify_one();
    }

private:
    void run()
    {
        for (;;) {
            Job job;
            {
                std::unique_lock lock(m_mutex);
                m_wake.wait(lock, [this] { return m_closed || !m_jobs.empty(); });
                if (m_jobs.empty()) {
                    return;
                }
                job = std::move(m_jobs.front());
                m_jobs.pop_front();
            }
            job(*m_access);
        }
    }

    const std::shared_ptr<OAuthKeychainItemAccessing> m_access;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Job> m_jobs;
    bool m_closed = false;
    bool m_started = false;
};

namespace {

using Form = OAuthKeychainQuery::Form;

OAuthKeychainQuery query(Form form, const QString& account)
{
    return {.form = form, .service = KeyringOAuthRefreshTokenStore::keychainService, .account = account};
}

[[noreturn]] void throwStatus(std::int32_t status)
{
    throw OAuthError(OAuthError::Keychain{status});
}

/// The token in an item's data, which must be UTF-8 text.
QString decodedToken(const QByteArray& data)
{
    // Exactly the stored characters: a leading byte order mark stays part of the token. Stateless, so that a
    // sequence cut off at the end is an error rather than input kept for a next chunk that never comes.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString token = decoder.decode(data);
    if (decoder.hasError()) {
        throwStatus(OAuthKeychainStatus::undecodableData);
    }
    return token;
}

/// Deletes the item `query` names; having none to delete is fine.
void removeIfPresent(OAuthKeychainItemAccessing& access, const OAuthKeychainQuery& query)
{
    const std::int32_t status = access.remove(query);
    if (status != OAuthKeychainStatus::success && status != OAuthKeychainStatus::itemNotFound) {
        throwStatus(status);
    }
}

void save(OAuthKeychainItemAccessing& access, const QString& token, const QString& account)
{
    const QByteArray data = token.toUtf8();
    const OAuthKeychainQuery current = query(Form::current, account);
    std::int32_t status = access.update(current, data);
    if (status == OAuthKeychainStatus::itemNotFound) {
        status = access.add(current, data);
    }
    if (status != OAuthKeychainStatus::success) {
        throwStatus(status);
    }
    removeIfPresent(access, query(Form::legacy, account));
}

std::optional<QString> read(OAuthKeychainItemAccessing& access, const QString& account)
{
    const OAuthKeychainCopyResult current = access.copyMatching(query(Form::current, account));
    if (current.status == OAuthKeychainStatus::success) {
        return decodedToken(current.data);
    }
    if (current.status != OAuthKeychainStatus::itemNotFound) {
        throwStatus(current.status);
    }
    const OAuthKeychainCopyResult legacy = access.copyMatching(query(Form::legacy, account));
    if (legacy.status == OAuthKeychainStatus::itemNotFound) {
        return std::nullopt;
    }
    if (legacy.status != OAuthKeychainStatus::success) {
        throwStatus(legacy.status);
    }
    QString token = decodedToken(legacy.data);
    // Writing the current form first means a failure at any step leaves the token readable.
    save(access, token, account);
    return token;
}

} // namespace

KeyringOAuthRefreshTokenStore::KeyringOAuthRefreshTokenStore(std::shared_ptr<OAuthKeychainItemAccessing> access)
    : m_worker(std::make_shared<Worker>(std::move(access)))
{
}

KeyringOAuthRefreshTokenStore::~KeyringOAuthRefreshTokenStore()
{
    m_worker->close();
}

template <class T>
QCoro::Task<T> KeyringOAuthRefreshTokenStore::onWorker(std::function<T(OAuthKeychainItemAccessing&)> work)
{
    auto promise = std::make_shared<QPromise<T>>();
    QFuture<T> future = promise->future();
    promise->start();
    m_worker->post([promise, work = std::move(work)](OAuthKeychainItemAccessing& access) {
        try {
            promise->addResult(work(access));
        } catch (...) {
            promise->setException(std::current_exception());
        }
        promise->finish();
    });
    // Only locals from here on: the store may be destroyed while this waits.
    co_await future;
    co_return future.result();
}

QCoro::Task<std::optional<QString>> KeyringOAuthRefreshTokenStore::readRefreshToken(QString account)
{
    auto reading = onWorker<std::optional<QString>>(
        [account](OAuthKeychainItemAccessing& access) { return read(access, account); });
    co_return co_await std::move(reading);
}

QCoro::Task<> KeyringOAuthRefreshTokenStore::saveRefreshToken(QString token, QString account)
{
    auto saving = onWorker<bool>([token, account](OAuthKeychainItemAccessing& access) {
        save(access, token, account);
        return true;
    });
    co_await std::move(saving);
}

QCoro::Task<> KeyringOAuthRefreshTokenStore::deleteRefreshToken(QString account)
{
    auto deleting = onWorker<bool>([account](OAuthKeychainItemAccessing& access) {
        removeIfPresent(access, query(Form::current, account));
        removeIfPresent(access, query(Form::legacy, account));
        return true;
    });
    co_await std::move(deleting);
}

} // namespace orvane
