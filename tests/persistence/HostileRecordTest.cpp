// SPDX-License-Identifier: GPL-3.0-or-later
// Whatever another program, an older or newer build or a damaged disk left under a record's key, a store that cannot
// read it must refuse every change and leave the bytes exactly as they were, until the user resets that one record.
#include "persistence/DeliveryStore.h"
#include "persistence/ExclusionStore.h"
#include "persistence/SettingsStore.h"
#include "support/QtPrinters.h"
#include "support/ReadStateAssertion.h"
#include "support/TemporaryDefaults.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRect>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <random>

using namespace Qt::StringLiterals;
using namespace orvane;

namespace {

using Failure = PersistenceReadFailure;

const Failure invalidStoredType{Failure::InvalidStoredType{}};
const Failure malformed{Failure::MalformedEnvelope{}};
const Failure invalidPayload{Failure::InvalidPayload{}};

Failure unsupported(qint64 version)
{
    return {Failure::UnsupportedSchemaVersion{version}};
}

// Sample records: valid, and using every optional member, so that each member can be spoiled in turn.

MeetingIdentity sampleIdentity(const QString& calendar = u"calendar-A"_s)
{
    return {.sourceIdentifier = u"work@example.com"_s,
            .calendarIdentifier = calendar,
            .seriesIdentifier = u"external:standup@example.com"_s,
            .calendarFingerprint = CalendarFingerprint{CalendarSourceKind::google, u"Work"_s, u"Team"_s},
            .calendarFingerprintIsUnique = true,
            .occurrenceStart = {780'000'000},
            .scheduledStart = {780'000'600}};
}

ExclusionRecord sampleExclusion()
{
    return {.id = QUuid::fromString(u"E621E1F8-C36C-495A-93FC-0C247A3E6E5F"_s),
            .identity = sampleIdentity(),
            .scope = ExclusionScope::series,
            .createdAt = {779'000'000},
            .eventTitle = u"Stand-up"_s,
            .calendarTitle = u"Team"_s};
}

DeliveryRecord sampleDelivery()
{
    return {sampleIdentity(), {779'999'700}, DeliveryStatus::confirmed, {779'999'701}};
}

SnoozeRecord sampleSnooze()
{
    return {sampleIdentity(), {780'000'300}, {779'999'760}};
}

NotifierSettings sampleSettings()
{
    return {.alertLeadTime = 300,
            .selectedCalendars =
                std::vector<CalendarSelectionRecord>{
                    {u"calendar-A"_s, CalendarFingerprint{CalendarSourceKind::google, u"Work"_s, u"Team"_s}}},
            .eligibilityMode = EligibilityMode::meetingLike,
            .launchAtLogin = true,
            .showsOnAllDisplays = true};
}

/// One of the three records, with a valid payload text for each version that has a shape of its own.
struct RecordKind {
    QString key;
    qint64 currentVersion;
    QByteArray payload;
    /// Older shapes still read at their version.
    std::vector<std::pair<qint64, QByteArray>> legacyPayloads;
    /// What a reset leaves.
    QByteArray emptyPayload;
};

const std::vector<RecordKind>& recordKinds()
{
    static const std::vector<RecordKind> kinds{
        {SettingsStore::defaultKey,
         SettingsStoring::currentSchemaVersion,
         json::serialize(toJson(sampleSettings())),
         {{1, R"({"alertLeadTime":300,"enabledCalendarIdentifiers":["b","a"],"eligibilityMode":"meetingLike",)"
              R"("launchAtLogin":true,"showsOnAllDisplays":false})"}},
         json::serialize(toJson(NotifierSettings{}))},
        {ExclusionStore::defaultKey,
         ExclusionStoring::currentSchemaVersion,
         json::serialize(json::toJson(std::vector{sampleExclusion()})),
         {},
         "[]"},
        {DeliveryStore::defaultKey,
         DeliveryStoring::currentSchemaVersion,
         json::serialize(toJson(DeliveryState{{sampleDelivery()}, {sampleSnooze()}})),
         {},
         R"({"records":[],"snoozes":[]})"},
    };
    return kinds;
}

QByteArray envelope(const QByteArray& version, const QByteArray& payload)
{
    return "{\"schemaVersion\":" + version + ",\"payload\":" + payload + '}';
}

QByteArray envelope(qint64 version, const QByteArray& payload)
{
    return envelope(QByteArray::number(version), payload);
}

QByteArray compact(const QJsonValue& value)
{
    const auto document = value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    return document.toJson(QJsonDocument::Compact);
}

/// Whether the member at `path` may be left out (or be null) in a stored payload. By path, not name alone: a
/// fingerprint's "calendarTitle" is required where an exclusion's is not.
bool isOptionalMember(const QString& path)
{
    static const QStringList optional{u".selectedCalendars"_s,   u".enabledCalendarIdentifiers"_s,
                                      u"].fingerprint"_s,        u".sourceIdentifier"_s,
                                      u".calendarFingerprint"_s, u".calendarFingerprintIsUnique"_s,
                                      u".scheduledStart"_s,      u"].eventTitle"_s,
                                      u"].calendarTitle"_s,      u"].status"_s};
    return std::any_of(optional.begin(), optional.end(), [&](const QString& suffix) { return path.endsWith(suffix); });
}

/// A copy of a payload with one member or element replaced somewhere inside.
struct Variant {
    QString path;
    QString member;         // empty for an array element
    QJsonValue replacement; // undefined: the member was removed
    QJsonValue payload;
};

using Replacements = std::function<std::vector<QJsonValue>(const QJsonValue&)>;

/// Every copy of `value` with one member or element, at any depth, swapped for one of `replacements(original)`.
std::vector<Variant> variants(const QJsonValue& value, const Replacements& replacements, const QString& path = {})
{
    std::vector<Variant> result;
    const auto visit = [&](const QString& childPath, const QString& member, const QJsonValue& child,
                           const std::function<QJsonValue(const QJsonValue&)>& rebuild) {
        for (const auto& replacement : replacements(child)) {
            result.push_back({childPath, member, replacement, rebuild(replacement)});
        }
        for (auto& inner : variants(child, replacements, childPath)) {
            result.push_back({inner.path, inner.member, inner.replacement, rebuild(inner.payload)});
        }
    };
    if (value.isObject()) {
        const auto object = value.toObject();
        for (auto member = object.begin(); member != object.end(); ++member) {
            const QString key = member.key();
            visit(path + u'.' + key, key, member.value(), [&](const QJsonValue& replacement) {
                auto copy = object;
                if (replacement.isUndefined()) {
                    copy.remove(key);
                } else {
                    copy[key] = replacement;
                }
                return QJsonValue(copy);
            });
        }
    } else if (value.isArray()) {
        const auto array = value.toArray();
        for (qsizetype index = 0; index < array.size(); ++index) {
            visit(path + u'[' + QString::number(index) + u']', {}, array.at(index), [&](const QJsonValue& replacement) {
                auto copy = array;
                copy[index] = replacement;
                return QJsonValue(copy);
            });
        }
    }
    return result;
}

// The corpus: each family produces hostile values for one record kind, each with the failure it must read as.

struct Hostile {
    QVariant value;
    Failure expected;
    std::string name = {}; // where the value alone does not show what was spoiled
};

using Cases = std::vector<Hostile>;

Cases each(const Failure& expected, const std::vector<QVariant>& values)
{
    Cases cases;
    for (const auto& value : values) {
        cases.push_back({value, expected});
    }
    return cases;
}

/// A stored value as it shows in a failure: type and text, the middle of long texts left out.
std::string describe(const QVariant& value)
{
    QByteArray text = value.typeId() == QMetaType::QByteArray ? value.toByteArray().toPercentEncoding("{}[]\":,.-+ ")
                                                              : value.toString().toUtf8();
    if (text.size() > 160) {
        text = text.left(80) + "..." + text.right(80);
    }
    return value.metaType().name() + (": " + text.toStdString());
}

Cases notBlobs(const RecordKind& kind)
{
    const QString valid = QString::fromUtf8(envelope(kind.currentVersion, kind.payload));
    return each(
        invalidStoredType,
        {valid, QString(u"@ByteArray("_s + valid + u')'), QString(), 2, qlonglong(kind.currentVersion), 2.5, true,
         QVariantMap{{u"schemaVersion"_s, kind.currentVersion}, {u"payload"_s, QString::fromUtf8(kind.payload)}},
         QVariantList{kind.currentVersion, QString::fromUtf8(kind.payload)}, QStringList{valid},
         QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC), QRect(1, 2, 3, 4)});
}

