// SPDX-License-Identifier: GPL-3.0-or-later
#include "domain/Json.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QVariant>

#include <charconv>
#include <cmath>
#include <limits>

namespace orvane::json {

namespace {

void writeString(QByteArray& out, const QString& string)
{
    out.append('"');
    const QByteArray utf8 = string.toUtf8();
    const char* run = utf8.constBegin();
    // Plain characters are copied in runs; records are mostly plain text and large ones are written often.
    for (const char* c = run; c != utf8.constEnd(); ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            continue;
        }
        out.append(run, c - run);
        run = c + 1;
        switch (byte) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        default: {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte));
            out.append(escape);
        }
        }
    }
    out.append(run, utf8.constEnd() - run);
    out.append('"');
}

void writeDouble(QByteArray& out, double value)
{
    if (!std::isfinite(value)) {
        throw EncodingError();
    }
    // Shortest text that reads back as the same double; plain digits for the magnitudes dates and durations
    // have, exponent form only for very large or very small numbers.
    char buffer[400];
    const double magnitude = std::fabs(value);
    const auto format = (magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e16)) ? std::chars_format::fixed
                                                                                    : std::chars_format::scientific;
    const auto result = std::to_chars(std::begin(buffer), std::end(buffer), value, format);
    out.append(buffer, result.ptr - buffer);
}

void write(QByteArray& out, const Value& value)
{
    std::visit(
        [&out](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::nullptr_t>) {
                out.append("null");
            } else if constexpr (std::is_same_v<T, bool>) {
                out.append(v ? "true" : "false");
            } else if constexpr (std::is_same_v<T, double>) {
                writeDouble(out, v);
            } else if constexpr (std::is_same_v<T, qint64>) {
                out.append(QByteArray::number(v));
            } else if constexpr (std::is_same_v<T, QString>) {
                writeString(out, v);
            } else if constexpr (std::is_same_v<T, Array>) {
                out.append('[');
                for (std::size_t i = 0; i < v.size(); ++i) {
                    if (i > 0) {
                        out.append(',');
                    }
                    write(out, v[i]);
                }
                out.append(']');
            } else if constexpr (std::is_same_v<T, Object>) {
                out.append('{');
                for (std::size_t i = 0; i < v.size(); ++i) {
                    if (i > 0) {
                        out.append(',');
                    }
                    writeString(out, v[i].first);
                    out.append(':');
                    write(out, v[i].second);
                }
                out.append('}');
            }
        },
        value.storage());
}

QString typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a boolean");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a string");
    case QJsonValue::Array:
        return QStringLiteral("an array");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

QString kindName(DecodingError::Kind kind)
{
    switch (kind) {
    case DecodingError::Kind::typeMismatch:
        return QStringLiteral("Type mismatch");
    case DecodingError::Kind::valueNotFound:
        return QStringLiteral("Value not found");
    case DecodingError::Kind::keyNotFound:
        return QStringLiteral("Key not found");
    case DecodingError::Kind::dataCorrupted:
        return QStringLiteral("Data corrupted");
    }
    return {};
}

} // namespace

bool operator==(const Value& lhs, const Value& rhs)
{
    return lhs.m_value == rhs.m_value;
}

const char* EncodingError::what() const noexcept
{
    return "JSON cannot represent a non-finite number";
}

QByteArray serialize(const Value& value)
{
    QByteArray out;
    write(out, value);
    return out;
}

DecodingError::DecodingError(Kind kind, CodingPath codingPath, QString debugDescription)
    : m_kind(kind)
    , m_codingPath(std::move(codingPath))
    , m_debugDescription(std::move(debugDescription))
    , m_what(description().toUtf8())
{
}

QString DecodingError::description() const
{
    const QString path = m_codingPath.isEmpty() ? QStringLiteral("the top level") : m_codingPath.join(u'.');
    return QStringLiteral("%1 at %2: %3").arg(kindName(m_kind), path, m_debugDescription);
}

const char* DecodingError::what() const noexcept
{
    return m_what.constData();
}

Decoder::Decoder(QJsonValue value, CodingPath codingPath)
    : m_value(std::move(value))
    , m_codingPath(std::move(codingPath))
{
}

bool Decoder::contains(QStringView key) const
{
    expectType(QJsonValue::Object, "an object");
    return m_value.toObject().contains(key);
}

