// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "oauth/OAuthKeychainItemAccessing.h"

#include <map>
#include <mutex>
#include <tuple>
#include <utility>

/// Secret items in memory, keyed by form and account, for the statuses a real keyring cannot be made to return on
/// demand. A status set in `failures` for an operation and form is returned instead of doing it.
class FakeKeychainItemAccess final : public orvane::OAuthKeychainItemAccessing {
public:
    enum class Operation { copy, update, add, remove };
    using Form = orvane::OAuthKeychainQuery::Form;

    std::map<std::pair<Form, QString>, QByteArray> items;
    std::map<std::pair<Operation, Form>, std::int32_t> failures;

    orvane::OAuthKeychainCopyResult copyMatching(const orvane::OAuthKeychainQuery& query) override
    {
        const std::lock_guard lock(m_mutex);
        if (const auto status = failure(Operation::copy, query)) {
            return {.status = status};
        }
        const auto item = items.find({query.form, query.account});
        if (item == items.end()) {
            return {.status = orvane::OAuthKeychainStatus::itemNotFound};
        }
        return {.status = orvane::OAuthKeychainStatus::success, .data = item->second};
    }

    std::int32_t update(const orvane::OAuthKeychainQuery& query, const QByteArray& data) override
    {
        const std::lock_guard lock(m_mutex);
        if (const auto status = failure(Operation::update, query)) {
            return status;
        }
        const auto item = items.find({query.form, query.account});
        if (item == items.end()) {
            return orvane::OAuthKeychainStatus::itemNotFound;
        }
        item->second = data;
        return orvane::OAuthKeychainStatus::success;
    }

    std::int32_t add(const orvane::OAuthKeychainQuery& query, const QByteArray& data) override
    {
        const std::lock_guard lock(m_mutex);
        if (const auto status = failure(Operation::add, query)) {
            return status;
        }
        const bool added = items.emplace(std::pair{query.form, query.account}, data).second;
        return added ? orvane::OAuthKeychainStatus::success : orvane::OAuthKeychainStatus::duplicateItem;
    }

    std::int32_t remove(const orvane::OAuthKeychainQuery& query) override
    {
        const std::lock_guard lock(m_mutex);
        if (const auto status = failure(Operation::remove, query)) {
            return status;
        }
        return items.erase({query.form, query.account}) == 1 ? orvane::OAuthKeychainStatus::success
                                                             : orvane::OAuthKeychainStatus::itemNotFound;
    }

private:
    std::int32_t failure(Operation operation, const orvane::OAuthKeychainQuery& query) const
    {
        const auto found = failures.find({operation, query.form});
        return found == failures.end() ? orvane::OAuthKeychainStatus::success : found->second;
    }

    std::mutex m_mutex;
};
