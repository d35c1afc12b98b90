// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/SettingsDefaultsDatabase.h"

#include "persistence/PersistenceStoreError.h"

#include <QFileInfo>
#include <QLockFile>

using namespace Qt::StringLiterals;

namespace orvane {

SettingsDefaultsDatabase::SettingsDefaultsDatabase()
    : SettingsDefaultsDatabase(
          QSettings(QSettings::NativeFormat, QSettings::UserScope, u"velmont.com"_s, u"Orvane"_s).fileName())
{
}

SettingsDefaultsDatabase::SettingsDefaultsDatabase(QString fileName, QSettings::Format format)
    : m_fileName(std::move(fileName))
    , m_format(format)
{
}

void SettingsDefaultsDatabase::removeOrphanedLock() const
{
    const QString lockPath = m_fileName + u".lock"_s;
    if (!QFileInfo::exists(lockPath)) {
        return;
    }
    QLockFile lock(lockPath);
    qint64 pid = 0;
    QString hostname, application;
    if (!lock.getLockInfo(&pid, &hostname, &application)) {
        lock.removeStaleLockFile();
    }
}

QVariant SettingsDefaultsDatabase::object(const QString& key) const
{
    const QSettings settings(m_fileName, m_format);
    return settings.value(key);
}

void SettingsDefaultsDatabase::setObjects(const std::vector<std::pair<QString, QByteArray>>& values)
{
    std::vector<std::pair<QString, QVariant>> variants;
    variants.reserve(values.size());
    for (const auto& [key, value] : values) {
        variants.emplace_back(key, value);
    }
    write(variants);
}

void SettingsDefaultsDatabase::setString(const QString& key, const std::optional<QString>& value)
{
    write({{key, value ? QVariant(*value) : QVariant()}});
}

void SettingsDefaultsDatabase::write(const std::vector<std::pair<QString, QVariant>>& values)
{
    QSettings settings(m_fileName, m_format);
    settings.setAtomicSyncRequired(true);
    // A file Qt could not read or parse would be rewritten with only what it understood: never write over it.
    if (settings.status() != QSettings::NoError) {
        throw PersistenceStoreError(PersistenceStoreError::WriteFailed{});
    }

    std::vector<std::pair<QString, QVariant>> previous;
    previous.reserve(values.size());
    for (const auto& [key, value] : values) {
        previous.emplace_back(key, settings.value(key));
        if (value.isValid()) {
            settings.setValue(key, value);
        } else {
            settings.remove(key);
        }
    }
    settings.sync();
    if (settings.status() == QSettings::NoError) {
        return;
    }

    // Qt keeps unwritten changes in a cache shared by every QSettings on this file and would write them with a
    // later, unrelated change. Put the previous values back so that memory and disk agree again.
    for (const auto& [key, value] : previous) {
        if (value.isValid()) {
            settings.setValue(key, value);
        } else {
            settings.remove(key);
        }
    }
    throw PersistenceStoreError(PersistenceStoreError::WriteFailed{});
}

} // namespace orvane
