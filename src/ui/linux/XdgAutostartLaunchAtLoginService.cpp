// SPDX-License-Identifier: GPL-3.0-or-later
#include "ui/linux/XdgAutostartLaunchAtLoginService.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace orvane {

namespace {

/// Creates `path` and any missing parents readable only by the user, as the base directory rules ask.
bool makePrivateDirectory(const QString& path)
{
    if (QFileInfo(path).isDir()) {
        return true;
    }
    const QString parent = QFileInfo(path).path();
    if (parent != path && !makePrivateDirectory(parent)) {
        return false;
    }
    return QDir().mkdir(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) || QFileInfo(path).isDir();
}

/// Whether the session manager would start the entry in `contents`: only its own group counts, and either key
/// that switches an entry off does.
bool startsAtLogin(const QByteArray& contents)
{
    bool inEntry = false;
    bool hasExec = false;
    for (const QByteArray& rawLine : contents.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            inEntry = line == "[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (!inEntry || line.startsWith('#') || equals < 0) {
            continue;
        }
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1).trimmed();
        if ((key == "Hidden" && value == "true") || (key == "X-GNOME-Autostart-enabled" && value == "false")) {
            return false;
        }
        hasExec = hasExec || (key == "Exec" && !value.isEmpty());
    }
    return hasExec;
}

} // namespace

XdgAutostartLaunchAtLoginService::XdgAutostartLaunchAtLoginService(QString configHome, QString executablePath,
                                                                   QObject* parent)
    : LaunchAtLoginService(parent)
    , m_configHome(std::move(configHome))
    , m_executablePath(std::move(executablePath))
{
}

QString XdgAutostartLaunchAtLoginService::entryPath() const
{
    return m_configHome + u"/autostart/com.velmont.Orvane.desktop"_s;
}

QString XdgAutostartLaunchAtLoginService::execArgument(const QString& path)
{
    // Quoting first: inside quotes these four take a backslash, and "%" starts a field code unless doubled.
    QString quoted = u"\""_s;
    for (const QChar c : path) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\') {
            quoted += u'\\';
        } else if (c == u'%') {
            quoted += u'%';
        }
        quoted += c;
    }
    quoted += u'"';
    // Then the string escapes every value goes through, which is why a literal backslash ends up as four.
    QString escaped;
    for (const QChar c : quoted) {
        switch (c.unicode()) {
        case u'\\':
            escaped += u"\\\\"_s;
            break;
        case u'\n':
            escaped += u"\\n"_s;
            break;
        case u'\t':
            escaped += u"\\t"_s;
            break;
        case u'\r':
            escaped += u"\\r"_s;
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

LaunchAtLoginService::Status XdgAutostartLaunchAtLoginService::status() const
{
    if (m_configHome.isEmpty()) {
        return Status::unknown;
    }
    // A directory or an unreadable file at the entry's place is skipped by the session manager as well: nothing starts.
    QFile entry(entryPath());
    if (!QFileInfo(entry).isFile() || !entry.open(QIODevice::ReadOnly)) {
        return Status::notRegistered;
    }
    return startsAtLogin(entry.read(64 * 1024)) ? Status::enabled : Status::notRegistered;
}

QCoro::Task<> XdgAutostartLaunchAtLoginService::registerMainApp()
{
    if (m_executablePath.isEmpty() || !QFileInfo(m_executablePath).isAbsolute()) {
        throw LaunchAtLoginError(LaunchAtLoginError::ExecutableUnknown{});
    }
    const QString path = entryPath();
    const auto fail = [&path](const QString& reason) {
        return LaunchAtLoginError(LaunchAtLoginError::WriteFailed{path, reason});
    };
    if (m_configHome.isEmpty() || !makePrivateDirectory(QFileInfo(path).path())) {
        throw fail(u"the autostart folder could not be created"_s);
    }
    if (QFileInfo(path).isDir()) {
        throw fail(u"a folder is in its place"_s);
    }
    // Written whole to a temporary file and renamed over the old entry: a hand-edited or foreign entry is replaced,
    // and the session manager never reads half an entry.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        throw fail(file.errorString());
    }
    const QString contents = u"[Desktop Entry]\n"
                             u"Type=Application\n"
                             u"Name=Orvane\n"
                             u"Comment=Full-screen meeting reminders\n"
                             u"Exec="_s +
                             execArgument(m_executablePath) +
                             u" --at-login\n"
                             u"X-GNOME-Autostart-enabled=true\n"
                             u"NoDisplay=false\n"_s;
    file.write(contents.toUtf8());
    if (!file.commit()) {
        throw fail(file.errorString());
    }
    co_return;
}

QCoro::Task<> XdgAutostartLaunchAtLoginService::unregisterMainApp()
{
    QFile entry(entryPath());
    const QFileInfo info(entry);
    // A dangling link is an entry too: it would still be there for the next registration to trip over.
    if (info.isDir() || ((info.exists() || info.isSymLink()) && !entry.remove())) {
        throw LaunchAtLoginError(LaunchAtLoginError::RemoveFailed{
            entry.fileName(), info.isDir() ? u"a folder is in its place"_s : entry.errorString()});
    }
    co_return;
}

} // namespace orvane