Cases randomBytes(const RecordKind& kind)
{
    // Seeded from the key's bytes, not qHash (which Qt may randomise per process), so every run tries the same bytes.
    const QByteArray key = kind.key.toUtf8();
    std::seed_seq seed(key.begin(), key.end());
    std::mt19937 random(seed);
    std::vector<QVariant> values{QByteArray("")};
    for (int i = 0; i < 10; ++i) {
        QByteArray bytes(qsizetype(random() % 300), Qt::Uninitialized);
        std::generate(bytes.begin(), bytes.end(), [&] { return char(random()); });
        values.push_back(bytes);
    }
    // Only JSON punctuation, digits and literals: often parses, but can never spell "schemaVersion".
    const QByteArray alphabet = "{}[]\":,0123456789.-e truefalsnul";
    for (int i = 0; i < 5; ++i) {
        QByteArray bytes(qsizetype(1 + random() % 40), Qt::Uninitialized);
        std::generate(bytes.begin(), bytes.end(), [&] { return alphabet[qsizetype(random() % alphabet.size())]; });
        values.push_back(bytes);
    }
    return each(malformed, values);
}

Cases truncations(const RecordKind& kind)
{
    // No prefix of an object is JSON. A write torn after a complete member leaves the most plausible remains, and
    // the record without its last brace the most plausible of all; a few cuts anywhere else stand for the rest.
    const QByteArray valid = envelope(kind.currentVersion, kind.payload);
    std::mt19937 random(std::uint32_t(valid.size()));
    Cases cases;
    for (qsizetype length = 1; length < valid.size(); ++length) {
        if (valid[length - 1] == ',' || length == valid.size() - 1 || random() % 32 == 0) {
            cases.push_back({valid.left(length), malformed, "first " + std::to_string(length) + " bytes"});
        }
    }
    return cases;
}