void Decoder::fail(DecodingError::Kind kind, const QString& debugDescription, QStringView key) const
{
    throw DecodingError(kind, key.isNull() ? m_codingPath : pathTo(key), debugDescription);
}

void Decoder::expectType(QJsonValue::Type expected, const char* expectedName) const
{
    if (m_value.type() != expected) {
        fail(DecodingError::Kind::typeMismatch, QStringLiteral("Expected %1 but found %2 instead.")
                                                    .arg(QLatin1StringView(expectedName), typeName(m_value)));
    }
}

Decoder Decoder::requiredMember(QStringView key) const
{
    expectType(QJsonValue::Object, "an object");
    const auto object = m_value.toObject();
    const auto found = object.constFind(key);
    if (found == object.constEnd()) {
        fail(DecodingError::Kind::keyNotFound, QStringLiteral("No value associated with key \"%1\".").arg(key), key);
    }
    if (found->isNull()) {
        fail(DecodingError::Kind::valueNotFound, QStringLiteral("Expected a value but found null instead."), key);
    }
    return Decoder(*found, pathTo(key));
}

std::optional<Decoder> Decoder::optionalMember(QStringView key) const
{
    expectType(QJsonValue::Object, "an object");
    const auto object = m_value.toObject();
    const auto found = object.constFind(key);
    if (found == object.constEnd() || found->isNull()) {
        return std::nullopt;
    }
    return Decoder(*found, pathTo(key));
}

CodingPath Decoder::pathTo(QStringView key) const
{
    auto path = m_codingPath;
    path.append(key.toString());
    return path;
}

QJsonValue parse(const QByteArray& bytes)
{
    QJsonParseError error{};
    const auto document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        throw DecodingError(DecodingError::Kind::dataCorrupted, {},
                            QStringLiteral("The given data was not valid JSON (%1 at offset %2).")
                                .arg(error.errorString())
                                .arg(error.offset));
    }
    if (document.isArray()) {
        return document.array();
    }
    return document.object();
}

bool fromJson(const Decoder& decoder, Tag<bool>)
{
    decoder.expectType(QJsonValue::Bool, "a boolean");
    return decoder.value().toBool();
}

double fromJson(const Decoder& decoder, Tag<double>)
{
    decoder.expectType(QJsonValue::Double, "a number");
    return decoder.value().toDouble();
}

qint64 fromJson(const Decoder& decoder, Tag<qint64>)
{
    decoder.expectType(QJsonValue::Double, "a number");
    // The parser keeps integer literals that fit in 64 bits exactly; other numbers arrive as doubles and are
    // accepted only when they hold a whole number in range.
    const QVariant variant = decoder.value().toVariant();
    if (variant.typeId() == QMetaType::LongLong) {
        return variant.toLongLong();
    }
    const double value = variant.toDouble();
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (std::trunc(value) != value || value < -limit || value >= limit) {
        decoder.fail(DecodingError::Kind::dataCorrupted,
                     QStringLiteral("Parsed JSON number <%1> does not fit in Int64.").arg(value));
    }
    return qint64(value);
}

QString fromJson(const Decoder& decoder, Tag<QString>)
{
    decoder.expectType(QJsonValue::String, "a string");
    return decoder.value().toString();
}

Value toJson(const QUrl& url)
{
    return url.toString(QUrl::FullyEncoded);
}

QUrl fromJson(const Decoder& decoder, Tag<QUrl>)
{
    const auto text = decoder.decode<QString>();
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid() || url.isRelative()) {
        decoder.fail(DecodingError::Kind::dataCorrupted, QStringLiteral("Invalid URL string."));
    }
    return url;
}

Value toJson(const QUuid& uuid)
{
    return uuid.toString(QUuid::WithoutBraces).toUpper();
}

QUuid fromJson(const Decoder& decoder, Tag<QUuid>)
{
    const auto text = decoder.decode<QString>();
    // Only the plain 36-character form: braces or other decorations were never written by us.
    const QUuid uuid = text.size() == 36 ? QUuid::fromString(text) : QUuid();
    if (uuid.isNull() && text != QStringLiteral("00000000-0000-0000-0000-000000000000")) {
        decoder.fail(DecodingError::Kind::dataCorrupted,
                     QStringLiteral("Attempted to decode UUID from invalid UUID string."));
    }
    return uuid;
}

} // namespace orvane::json
