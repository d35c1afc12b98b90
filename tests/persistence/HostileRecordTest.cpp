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
};

const std::vector<RecordKind>& recordKinds()
{
    static const std::vector<RecordKind> kinds{
        {SettingsStore::defaultKey,
         SettingsStoring::currentSchemaVersion,
         json::serialize(toJson(sampleSettings())),
         {{1, R"({"alertLeadTime":300,"enabledCalendarIdentifiers":["b","a"],"eligibilityMode":"meetingLike",)"
              R"("launchAtLogin":true,"showsOnAllDisplays":false})"}}},
        {ExclusionStore::defaultKey,
         ExclusionStoring::currentSchemaVersion,
         json::serialize(json::toJson(std::vector{sampleExclusion()})),
         {}},
        {DeliveryStore::defaultKey,
         DeliveryStoring::currentSchemaVersion,
         json::serialize(toJson(DeliveryState{{sampleDelivery()}, {sampleSnooze()}})),
         {}},
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
    return value.isArray() ? QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact)
                           : QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact);
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
    std::string name;
    QVariant value;
    Failure expected;
};

using Cases = std::vector<Hostile>;

Cases notBlobs(const RecordKind& kind)
{
    const QByteArray valid = envelope(kind.currentVersion, kind.payload);
    return {
        {"the record's text as a string", QString::fromUtf8(valid), invalidStoredType},
        {"a string that looks like a stored blob", QString(u"@ByteArray("_s + QString::fromUtf8(valid) + u')'),
         invalidStoredType},
        {"an empty string", QString(), invalidStoredType},
        {"an int", 2, invalidStoredType},
        {"a 64-bit int", qlonglong(kind.currentVersion), invalidStoredType},
        {"a double", 2.5, invalidStoredType},
        {"a bool", true, invalidStoredType},
        {"a map shaped like the envelope",
         QVariantMap{{u"schemaVersion"_s, kind.currentVersion}, {u"payload"_s, QString::fromUtf8(kind.payload)}},
         invalidStoredType},
        {"a list", QVariantList{kind.currentVersion, QString::fromUtf8(kind.payload)}, invalidStoredType},
        {"a string list", QStringList{QString::fromUtf8(valid)}, invalidStoredType},
        {"a date", QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC), invalidStoredType},
        {"a rectangle", QRect(1, 2, 3, 4), invalidStoredType},
    };
}

Cases randomBytes(const RecordKind& kind)
{
    std::mt19937 random(std::uint32_t(qHash(kind.key, 1)));
    Cases cases{{"an empty blob", QByteArray(""), malformed}};
    for (int i = 0; i < 10; ++i) {
        QByteArray bytes(qsizetype(random() % 300), Qt::Uninitialized);
        std::generate(bytes.begin(), bytes.end(), [&] { return char(random()); });
        cases.push_back({"random bytes #" + std::to_string(i), bytes, malformed});
    }
    // Only JSON punctuation, digits and literals: often parses, but can never spell "schemaVersion".
    const QByteArray alphabet = "{}[]\":,0123456789.-e truefalsnul";
    for (int i = 0; i < 5; ++i) {
        QByteArray bytes(qsizetype(1 + random() % 40), Qt::Uninitialized);
        std::generate(bytes.begin(), bytes.end(), [&] { return alphabet[qsizetype(random() % alphabet.size())]; });
        cases.push_back({"random JSON tokens #" + std::to_string(i), bytes, malformed});
    }
    return cases;
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
            cases.push_back({"first " + std::to_string(length) + " bytes", valid.left(length), malformed});
        }
    }
    return cases;
}