Cases notEnvelopes(const RecordKind& kind)
{
    const QByteArray valid = envelope(kind.currentVersion, kind.payload);
    QByteArray badUtf8 = valid;
    badUtf8.replace("Team", "T\xff\xfem");
    return each(malformed,
                {QByteArray("{}"), QByteArray("[]"), '[' + valid + ']', QByteArray("2"), QByteArray("\"payload\""),
                 QByteArray("null"), QByteArray(" \n\t"), "{\"payload\":" + kind.payload + '}',
                 "{\"SchemaVersion\":2,\"payload\":" + kind.payload + '}', valid + 'x', valid + '}', valid + '\0',
                 valid + valid, badUtf8});
}

Cases versions(const RecordKind& kind)
{
    constexpr auto max = std::numeric_limits<qint64>::max();
    constexpr auto min = std::numeric_limits<qint64>::min();
    const qint64 next = kind.currentVersion + 1;
    Cases cases;
    for (const auto& [version, read] :
         std::initializer_list<std::pair<QByteArray, qint64>>{{"0", 0},
                                                              {"-0", 0},
                                                              {"-1", -1},
                                                              {QByteArray::number(next), next},
                                                              {"99", 99},
                                                              {"1e2", 100},
                                                              {QByteArray::number(max), max},
                                                              {QByteArray::number(min), min}}) {
        cases.push_back({envelope(version, kind.payload), unsupported(read)});
    }
    // The version decides before the payload is looked at, so a newer build's payload need not be ours.
    cases.push_back({envelope(99, "[\"x\"]"), unsupported(99)});
    cases.push_back({QByteArray("{\"schemaVersion\":99}"), unsupported(99)});
    for (const QByteArray version :
         {"9223372036854775808", "1e400", "2.5", "1.9999", "\"2\"", "\"\"", "true", "null", "[2]", "{\"value\":2}"}) {
        cases.push_back({envelope(version, kind.payload), malformed});
    }
    return cases;
}

Cases payloadTypes(const RecordKind& kind)
{
    Cases cases;
    for (qint64 version = 1; version <= kind.currentVersion; ++version) {
        cases.push_back({"{\"schemaVersion\":" + QByteArray::number(version) + '}', invalidPayload});
        for (const QByteArray payload : {"null", "true", "7", "\"x\"", "[]", "{}", "[{}]", "[null]"}) {
            // An empty list is the exclusions payload with no records.
            if (kind.key != ExclusionStore::defaultKey || payload != "[]") {
                cases.push_back({envelope(version, payload), invalidPayload});
            }
        }
    }
    return cases;
}

