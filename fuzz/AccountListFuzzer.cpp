// SPDX-License-Identifier: GPL-3.0-or-later
// The stored account list may be damaged or edited by hand. Loading it either yields a valid list, which stores and
// reloads unchanged, or throws the account store's own error; nothing else may happen.
#include "cloud/UserDefaultsRemoteCalendarAccountStore.h"
#include "persistence/PersistenceStoreError.h"

#include <cstdint>
#include <cstdlib>
#include <map>

namespace {

class MemoryDefaults final : public orvane::DefaultsDatabase {
public:
    QVariant object(const QString& key) const override
    {
        const auto found = values.find(key);
        return found == values.end() ? QVariant() : QVariant(found->second);
    }
    void setObjects(const std::vector<std::pair<QString, QByteArray>>& newValues) override
    {
        for (const auto& [key, value] : newValues) {
            values[key] = value;
        }
    }
    std::map<QString, QByteArray> values;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    MemoryDefaults defaults;
    defaults.values[orvane::UserDefaultsRemoteCalendarAccountStore::storageKey] =
        QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    orvane::UserDefaultsRemoteCalendarAccountStore store(defaults);
    std::vector<orvane::RemoteCalendarAccountMetadata> accounts;
    try {
        accounts = store.loadAccounts();
    } catch (const orvane::RemoteCalendarAccountStoreError&) {
        return 0;
    }
    try {
        store.saveAccounts(accounts);
    } catch (const orvane::PersistenceStoreError&) {
        // A value that decodes but cannot be encoded again (a date out of range, say) is refused, not stored.
        return 0;
    }
    if (store.loadAccounts() != accounts) {
        std::abort();
    }
    return 0;
}