Cases notEnvelopes(const RecordKind& kind)
{
    const QByteArray valid = envelope(kind.currentVersion, kind.payload);
    QByteArray badUtf8 = valid;
    badUtf8.replace("Team", "T\xff\xfem");
    return {
        {"an empty object", QByteArray("{}"), malformed},
        {"an array", QByteArray("[]"), malformed},
        {"the envelope inside an array", '[' + valid + ']', malformed},
        {"a bare number", QByteArray("2"), malformed},
        {"a bare string", QByteArray("\"payload\""), malformed},
        {"null", QByteArray("null"), malformed},
        {"white space", QByteArray(" \n\t"), malformed},
        {"a payload without a version", "{\"payload\":" + kind.payload + '}', malformed},
        {"a version under another spelling", "{\"SchemaVersion\":2,\"payload\":" + kind.payload + '}', malformed},
        {"garbage after the record", valid + 'x', malformed},
        {"a second closing brace", valid + '}', malformed},
        {"a NUL after the record", valid + '\0', malformed},
        {"two records back to back", valid + valid, malformed},
        {"bytes that are not UTF-8 in a string", badUtf8, malformed},
    };
}

Cases versions(const RecordKind& kind)
{
    const QByteArray& payload = kind.payload;
    constexpr auto max = std::numeric_limits<qint64>::max();
    constexpr auto min = std::numeric_limits<qint64>::min();
    return {
        {"version 0", envelope(0, payload), unsupported(0)},
        {"version -0", envelope("-0", payload), unsupported(0)},
        {"version -1", envelope(-1, payload), unsupported(-1)},
        {"the next version", envelope(kind.currentVersion + 1, payload), unsupported(kind.currentVersion + 1)},
        {"version 99", envelope(99, payload), unsupported(99)},
        {"version 1e2", envelope("1e2", payload), unsupported(100)},
        {"the largest version", envelope(max, payload), unsupported(max)},
        {"the smallest version", envelope(min, payload), unsupported(min)},
        // The version decides before the payload is looked at, so a newer build's payload need not be ours.
        {"version 99 with a payload of another shape", envelope(99, "[\"x\"]"), unsupported(99)},
        {"version 99 without a payload", QByteArray("{\"schemaVersion\":99}"), unsupported(99)},
        {"version 2^63", envelope("9223372036854775808", payload), malformed},
        {"version 1e400", envelope("1e400", payload), malformed},
        {"version 2.5", envelope("2.5", payload), malformed},
        {"version 1.9999", envelope("1.9999", payload), malformed},
        {"version as a string", envelope("\"2\"", payload), malformed},
        {"version as an empty string", envelope("\"\"", payload), malformed},
        {"version true", envelope("true", payload), malformed},
        {"version null", envelope("null", payload), malformed},
        {"version in an array", envelope("[2]", payload), malformed},
        {"version in an object", envelope("{\"value\":2}", payload), malformed},
    };
}

Cases payloadTypes(const RecordKind& kind)
{
    Cases cases;
    for (qint64 version = 1; version <= kind.currentVersion; ++version) {
        const std::string at = " at version " + std::to_string(version);
        cases.push_back({"no payload" + at, "{\"schemaVersion\":" + QByteArray::number(version) + '}', invalidPayload});
        for (const QByteArray payload : {"null", "true", "7", "\"x\"", "[]", "{}", "[{}]", "[null]"}) {
            // An empty list is the exclusions payload with no records.
            if (kind.key == ExclusionStore::defaultKey && payload == "[]") {
                continue;
            }
            cases.push_back({"payload " + payload.toStdString() + at, envelope(version, payload), invalidPayload});
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
                cases.push_back({"without " + variant.path.toStdString(), envelope(version, compact(variant.payload)),
                                 invalidPayload});
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
            if (variant.replacement.isNull() && !variant.member.isEmpty() && isOptionalMember(variant.path)) {
                continue;
            }
            cases.push_back(
                {variant.path.toStdString() + " = " + compact(QJsonArray{variant.replacement}).toStdString(),
                 envelope(version, compact(variant.payload)), invalidPayload});
        }
    }
    return cases;
}