/// The payloads of a kind at each version whose shape they have.
std::vector<std::pair<qint64, QByteArray>> payloadsByVersion(const RecordKind& kind)
{
    auto payloads = kind.legacyPayloads;
    payloads.emplace_back(kind.currentVersion, kind.payload);
    return payloads;
}

Cases missingMembers(const RecordKind& kind)
{
    const Replacements removal = [](const QJsonValue&) {
        return std::vector<QJsonValue>{QJsonValue::Undefined};
    };
    Cases cases;
    for (const auto& [version, payload] : payloadsByVersion(kind)) {
        for (const auto& variant : variants(json::parse(payload), removal)) {
            if (!variant.member.isEmpty() && !isOptionalMember(variant.path)) {
                cases.push_back({envelope(version, compact(variant.payload)), invalidPayload,
                                 "without " + variant.path.toStdString()});
            }
        }
    }
    return cases;
}

Cases wrongMemberTypes(const RecordKind& kind)
{
    // For every member and element: a value of another JSON type, and null, which only optional members accept.
    std::mt19937 random(7);
    const QJsonValue others[] = {true, 7, u"x"_s, QJsonArray{}, QJsonObject{}};
    const Replacements wrongType = [&](const QJsonValue& original) {
        std::vector<QJsonValue> candidates;
        std::copy_if(std::begin(others), std::end(others), std::back_inserter(candidates),
                     [&](const QJsonValue& other) { return other.type() != original.type(); });
        return std::vector<QJsonValue>{candidates[random() % candidates.size()], QJsonValue::Null};
    };
    Cases cases;
    for (const auto& [version, payload] : payloadsByVersion(kind)) {
        for (const auto& variant : variants(json::parse(payload), wrongType)) {
            if (!variant.replacement.isNull() || variant.member.isEmpty() || !isOptionalMember(variant.path)) {
                cases.push_back(
                    {envelope(version, compact(variant.payload)), invalidPayload,
                     variant.path.toStdString() + " = " + compact(QJsonArray{variant.replacement}).toStdString()});
            }
        }
    }
    return cases;
}

Cases leadTimes(const RecordKind& kind)
{
    Cases cases;
    if (kind.key != SettingsStore::defaultKey) {
        return cases;
    }
    for (auto [version, payload] : payloadsByVersion(kind)) {
        const auto with = [&](const QByteArray& leadTime) {
            return envelope(version,
                            QByteArray(payload).replace("\"alertLeadTime\":300", "\"alertLeadTime\":" + leadTime));
        };
        for (const QByteArray leadTime :
             {"7200.5", "7200.000001", "-1", "-1e-300", "1e308", "-1e308", "\"NaN\"", "\"inf\"", "\"300\""}) {
            cases.push_back({with(leadTime), invalidPayload});
        }
        // JSON has no spelling for these: the whole record is not JSON.
        for (const QByteArray leadTime : {"NaN", "Infinity", "-Infinity", "1e400"}) {
            cases.push_back({with(leadTime), malformed});
        }
    }
    return cases;
}

Cases duplicateMembers(const RecordKind& kind)
{
    // Of two equal members the last one is read, so a valid first one must not hide an invalid second one.
    const QByteArray version = QByteArray::number(kind.currentVersion);
    const QByteArray& payload = kind.payload;
    const QByteArray valid = envelope(version, payload);
    const qsizetype objectStart = payload.indexOf('{');
    const QByteArray firstMember = payload.mid(objectStart + 1, payload.indexOf(':', objectStart) - objectStart);
    const qsizetype objectEnd = payload.size() - (payload.endsWith("}]") ? 2 : 1);
    return {
        {"{\"schemaVersion\":" + version + ",\"schemaVersion\":\"" + version + "\",\"payload\":" + payload + '}',
         malformed},
        {"{\"schemaVersion\":" + version + ",\"schemaVersion\":99,\"payload\":" + payload + '}', unsupported(99)},
        {valid.chopped(1) + ",\"payload\":null}", invalidPayload},
        {valid.chopped(1) + ",\"payload\":\"x\"}", invalidPayload},
        {envelope(version, payload.left(objectEnd) + ',' + firstMember + "\"x\"" + payload.mid(objectEnd)),
         invalidPayload, "the first payload member again, invalid"},
    };
}

