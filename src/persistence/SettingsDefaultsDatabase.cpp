// SPDX-License-Identifier: GPL-3.0-or-later
#include "persistence/SettingsDefaultsDatabase.h"

#include "persistence/PersistenceStoreError.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QLockFile>
#include <QTemporaryFile>

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

SettingsDefaultsDatabase::~SettingsDefaultsDatabase() = default;

std::optional<SettingsDefaultsDatabase::FileState> SettingsDefaultsDatabase::fileState(const QString& fileName)
{
    // The status change time moves with every write, change of mode and rename onto the name.
    const QFileInfo info(fileName);
    if (!info.isFile()) {
        return std::nullopt;
    }
    return FileState{.size = info.size(),
                     .permissions = int(info.permissions()),
                     .modified = info.lastModified().toMSecsSinceEpoch(),
                     .changed = info.metadataChangeTime().toMSecsSinceEpoch()};
}

bool SettingsDefaultsDatabase::isReadable() const
{
    const auto state = fileState(m_fileName);
    if (state && m_judged && m_judged->first == *state) {
        return m_judged->second;
    }
    const auto verdict = judgeReadable();
    if (state && verdict) {
        m_judged = std::pair(*state, *verdict);
    }
    return verdict.value_or(true);
}

std::optional<bool> SettingsDefaultsDatabase::judgeReadable() const
{
    const QFileInfo info(m_fileName);
    if (!info.exists() && !info.isSymLink()) {
        return true; // nothing stored yet
    }
    QFile file(m_fileName);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return false;
    }
    // Qt's parser judges a private copy: Qt reports a parse failure only the first time a process reads a file (it
    // keeps what it parsed), and reports its own pending writes that fail (a full disk) as access errors.
    QTemporaryFile copy(QDir::tempPath() + u"/orvane-settings-check-XXXXXX"_s);
    if (!copy.open() || copy.write(bytes) != bytes.size() || !copy.flush()) {
        return std::nullopt; // the file itself reads; its form cannot be checked now
    }
    copy.close();
    const QSettings parsed(copy.fileName(), m_format);
    return parsed.status() == QSettings::NoError;
}

void SettingsDefaultsDatabase::watchUntilReadable(std::function<void()> readable)
{
    m_readable = std::move(readable);
    if (!m_watcher) {
        m_watcher = std::make_unique<QFileSystemWatcher>();
        // A fixed mode changes the file's attributes; a replaced file changes the folder.
        QObject::connect(m_watcher.get(), &QFileSystemWatcher::fileChanged, m_watcher.get(),
                         [this] { checkReadable(); });
        QObject::connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, m_watcher.get(),
                         [this] { checkReadable(); });
    }
    m_watcher->addPaths({m_fileName, QFileInfo(m_fileName).absolutePath()});
    checkReadable();
}

void SettingsDefaultsDatabase::checkReadable()
{
    if (!m_readable || !isReadable()) {
        // A file that was replaced must be watched again under its name.
        if (m_watcher && QFileInfo::exists(m_fileName) && !m_watcher->files().contains(m_fileName) &&
            !m_watcher->directories().contains(m_fileName)) {
            m_watcher->addPath(m_fileName);
        }
        return;
    }
    auto readable = std::exchange(m_readable, nullptr);
    // Deleted later: this runs inside one of the watcher's own signals.
    m_watcher.release()->deleteLater();
    readable();
}

QString SettingsDefaultsDatabase::moveAside()
{
    const QString aside = m_fileName + u".unreadable-"_s + QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    if (!QDir().rename(m_fileName, aside)) {
        throw PersistenceStoreError(PersistenceStoreError::WriteFailed{});
    }
    // The rename itself would otherwise be taken for the file becoming readable.
    m_readable = nullptr;
    if (m_watcher) {
        m_watcher.release()->deleteLater();
    }
    return aside;
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
