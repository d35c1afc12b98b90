// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "domain/RawValue.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QUuid>

#include <cstdint>
#include <exception>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

/// JSON coding of Orvane's values.
///
/// Encoding builds a json::Value, whose objects keep their members in the order the code adds them: the stored
/// records list their keys in their types' declaration order, and QJsonObject would sort them. Decoding reads a
/// parsed QJsonValue through a json::Decoder, which knows its coding path and fails with a DecodingError; a value
/// is returned only when every required part of it decoded, so callers never see a half-built value.
///
/// Each type declares beside itself `json::Value toJson(const T&)` and
/// `T fromJson(const json::Decoder&, json::Tag<T>)`; `json::decode<T>()` and `Decoder::decode<T>()` find them.
namespace orvane::json {

class Value;
using Array = std::vector<Value>;
/// Object members in insertion order.
using Object = std::vector<std::pair<QString, Value>>;

/// A JSON value to be written.
class Value {
public:
    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool value)
        : m_value(value)
    {
    }
    Value(double value)
        : m_value(value)
    {
    }
    Value(qint64 value)
        : m_value(value)
    {
    }
    Value(int value)
        : m_value(qint64{value})
    {
    }
    Value(QString value)
        : m_value(std::move(value))
    {
    }
    Value(const char16_t* value)
        : m_value(QString::fromUtf16(value))
    {
    }
    Value(Array value)
        : m_value(std::move(value))
    {
    }
    Value(Object value)
        : m_value(std::move(value))
    {
    }

    using Storage = std::variant<std::nullptr_t, bool, double, qint64, QString, Array, Object>;
    const Storage& storage() const { return m_value; }

    friend bool operator==(const Value&, const Value&);

private:
    Storage m_value;
};

/// Writing a value failed: JSON has no form for a non-finite number.
class EncodingError : public std::exception {
public:
    const char* what() const noexcept override;
};

/// The compact UTF-8 text of a value, members in their order; throws EncodingError for NaN or infinity.
QByteArray serialize(const Value& value);

/// Adds `key` to `object` only when `value` is present: absent optionals are left out, not written as null.
template <class T>
void addIfPresent(Object& object, const char16_t* key, const std::optional<T>& value);

using CodingPath = QStringList;

/// A failure to decode a value, with the path of keys and indexes to it.
class DecodingError : public std::exception {
public:
    enum class Kind {
        /// The value has the wrong JSON type.
        typeMismatch,
        /// A required value is null.
        valueNotFound,
        /// A required key is missing.
        keyNotFound,
        /// The value has the right type but an invalid content, or the bytes are not JSON.
        dataCorrupted,
    };

    DecodingError(Kind kind, CodingPath codingPath, QString debugDescription);

    Kind kind() const { return m_kind; }
    const CodingPath& codingPath() const { return m_codingPath; }
    /// What went wrong, in the decoder's words (for the log and for tests; never shown as is).
    const QString& debugDescription() const { return m_debugDescription; }
    /// One line naming the kind, the path and the debug description.
    QString description() const;
    const char* what() const noexcept override;

private:
    Kind m_kind;
    CodingPath m_codingPath;
    QString m_debugDescription;
    QByteArray m_what;
};

template <class T>
struct Tag {
};

/// One value of a parsed document, at a coding path.
class Decoder {
public:
    explicit Decoder(QJsonValue value, CodingPath codingPath = {});

    const QJsonValue& value() const { return m_value; }
    const CodingPath& codingPath() const { return m_codingPath; }

    /// This value as T.
    template <class T>
    T decode() const
    {
        return fromJson(*this, Tag<T>{});
    }

    /// The member `key` of this object as T. Absent fails with keyNotFound, null with valueNotFound.
    template <class T>
    T decode(QStringView key) const
    {
        return requiredMember(key).template decode<T>();
    }

    /// The member `key` of this object as T, or nothing when it is absent or null.
    template <class T>
    std::optional<T> decodeIfPresent(QStringView key) const
    {
        auto member = optionalMember(key);
        if (!member) {
            return std::nullopt;
        }
        return member->template decode<T>();
    }