Cases deepNesting(const RecordKind& kind)
{
    const auto nested = [](int depth, bool objects) {
        return (objects ? QByteArray("{\"a\":") : QByteArray("[")).repeated(depth) + (objects ? "1" : "") +
               QByteArray(objects ? "}" : "]").repeated(depth);
    };
    const QByteArray version = QByteArray::number(kind.currentVersion);
    return {
        {QByteArray(5000, '['), malformed},
        {nested(5000, false), malformed},
        {nested(5000, true), malformed},
        {envelope(version, nested(5000, false)), malformed},
        // Deep, but within what the parser accepts: the record is JSON, its payload is not ours.
        {envelope(version, nested(1000, false)), invalidPayload},
        {envelope(version, nested(1000, true)), invalidPayload},
    };
}

struct Family {
    const char* name;
    Cases (*generate)(const RecordKind&);
};

const Family families[] = {{"NotABlob", notBlobs},
                           {"RandomBytes", randomBytes},
                           {"Truncated", truncations},
                           {"NotAnEnvelope", notEnvelopes},
                           {"Version", versions},
                           {"PayloadType", payloadTypes},
                           {"MissingMember", missingMembers},
                           {"WrongMemberType", wrongMemberTypes},
                           {"LeadTime", leadTimes},
                           {"DuplicateMember", duplicateMembers},
                           {"DeepNesting", deepNesting}};

// The stores' mutations, each with arguments that would succeed on a readable store.

using Mutations = std::vector<std::pair<const char*, std::function<void()>>>;

CalendarIdentityMigration validMigration()
{
    return {sampleIdentity(), sampleIdentity(u"calendar-B"_s)};
}

/// Opens the three stores of one database and lists every change that can be asked of the one under `key`.
struct OpenStores {
    const PersistenceReadState& readState(const QString& key) const
    {
        return key == SettingsStore::defaultKey    ? settings.readState()
               : key == ExclusionStore::defaultKey ? exclusions.readState()
                                                   : delivery.readState();
    }

    bool holdsNothing() const
    {
        return settings.settings() == NotifierSettings{} && exclusions.records().empty() &&
               delivery.records().empty() && delivery.snoozes().empty();
    }

    void resetAfterReadFailure(const QString& key)
    {
        if (key == SettingsStore::defaultKey) {
            settings.resetAfterReadFailure();
        } else if (key == ExclusionStore::defaultKey) {
            exclusions.resetAfterReadFailure();
        } else {
            delivery.resetAfterReadFailure();
        }
    }

    Mutations mutations(const QString& key)
    {
        // A batch touches all three records and must be refused whole when any of them is unreadable.
        Mutations all{{"atomic batch", [this] {
                           exclusions.applyAtomicBatch({sampleSettings(), {validMigration()}}, settings, delivery);
                       }}};
        const std::array noMigration{CalendarIdentityMigration{}};
        if (key == SettingsStore::defaultKey) {
            all.emplace_back("save", [this] { settings.save(sampleSettings()); });
            // The refusal comes first: it, not the invalid value, is what the caller must learn.
            all.emplace_back("save of an invalid lead time", [this] {
                auto invalid = sampleSettings();
                invalid.alertLeadTime = 7200.5;
                settings.save(invalid);
            });
        } else if (key == ExclusionStore::defaultKey) {
            all.emplace_back("add", [this] { exclusions.add(sampleExclusion()); });
            all.emplace_back("remove", [this] { exclusions.remove({sampleExclusion().id}); });
            all.emplace_back("remove nothing", [this] { exclusions.remove({}); });
            all.emplace_back("remove all", [this] { exclusions.removeAll(); });
            all.emplace_back("migrate",
                             [this] { exclusions.applyCalendarIdentityMigrations(std::array{validMigration()}); });
            all.emplace_back("invalid migration",
                             [=, this] { exclusions.applyCalendarIdentityMigrations(noMigration); });
        } else {
            const std::array keys{sampleDelivery().id()};
            all.emplace_back("prepare", [this] { delivery.prepareDeliveries(std::array{sampleDelivery()}); });
            all.emplace_back("confirm", [=, this] { delivery.confirmDeliveries(keys, {780'000'000}); });
            all.emplace_back("discard pending", [=, this] { delivery.discardPendingDeliveries(keys); });
            all.emplace_back("set snoozes", [this] { delivery.setSnoozes(std::array{sampleSnooze()}); });
            all.emplace_back("clear snooze", [this] { delivery.clearSnooze(sampleIdentity()); });
            all.emplace_back("clear snoozes", [this] { delivery.clearSnoozes(std::array{sampleIdentity()}); });
            all.emplace_back("remove persisted state", [this] { delivery.removePersistedState({sampleIdentity()}); });
            all.emplace_back("migrate",
                             [this] { delivery.applyCalendarIdentityMigrations(std::array{validMigration()}); });
            all.emplace_back("invalid migration", [=, this] { delivery.applyCalendarIdentityMigrations(noMigration); });
            all.emplace_back("prune", [this] { delivery.prune({770'000'000}, {770'000'000}); });
        }
        return all;
    }

