// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Readable GoogleTest output for Qt values: failures show text, not bytes.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <ostream>

inline void PrintTo(const QByteArray& value, std::ostream* out)
{
    *out << '"' << value.toStdString() << '"';
}

inline void PrintTo(const QString& value, std::ostream* out)
{
    *out << '"' << value.toStdString() << '"';
}

inline void PrintTo(const QStringList& value, std::ostream* out)
{
    *out << '[' << value.join(QStringLiteral(", ")).toStdString() << ']';
}

inline void PrintTo(const QUrl& value, std::ostream* out)
{
    *out << '<' << value.toString().toStdString() << '>';
}