    /// Whether this object has the member `key` (null counts as present).
    bool contains(QStringView key) const;

    /// Fails with `kind` at this value (or at its member `key`).
    [[noreturn]] void fail(DecodingError::Kind kind, const QString& debugDescription, QStringView key = {}) const;

    /// Fails with typeMismatch unless this value has the JSON type `expected`.
    void expectType(QJsonValue::Type expected, const char* expectedName) const;

private:
    Decoder requiredMember(QStringView key) const;
    std::optional<Decoder> optionalMember(QStringView key) const;
    CodingPath pathTo(QStringView key) const;

    QJsonValue m_value;
    CodingPath m_codingPath;
};

/// Parses `bytes` and decodes the whole document as T; text that is not JSON fails with dataCorrupted.
template <class T>
T decode(const QByteArray& bytes);

/// Parses `bytes` as a JSON document (an object or array at the top); throws DecodingError when it is not JSON.
QJsonValue parse(const QByteArray& bytes);

// Coding of the primitive types.

inline Value toJson(bool value)
{
    return value;
}
inline Value toJson(double value)
{
    return value;
}
inline Value toJson(qint64 value)
{
    return value;
}
inline Value toJson(const QString& value)
{
    return value;
}

bool fromJson(const Decoder& decoder, Tag<bool>);
double fromJson(const Decoder& decoder, Tag<double>);
qint64 fromJson(const Decoder& decoder, Tag<qint64>);
QString fromJson(const Decoder& decoder, Tag<QString>);

/// URLs are coded as their absolute text; a string that is not a valid absolute URL fails with dataCorrupted.
Value toJson(const QUrl& url);
QUrl fromJson(const Decoder& decoder, Tag<QUrl>);

/// UUIDs are coded as upper-case text without braces, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
Value toJson(const QUuid& uuid);
QUuid fromJson(const Decoder& decoder, Tag<QUuid>);

template <class T>
Value toJson(const std::vector<T>& values)
{
    Array array;
    array.reserve(values.size());
    for (const auto& value : values) {
        array.push_back(toJson(value));
    }
    return array;
}

template <class T>
std::vector<T> fromJson(const Decoder& decoder, Tag<std::vector<T>>)
{
    decoder.expectType(QJsonValue::Array, "an array");
    const auto array = decoder.value().toArray();
    std::vector<T> result;
    result.reserve(std::size_t(array.size()));
    for (qsizetype index = 0; index < array.size(); ++index) {
        auto path = decoder.codingPath();
        path.append(QStringLiteral("Index %1").arg(index));
        const Decoder element(array.at(index), std::move(path));
        if (element.value().isNull()) {
            element.fail(DecodingError::Kind::valueNotFound,
                         QStringLiteral("Expected a value but found null instead."));
        }
        result.push_back(element.decode<T>());
    }
    return result;
}

template <class T>
void addIfPresent(Object& object, const char16_t* key, const std::optional<T>& value)
{
    if (value) {
        object.emplace_back(QString::fromUtf16(key), toJson(*value));
    }
}

template <class T>
T decode(const QByteArray& bytes)
{
    return Decoder(parse(bytes)).decode<T>();
}

} // namespace orvane::json

namespace orvane {

// Enumerations are coded as their raw strings; an unknown string fails with dataCorrupted.

template <RawValueEnum E>
json::Value toJson(E value)
{
    return rawValue(value);
}

template <RawValueEnum E>
E fromJson(const json::Decoder& decoder, json::Tag<E>)
{
    const auto raw = decoder.decode<QString>();
    if (auto value = fromRawValue<E>(raw)) {
        return *value;
    }
    decoder.fail(json::DecodingError::Kind::dataCorrupted,
                 QStringLiteral("Cannot initialize %1 from invalid String value %2")
                     .arg(QLatin1StringView(RawValues<E>::name), raw));
}

} // namespace orvane
