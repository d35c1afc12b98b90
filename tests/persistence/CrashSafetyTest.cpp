// SPDX-License-Identifier: GPL-3.0-or-later
// A process killed in the middle of saving must leave every record whole: the next launch reads each one as it was
// before or after one of the writer's writes, never a mix and never nothing, and nothing it reported as saved is lost.
#include "CrashWriterSteps.h"
#include "persistence/SettingsDefaultsDatabase.h"
#include "support/QtPrinters.h"
#include "support/ReadStateAssertion.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <random>
#include <thread>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

const QStringList keys{SettingsStore::defaultKey, ExclusionStore::defaultKey, DeliveryStore::defaultKey};

/// The three records' blobs; a key that holds nothing is left out.
using Snapshot = QMap<QString, QByteArray>;

/// A defaults database in memory that keeps every state it passes through.
class RecordingDefaults final : public DefaultsDatabase {
public:
    explicit RecordingDefaults(Snapshot initial)
        : m_history{std::move(initial)}
    {
    }

    QVariant object(const QString& key) const override
    {
        const auto found = m_history.back().constFind(key);
        return found == m_history.back().constEnd() ? QVariant() : QVariant(*found);
    }

    void setObjects(const std::vector<std::pair<QString, QByteArray>>& values) override
    {
        auto next = m_history.back();
        for (const auto& [key, value] : values) {
            next.insert(key, value);
        }
        m_history.push_back(std::move(next));
    }

    const std::vector<Snapshot>& history() const { return m_history; }

    /// A store skips writing a record that would not change; the file then holds the same bytes as if it had
    /// written them, which keeps one entry per attempted write.
    void repeatLastUntil(std::size_t size)
    {
        while (m_history.size() < size) {
            m_history.push_back(m_history.back());
        }
    }

private:
    std::vector<Snapshot> m_history;
};

/// The last step whose settings `snapshot` holds.
qint64 stepOf(const Snapshot& snapshot)
{
    RecordingDefaults defaults(snapshot);
    return crashwriter::stepOf(SettingsStore(defaults).settings());
}

/// Every state the writer passes through when it starts from `start` and writes up to step `lastStep`.
/// Every step writes each of the three records once.
constexpr std::size_t writesPerStep = 3;

std::vector<Snapshot> replay(const Snapshot& start, qint64 lastStep)
{
    RecordingDefaults defaults(start);
    SettingsStore settings(defaults);
    ExclusionStore exclusions(defaults);
    DeliveryStore delivery(defaults);
    std::size_t steps = 0;
    for (qint64 step = crashwriter::stepOf(settings.settings()) + 1; step <= lastStep; ++step) {
        crashwriter::writeStep(step, settings, exclusions, delivery);
        defaults.repeatLastUntil(1 + ++steps * writesPerStep);
    }
    return defaults.history();
}

/// Opens the settings file as the next launch would; every record must be readable, at the current version.
Snapshot openAfterCrash(const QString& path)
{
    SettingsDefaultsDatabase database(path);
    const SettingsStore settings(database);
    const ExclusionStore exclusions(database);
    const DeliveryStore delivery(database);
    const std::pair<const PersistenceReadState*, qint64> states[] = {
        {&settings.readState(), SettingsStoring::currentSchemaVersion},
        {&exclusions.readState(), ExclusionStoring::currentSchemaVersion},
        {&delivery.readState(), DeliveryStoring::currentSchemaVersion},
    };
    Snapshot snapshot;
    for (qsizetype index = 0; index < keys.size(); ++index) {
        const auto& [state, current] = states[index];
        const QVariant stored = database.object(keys[index]);
        if (stored.isValid()) {
            EXPECT_TRUE(isState(*state, PersistenceReadState::loaded(current))) << keys[index].toStdString();
            snapshot.insert(keys[index], stored.toByteArray());
        } else {
            EXPECT_TRUE(isState(*state, PersistenceReadState::absent())) << keys[index].toStdString();
        }
    }
    return snapshot;
}

/// Ages every empty lock file beside the settings file; returns how many there were. A writer killed between creating
/// a lock file and writing its process id into it leaves a lock with no owner, which Qt takes for stale only once it
/// is 30 s old: the next launch's first save would wait that long (the test ages it instead of waiting).
int ageOwnerlessLocks(const QDir& directory)
{
    int count = 0;
    for (const auto& info : directory.entryInfoList({u"*.lock"_s, u"*.rmlock"_s}, QDir::Files)) {
        QFile lock(info.filePath());
        if (info.size() == 0 && lock.open(QIODevice::ReadWrite) &&
            lock.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-60), QFileDevice::FileModificationTime)) {
            ++count;
        }
    }
    return count;
}

