// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/DefaultsDatabase.h"

#include <QSettings>

#include <memory>
#include <optional>
#include <utility>

class QFileSystemWatcher;

namespace orvane {

/// The defaults database in a QSettings file: on Linux the native INI file of "velmont.com"/"Orvane" under
/// $XDG_CONFIG_HOME, on macOS the com.velmont.Orvane defaults domain.
///
/// Each operation uses a QSettings object of its own, because a QSettings object reports the first error it ever
/// met: after one failed write it would report every later write as failed too. Objects on the same file share
/// Qt's cache, so this costs no extra reads.
class SettingsDefaultsDatabase : public DefaultsDatabase {
public:
    /// The application's own database.
    SettingsDefaultsDatabase();
    /// A database in the file `fileName` (tests use their own).
    explicit SettingsDefaultsDatabase(QString fileName, QSettings::Format format = QSettings::NativeFormat);

    ~SettingsDefaultsDatabase() override;

    QVariant object(const QString& key) const override;
    void setObjects(const std::vector<std::pair<QString, QByteArray>>& values) override;
    void setString(const QString& key, const std::optional<QString>& value) override;
    QString location() const override { return m_fileName; }
    /// Whether Qt can open and parse the file (a missing file reads as empty).
    bool isReadable() const override;
    /// Watches the file and its folder (inotify: nothing is polled) until the file can be read.
    void watchUntilReadable(std::function<void()> readable) override;
    /// Renames the file (or whatever stands at its path) to "<file>.unreadable-<date and time>" beside it.
    QString moveAside() override;

    QString fileName() const { return m_fileName; }

    /// Removes a lock file that names no process: one left by a writer killed between creating it and writing its
    /// process id. Qt would wait 30 seconds for it to age before the next save. Call it once at start-up, after the
    /// single-instance check, when no other writer of this file can exist.
    void removeOrphanedLock() const;

private:
    /// Stores each value under its key (an invalid value removes the key) in one durable step.
    void write(const std::vector<std::pair<QString, QVariant>>& values);

    void checkReadable();
    /// Reads and parses the file: false when it cannot, absent when its form cannot be checked now.
    std::optional<bool> judgeReadable() const;

    /// What identifies one state of the file on disk: a write, a change of mode or a replacement changes it.
    struct FileState {
        qint64 size = 0;
        int permissions = 0;
        qint64 modified = 0;
        qint64 changed = 0;
        friend bool operator==(const FileState&, const FileState&) = default;
    };
    static std::optional<FileState> fileState(const QString& fileName);

    QString m_fileName;
    QSettings::Format m_format;
    std::unique_ptr<QFileSystemWatcher> m_watcher;
    std::function<void()> m_readable;
    /// Every store asks before it reads: the file is judged once per state it is in.
    mutable std::optional<std::pair<FileState, bool>> m_judged;
};

} // namespace orvane