Cases leadTimes(const RecordKind& kind)
{
    if (kind.key != SettingsStore::defaultKey) {
        return {};
    }
    Cases cases;
    const auto withLeadTime = [](QByteArray payload, const QByteArray& leadTime) {
        return payload.replace("\"alertLeadTime\":300", "\"alertLeadTime\":" + leadTime);
    };
    for (const auto& [version, payload] : payloadsByVersion(kind)) {
        for (const QByteArray leadTime :
             {"7200.5", "7200.000001", "-1", "-1e-300", "1e308", "-1e308", "\"NaN\"", "\"inf\"", "\"300\""}) {
            cases.push_back({"lead time " + leadTime.toStdString(), envelope(version, withLeadTime(payload, leadTime)),
                             invalidPayload});
        }
        // JSON has no spelling for these: the whole record is not JSON.
        for (const QByteArray leadTime : {"NaN", "Infinity", "-Infinity", "1e400"}) {
            cases.push_back(
                {"lead time " + leadTime.toStdString(), envelope(version, withLeadTime(payload, leadTime)), malformed});
        }
    }
    return cases;
}

Cases duplicateMembers(const RecordKind& kind)
{
    // Of two equal members the last one is read, so a valid first one must not hide an invalid second one.
    const QByteArray version = QByteArray::number(kind.currentVersion);
    const QByteArray valid = envelope(version, kind.payload);
    const QByteArray& payload = kind.payload;
    const qsizetype objectStart = payload.indexOf('{');
    const QByteArray firstMember = payload.mid(objectStart + 1, payload.indexOf(':', objectStart) - objectStart);
    const qsizetype objectEnd = payload.size() - (payload.endsWith("}]") ? 2 : 1);
    const QByteArray firstMemberAgain = payload.left(objectEnd) + ',' + firstMember + "\"x\"" + payload.mid(objectEnd);
    return {
        {"a second version as a string",
         "{\"schemaVersion\":" + version + ",\"schemaVersion\":\"" + version + "\",\"payload\":" + payload + '}',
         malformed},
        {"a second version 99", "{\"schemaVersion\":" + version + ",\"schemaVersion\":99,\"payload\":" + payload + '}',
         unsupported(99)},
        {"a second payload null", valid.chopped(1) + ",\"payload\":null}", invalidPayload},
        {"a second payload of another shape", valid.chopped(1) + ",\"payload\":\"x\"}", invalidPayload},
        {"the first payload member again, invalid", envelope(version, firstMemberAgain), invalidPayload},
    };
}

Cases deepNesting(const RecordKind& kind)
{
    const auto nested = [](int depth, char open, const QByteArray& inner, const QByteArray& close) {
        QByteArray text;
        for (int i = 0; i < depth; ++i) {
            text += open == '[' ? QByteArray("[") : QByteArray("{\"a\":");
        }
        return text + inner + close.repeated(depth);
    };
    const QByteArray version = QByteArray::number(kind.currentVersion);
    return {
        {"5000 open brackets", QByteArray(5000, '['), malformed},
        {"5000 nested arrays", nested(5000, '[', "", "]"), malformed},
        {"5000 nested objects", nested(5000, '{', "1", "}"), malformed},
        {"a payload nested 5000 deep", envelope(version, nested(5000, '[', "", "]")), malformed},
        // Deep, but within what the parser accepts: the record is JSON, its payload is not ours.
        {"a payload nested 1000 deep", envelope(version, nested(1000, '[', "", "]")), invalidPayload},
        {"a payload member nested 1000 deep", envelope(version, nested(1000, '{', "1", "}")), invalidPayload},
    };
}

struct Family {
    const char* name;
    Cases (*generate)(const RecordKind&);
};

const Family families[] = {
    {"NotABlob", notBlobs},
    {"RandomBytes", randomBytes},
    {"Truncated", truncations},
    {"NotAnEnvelope", notEnvelopes},
    {"Version", versions},
    {"PayloadType", payloadTypes},
    {"MissingMember", missingMembers},
    {"WrongMemberType", wrongMemberTypes},
    {"LeadTime", leadTimes},
    {"DuplicateMember", duplicateMembers},
    {"DeepNesting", deepNesting},
};

// The stores' mutations, each with arguments that would succeed on a readable store.

using Mutations = std::vector<std::pair<const char*, std::function<void()>>>;

CalendarIdentityMigration validMigration()
{
    return {sampleIdentity(), sampleIdentity(u"calendar-B"_s)};
}