/// The step the writer started from, once it reports it has opened the stores.
std::optional<qint64> waitUntilStarted(QProcess& writer)
{
    while (!writer.canReadLine()) {
        if (!writer.waitForReadyRead(60'000)) {
            return std::nullopt;
        }
    }
    const QByteArray line = writer.readLine();
    if (!line.startsWith("started ")) {
        return std::nullopt;
    }
    return line.mid(8).trimmed().toLongLong();
}

/// The last step the writer reported complete; `started` when none.
qint64 lastReportedStep(const QByteArray& output, qint64 started)
{
    const qsizetype end = output.lastIndexOf('\n');
    if (end < 0) {
        return started;
    }
    const qsizetype begin = output.lastIndexOf('\n', end - 1) + 1;
    return output.mid(begin, end - begin).toLongLong();
}

QString describe(const Snapshot& snapshot)
{
    QStringList parts;
    for (const auto& key : keys) {
        parts.append(key + u": "_s +
                     (snapshot.contains(key) ? QString::fromUtf8(snapshot[key].left(160)) + u"…"_s : u"absent"_s));
    }
    return parts.join(u"\n"_s);
}

constexpr int kills = 100;

TEST(CrashSafety, KilledWriterLeavesEveryRecordWholeAndKeepsWhatItReported)
{
    QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const QString path = directory.filePath(u"Orvane.conf"_s);
    const QString lockPath = path + u".lock"_s;

    std::mt19937 random(20'240'611);
    Snapshot current;
    int staleLocks = 0;
    int ownerlessLocks = 0;
    int tornSteps = 0;
    for (int kill = 0; kill < kills; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        QProcess writer;
        writer.start(QStringLiteral(ORVANE_CRASH_WRITER), {path});
        const auto started = waitUntilStarted(writer);
        ASSERT_TRUE(started) << writer.readAllStandardError().toStdString();
        ASSERT_EQ(*started, stepOf(current));
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 31));
        writer.kill();
        ASSERT_TRUE(writer.waitForFinished(10'000));
        ASSERT_EQ(writer.exitStatus(), QProcess::CrashExit) << writer.readAllStandardError().toStdString();
        const qint64 reported = lastReportedStep(writer.readAllStandardOutput(), *started);

        // The writer may have finished the writes of the step after the last one it reported, or some of them, but
        // no more; and nothing of the steps it reported may be missing.
        const auto possible = replay(current, reported + 1);
        const auto first = possible.begin() + std::ptrdiff_t((reported - *started) * qint64(writesPerStep));
        const Snapshot found = openAfterCrash(path);
        const auto match = std::find(first, possible.end(), found);
        ASSERT_TRUE(match != possible.end()) << "after step " << reported << " the file holds\n"
                                             << describe(found).toStdString() << "\nbut the writer could have left\n"
                                             << describe(possible.back()).toStdString();
        tornSteps += std::size_t(match - possible.begin()) % writesPerStep != 0;
        staleLocks += QFileInfo::exists(lockPath);
        ownerlessLocks += ageOwnerlessLocks(QDir(directory.path()));
        current = found;
    }

    // Whatever the kills left behind, a writer that runs to its end still saves and leaves no lock.
    const qint64 lastStep = stepOf(current) + 5;
    QProcess writer;
    writer.start(QStringLiteral(ORVANE_CRASH_WRITER), {path, QString::number(lastStep)});
    ASSERT_TRUE(writer.waitForFinished(60'000));
    ASSERT_EQ(writer.exitCode(), 0) << writer.readAllStandardError().toStdString();
    const Snapshot finished = openAfterCrash(path);
    EXPECT_TRUE(finished == replay(current, lastStep).back()) << describe(finished).toStdString();
    EXPECT_FALSE(QFileInfo::exists(lockPath));

    const auto leftovers = QDir(directory.path()).entryList(QDir::Files).size() - 1;
    std::cout << kills << " kills: " << tornSteps << " between the writes of one step, " << staleLocks
              << " left a stale lock file (" << ownerlessLocks << " without an owner), " << leftovers
              << " other files left beside the settings file\n";
}

} // namespace