    SettingsStore settings;
    ExclusionStore exclusions;
    DeliveryStore delivery;
};

bool sameStoredValue(const QVariant& lhs, const QVariant& rhs)
{
    if (lhs.metaType() != rhs.metaType()) {
        return false;
    }
    return lhs.typeId() == QMetaType::QByteArray ? lhs.toByteArray() == rhs.toByteArray() : lhs == rhs;
}

void expectNeverOverwritten(const RecordKind& kind, const Hostile& hostile)
{
    TemporaryDefaults defaults;
    defaults.store(kind.key, hostile.value);
    const QVariant stored = defaults.stored(kind.key);
    const QByteArray fileBefore = defaults.fileBytes();
    ASSERT_TRUE(sameStoredValue(stored, hostile.value)) << "the settings file did not keep the value as given";

    OpenStores stores{SettingsStore(defaults.database()), ExclusionStore(defaults.database()),
                      DeliveryStore(defaults.database())};
    ASSERT_TRUE(isState(stores.readState(kind.key), PersistenceReadState::unreadable(hostile.expected)));

    for (const auto& [name, mutate] : stores.mutations(kind.key)) {
        SCOPED_TRACE(name);
        try {
            mutate();
            ADD_FAILURE() << "the change was made";
        } catch (const PersistenceStoreError& error) {
            EXPECT_TRUE(error.value() ==
                        PersistenceStoreError::Case{PersistenceStoreError::RecoveryRequired{hostile.expected}})
                << error.description().toStdString();
        } catch (const std::exception& error) {
            ADD_FAILURE() << "unexpected error: " << error.what();
        }
    }
    EXPECT_TRUE(isState(stores.readState(kind.key), PersistenceReadState::unreadable(hostile.expected)));
    EXPECT_TRUE(stores.holdsNothing());
    EXPECT_TRUE(sameStoredValue(defaults.stored(kind.key), stored));
    EXPECT_TRUE(defaults.fileBytes() == fileBefore) << "the settings file changed";

    stores.resetAfterReadFailure(kind.key);
    EXPECT_TRUE(isState(stores.readState(kind.key), PersistenceReadState::loaded(kind.currentVersion)));
    EXPECT_TRUE(sameStoredValue(defaults.stored(kind.key), envelope(kind.currentVersion, kind.emptyPayload)));
    for (const auto& other : recordKinds()) {
        if (other.key != kind.key) {
            EXPECT_FALSE(defaults.stored(other.key).isValid()) << other.key.toStdString() << " was created";
        }
    }
}

class NeverOverwritten : public ::testing::TestWithParam<Family> {};

TEST_P(NeverOverwritten, ByAnyChangeOnlyByReset)
{
    std::size_t count = 0;
    for (const auto& kind : recordKinds()) {
        for (const auto& hostile : GetParam().generate(kind)) {
            SCOPED_TRACE(kind.key.toStdString() + ": " +
                         (hostile.name.empty() ? describe(hostile.value) : hostile.name));
            expectNeverOverwritten(kind, hostile);
            ++count;
        }
    }
    EXPECT_GT(count, 0u);
    RecordProperty("cases", int(count));
}

INSTANTIATE_TEST_SUITE_P(HostileRecord, NeverOverwritten, ::testing::ValuesIn(families),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
