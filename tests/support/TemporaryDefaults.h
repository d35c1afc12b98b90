// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "persistence/SettingsDefaultsDatabase.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

/// A defaults database in a settings file of its own, removed with the object.
class TemporaryDefaults {
public:
    TemporaryDefaults()
        : m_path(m_directory.filePath(QStringLiteral("Orvane.conf")))
        , m_database(m_path)
    {
    }

    orvane::SettingsDefaultsDatabase& database() { return m_database; }
    const QString& path() const { return m_path; }

    /// Stores any value under `key`, as another program (or an older build) might have.
    void store(const QString& key, const QVariant& value)
    {
        QSettings settings(m_path, QSettings::NativeFormat);
        settings.setValue(key, value);
        settings.sync();
    }

    QVariant stored(const QString& key) const { return m_database.object(key); }

    /// The whole settings file as it is on disk.
    QByteArray fileBytes() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private:
    QTemporaryDir m_directory;
    QString m_path;
    orvane::SettingsDefaultsDatabase m_database;
};