/// Opens the three stores of one database and lists every change that can be asked of the one under `key`.
struct OpenStores {
    explicit OpenStores(DefaultsDatabase& database)
        : settings(database)
        , exclusions(database)
        , delivery(database)
    {
    }

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
        const auto add = [&all](const char* name, std::function<void()> mutation) {
            all.emplace_back(name, std::move(mutation));
        };
        if (key == SettingsStore::defaultKey) {
            add("save", [this] { settings.save(sampleSettings()); });
            // The refusal comes first: it, not the invalid value, is what the caller must learn.
            add("save of an invalid lead time", [this] {
                auto invalid = sampleSettings();
                invalid.alertLeadTime = 7200.5;
                settings.save(invalid);
            });
        } else if (key == ExclusionStore::defaultKey) {
            add("add", [this] { exclusions.add(sampleExclusion()); });
            add("remove", [this] { exclusions.remove({sampleExclusion().id}); });
            add("remove nothing", [this] { exclusions.remove({}); });
            add("remove all", [this] { exclusions.removeAll(); });
            add("migrate identities",
                [this] { exclusions.applyCalendarIdentityMigrations(std::array{validMigration()}); });
            add("migrate identities with an invalid list",
                [this] { exclusions.applyCalendarIdentityMigrations(std::array{CalendarIdentityMigration{}}); });
        } else {
            const DeliveryKey deliveryKey = sampleDelivery().id();
            add("prepare deliveries", [this] { delivery.prepareDeliveries(std::array{sampleDelivery()}); });
            add("confirm deliveries",
                [this, deliveryKey] { delivery.confirmDeliveries(std::array{deliveryKey}, {780'000'000}); });
            add("discard pending deliveries",
                [this, deliveryKey] { delivery.discardPendingDeliveries(std::array{deliveryKey}); });
            add("set snoozes", [this] { delivery.setSnoozes(std::array{sampleSnooze()}); });
            add("clear snooze", [this] { delivery.clearSnooze(sampleIdentity()); });
            add("clear snoozes", [this] { delivery.clearSnoozes(std::array{sampleIdentity()}); });
            add("remove persisted state", [this] { delivery.removePersistedState({sampleIdentity()}); });
            add("migrate identities",
                [this] { delivery.applyCalendarIdentityMigrations(std::array{validMigration()}); });
            add("migrate identities with an invalid list",
                [this] { delivery.applyCalendarIdentityMigrations(std::array{CalendarIdentityMigration{}}); });
            add("prune", [this] { delivery.prune({770'000'000}, {770'000'000}); });
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

QByteArray emptyRecord(const RecordKind& kind)
{
    if (kind.key == SettingsStore::defaultKey) {
        return envelope(kind.currentVersion, json::serialize(toJson(NotifierSettings{})));
    }
    return envelope(kind.currentVersion,
                    kind.key == ExclusionStore::defaultKey ? "[]" : R"({"records":[],"snoozes":[]})");
}

void expectNeverOverwritten(const RecordKind& kind, const Hostile& hostile)
{
    TemporaryDefaults defaults;
    defaults.store(kind.key, hostile.value);
    const QVariant stored = defaults.stored(kind.key);
    const QByteArray fileBefore = defaults.fileBytes();
    ASSERT_TRUE(sameStoredValue(stored, hostile.value)) << "the settings file did not keep the value as given";

    OpenStores stores(defaults.database());
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
    EXPECT_TRUE(sameStoredValue(defaults.stored(kind.key), emptyRecord(kind)));
    for (const auto& other : recordKinds()) {
        if (other.key != kind.key) {
            EXPECT_FALSE(defaults.stored(other.key).isValid()) << other.key.toStdString() << " was created";
        }
    }
}

void PrintTo(const Family& family, std::ostream* out)
{
    *out << family.name;
}

class NeverOverwritten : public ::testing::TestWithParam<Family> {};

TEST_P(NeverOverwritten, ByAnyChangeOnlyByReset)
{
    std::size_t count = 0;
    for (const auto& kind : recordKinds()) {
        for (const auto& hostile : GetParam().generate(kind)) {
            SCOPED_TRACE(kind.key.toStdString() + ": " + hostile.name);
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
