// SPDX-License-Identifier: GPL-3.0-or-later
#include "cloud/RemoteCalendarIdentityNamespace.h"

#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace orvane::RemoteCalendarIdentityNamespace {

namespace {

const QString calendarKind = u"calendar"_s;

QString identity(const RemoteCalendarAccountMetadata& account, const QString& kind, const QString& providerIdentifier)
{
    const QByteArray encoded =
        providerIdentifier.toUtf8().toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    return QStringList{QString::fromUtf16(prefix), rawValue(account.provider),
                       account.id.toString(QUuid::WithoutBraces).toUpper(), kind, QString::fromLatin1(encoded)}
        .join(u':');
}

bool isHexDigit(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

/// The hyphenated 8-4-4-4-12 form in either case, without braces: what a UUID text parser accepts. QUuid would
/// also take braces, which no identity string ever had.
std::optional<QUuid> parseUuid(QStringView text)
{
    if (text.size() != 36) {
        return std::nullopt;
    }
    for (qsizetype index = 0; index < text.size(); ++index) {
        const bool hyphen = index == 8 || index == 13 || index == 18 || index == 23;
        if (hyphen ? text[index] != u'-' : !isHexDigit(text[index])) {
            return std::nullopt;
        }
    }
    return QUuid::fromString(text);
}

std::optional<QString> decodeProviderIdentifier(QString field)
{
    field.replace(u'-', u'+').replace(u'_', u'/');
    while (field.size() % 4 != 0) {
        field.append(u'=');
    }
    if (!std::all_of(field.cbegin(), field.cend(), [](QChar c) { return c.unicode() < 0x80; })) {
        return std::nullopt;
    }
    auto bytes = QByteArray::fromBase64Encoding(field.toLatin1(),
                                                QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!bytes) {
        return std::nullopt;
    }
    // A leading byte order mark is part of the identifier, not a hint to drop.
    QStringDecoder utf8(QStringDecoder::Utf8,
                        QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = utf8.decode(*bytes);
    if (utf8.hasError()) {
        return std::nullopt;
    }
    return text;
}

} // namespace

bool belongsToAccount(const QString& value, const RemoteCalendarAccountMetadata& account)
{
    // Everything before the kind field: prefix, provider and account.
    const QString accountPrefix = QStringList{QString::fromUtf16(prefix), rawValue(account.provider),
                                              account.id.toString(QUuid::WithoutBraces).toUpper(), QString()}
                                      .join(u':');
    const QStringView text = value.startsWith(u"external:"_s) ? QStringView(value).mid(9) : QStringView(value);
    return text.startsWith(accountPrefix);
}

QString sourceIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerSourceIdentifier)
{
    return identity(account, u"source"_s, providerSourceIdentifier);
}

QString calendarIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerCalendarIdentifier)
{
    return identity(account, calendarKind, providerCalendarIdentifier);
}

QString seriesIdentifier(const RemoteCalendarAccountMetadata& account, const QString& providerSeriesIdentifier)
{
    return u"external:"_s + identity(account, u"series"_s, providerSeriesIdentifier);
}

bool isRemoteIdentifier(const QString& value)
{
    return value.startsWith(QString::fromUtf16(prefix) + u':');
}

std::optional<DecodedRemoteCalendarIdentifier> decodeCalendarIdentifier(const QString& value)
{
    const QStringList pieces = value.split(u':', Qt::KeepEmptyParts);
    if (pieces.size() != 5 || pieces[0] != QString::fromUtf16(prefix)) {
        return std::nullopt;
    }
    if (!fromRawValue<RemoteCalendarProviderKind>(pieces[1])) {
        return std::nullopt;
    }
    const auto accountID = parseUuid(pieces[2]);
    if (!accountID || pieces[3] != calendarKind) {
        return std::nullopt;
    }
    auto providerCalendarIdentifier = decodeProviderIdentifier(pieces[4]);
    if (!providerCalendarIdentifier) {
        return std::nullopt;
    }
    return DecodedRemoteCalendarIdentifier{*accountID, std::move(*providerCalendarIdentifier)};
}

} // namespace orvane::RemoteCalendarIdentityNamespace
